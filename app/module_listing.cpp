// `brimora modules`: the host's modules, one module's classes and functions,
// and the export of every Python module with its progress.
#include "app/module_listing.h"

#include "app/report.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>

namespace brimora {
namespace {

std::string first_line(tesk::String const& text) {
    std::string_view all = text.asChars();
    return std::string(all.substr(0, all.find('\n')));
}

// On a terminal, one line rewritten in place: a bar, the count and the
// module being exported; elsewhere (a pipe, a log file) a plain line each.
class progress_report {
public:
    progress_report() : terminal_(isatty(STDERR_FILENO) == 1) {}

    void operator()(std::int64_t done, std::int64_t total, std::string const& name) {
        if (!terminal_) {
            if (!name.empty()) std::cerr << "[" << done + 1 << "/" << total << "] " << name << '\n';
            return;
        }
        constexpr int width = 30;
        int const filled = total > 0 ? static_cast<int>(done * width / total) : width;
        std::string line = "[" + std::string(static_cast<std::size_t>(filled), '#') +
                           std::string(static_cast<std::size_t>(width - filled), '.') + "] " +
                           std::to_string(done) + "/" + std::to_string(total) + " " + name;
        // Clears what a longer line before it left.
        std::cerr << '\r' << line << "\x1b[K" << std::flush;
        if (done == total) std::cerr << '\n';
    }

private:
    bool terminal_;
};

Outcome export_all_modules(Python const& python) {
    auto report = std::make_shared<progress_report>();
    tesk::Any progress = tesk::internal::make_function_callable(
        [report](std::span<tesk::Any const> args) -> tesk::Any {
            if (args.size() == 3 && tesk::Integer::test(args[0]) && tesk::Integer::test(args[1]) &&
                tesk::String::test(args[2]))
                (*report)(tesk::Integer::unsafe(args[0]).value(), tesk::Integer::unsafe(args[1]).value(),
                          tesk::String::unsafe(args[2]).toUtf8());
            return tesk::Any();
        },
        tesk::Signature(tesk::Type::none(), {}, {}, true));
    return python.call(tesk::String("import_all_modules"), {progress});
}

void print_module_list() {
    std::vector<tesk::Module> modules = tesk::modules();
    std::sort(modules.begin(), modules.end(), [](tesk::Module const& a, tesk::Module const& b) {
        return a.name().asChars() < b.name().asChars();
    });
    for (tesk::Module const& module : modules) {
        std::string const doc = first_line(module.doc());
        std::cout << module.name().asChars();
        if (!doc.empty()) std::cout << "  " << doc;
        std::cout << '\n';
    }
}

std::string signature_of(tesk::I_Callable_Generic const& callable) {
    auto signature = callable.signature();
    if (!signature.is<tesk::Signature>()) return "(...)";
    return signature.as<tesk::Signature>().toString().toUtf8();
}

int print_module(std::string const& name) {
    auto module = tesk::find_module(tesk::String(name));
    if (!module) {
        char const* hint = name.starts_with("python.") ? " (--all exports every Python module first)" : "";
        return report_error(tesk::Error(tesk::String("No host module named '{}'{}.").arg(name, hint)));
    }
    tesk::Module m = module.value();
    std::cout << m.name().asChars() << '\n';
    if (std::string const doc = first_line(m.doc()); !doc.empty()) std::cout << "  " << doc << '\n';
    for (auto const& [className, cls] : m.classes()) {
        std::cout << "class " << className.asChars();
        if (std::string const doc = first_line(cls.doc()); !doc.empty()) std::cout << "  " << doc;
        std::cout << '\n';
        for (auto const& [methodName, method] : cls.declaredMethods())
            std::cout << "    " << methodName.asChars() << signature_of(method) << '\n';
    }
    for (auto const& [functionName, function] : m.callables())
        std::cout << functionName.asChars() << signature_of(function) << '\n';
    return 0;
}

} // namespace

int list_modules(Python const& python, ModuleListing const& listing) {
    if (listing.all) {
        if (Outcome exported = export_all_modules(python); !exported) return report_error(exported.error());
    }
    if (listing.name) return print_module(*listing.name);
    print_module_list();
    return 0;
}

} // namespace brimora
