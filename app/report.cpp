#include "app/report.h"

#include "app/interruption.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace brimora {

int report_error(tesk::Error const& error) {
    std::cerr << "error: " << error.message().trimmed().asChars() << '\n';
    if (auto evaluationError = tesk::EvaluationError::cast(error)) {
        if (auto line = evaluationError.value().line()) {
            std::cerr << "at line " << line.value().value();
            if (auto column = evaluationError.value().column()) std::cerr << ", column " << column.value().value();
            std::cerr << '\n';
        }
    }
    return 1;
}

namespace {

// Whether the error is of the host class made for the Python exception type
// `name` (of the module builtins), or of a class derived from it.
bool is_python_exception(tesk::Error const& error, char const* name) {
    auto builtins = tesk::find_module(tesk::String("python.builtins"));
    if (!builtins) return false;
    for (auto const& [member, cls] : builtins.value().classes())
        if (member == tesk::String(name)) return tesk::Type(tesk::raw_class_of(error)).conformsTo(cls);
    return false;
}

// The status python3 exits with for SystemExit(code).
int exit_status_of(tesk::Any const& code) {
    if (!code.hasValue()) return 0;
    if (auto flag = tesk::Boolean::cast(code)) return flag.value().value() ? 1 : 0;
    if (auto number = tesk::Integer::cast(code)) return static_cast<int>(number.value().value());
    std::cerr << tesk::display(code).asChars() << '\n';
    return 1;
}

} // namespace

int report_evaluation_error(tesk::Error const& error) {
    if (is_python_exception(error, "SystemExit")) return exit_status_of(error.value());
    if (is_python_exception(error, "KeyboardInterrupt")) return report_interrupted(); // Ctrl-C
    return report_error(error);
}

int report_result(Python const& python, tesk::Any const& result, tesk::EvaluationScope const& scope) {
    std::cout << python.to_code(result).asChars() << '\n';
    if (auto outLocals = tesk::HashMap::cast(scope.outLocals())) {
        for (auto const& [name, value] : outLocals.value().items())
            std::cout << tesk::display(name).asChars() << " = " << python.to_code(value).asChars() << '\n';
    }
    return 0;
}

tesk::Any flush_output() {
    errno = 0;
    std::cout.flush();
    bool const failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout;
    if (!failed) return tesk::None();
    int const reason = errno;
    return tesk::Error(tesk::String("Cannot write the output: {}.")
                           .arg(tesk::String(reason != 0 ? std::strerror(reason) : "write error")));
}

} // namespace brimora
