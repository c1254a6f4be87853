#include "app/command_line.h"

#include "app/value_text.h"

#include <array>
#include <cmath>
#include <cstdlib>

namespace brimora {
namespace {

constexpr std::string_view usage = R"(usage: brimora expr EXPRESSION [options]
       brimora eval BLOCK [options]
       brimora eval -f FILE [options]
       brimora run [--extension PATH] FILE [ARGS...]
       brimora modules [--all] [--extension PATH] [NAME]
       brimora repl [--sandbox[=strict]] [--timeout SECONDS] [--extension PATH]
Try 'brimora --help' for more information.
)";

constexpr std::string_view help = R"(brimora: runs Python code inside the Tesk host.

usage: brimora expr EXPRESSION [options]
       brimora eval BLOCK [options]
       brimora eval -f FILE [options]
       brimora run [--extension PATH] FILE [ARGS...]
       brimora modules [--all] [--extension PATH] [NAME]
       brimora repl [--sandbox[=strict]] [--timeout SECONDS] [--extension PATH]
       brimora --help

Commands:
  expr EXPRESSION    evaluate one Python expression and print its value
  eval BLOCK         run a block of Python statements as the body of a
                     function; `return` gives the value printed (None
                     without one)
  run FILE [ARGS...]  run a Python script as python3 does: as __main__, with
                     sys.argv = [FILE, ARGS...] and the script's directory
                     first on sys.path ("-" reads the script from standard
                     input); the exit status is the script's (sys.exit), 1
                     after an uncaught exception, whose traceback goes to
                     standard error
  modules [NAME]     list the host modules (name and the first line of its
                     doc), or the classes and functions of the module NAME
                     with their signatures; --all first exports every
                     importable Python module under python. (once), showing
                     its progress on standard error
  repl               an interactive Python prompt, as python3 gives (line
                     editing, history in ~/.brimora_python_history or
                     $BRIMORA_HISTORY, multi-line blocks); --sandbox and
                     --timeout hold for each entry; Ctrl-C cancels the line
                     or the running entry, Ctrl-D leaves. brimora without
                     arguments on a terminal starts it too

Options:
  -f, --file FILE      read the code from FILE instead of the command line
                       ("-" reads standard input)
  --local NAME=VALUE   a local variable of the code (repeatable)
  --global NAME=VALUE  a global variable of the code (repeatable); without
                       any, the code sees the host's global names
  --out NAME=VALUE     eval only: a variable that the block may assign
                       (repeatable); its final value is printed after the
                       result as `NAME = value`, in the order given
  --sandbox            refuse file writes, processes, network access and
                       native libraries while the code runs
  --sandbox=strict     the sandbox, also refusing threads, tracing, frames,
                       code objects, writes to inherited descriptors,
                       ending or signalling the process and atexit handlers
  --extension PATH     the Python extension library to load (default:
                       libbrimora_python.so beside brimora's libraries)
  --timeout SECONDS    stop the code after SECONDS (a number above 0)
  -h, --help           print this help
  --                   what follows is code, even when it starts with '-'

Values: an integer gives an int, a decimal number a float, true/false a
bool, none None, a JSON array or object a host list or map (whose leaves
follow the same rules), and anything else the text as a str.

Output: the value in Python notation on standard output. A failure prints
`error: MESSAGE` (and the line and column of the code, when known) on
standard error.

Ctrl-C stops the running code: `interrupted` on standard error, exit
status 130. Before it exits, brimora waits for the code's non-daemon
threads and runs its atexit handlers, as python3 does.

Exit status: 0 on success, 1 when the evaluation, the start-up, reading the
code or writing the output fails, 2 when the command line is wrong, 130
after Ctrl-C; for run, the script's own status.

Examples:
  brimora expr "[x * x for x in range(5)]"
  brimora eval "return a + 1" --local a=41
  brimora eval "a = a + 41" --out a=1
)";

// Reads --sandbox or --sandbox=strict into the options; nothing when the
// argument is no sandbox option.
std::optional<std::optional<UsageError>> take_sandbox_option(std::string_view argument, EvaluationOptions& options) {
    if (argument == "--sandbox" || argument == "--sandbox=strict") {
        options.sandbox = true;
        options.strictSandbox = options.strictSandbox || argument != "--sandbox";
        return std::optional<UsageError>();
    }
    if (argument.starts_with("--sandbox="))
        return UsageError{"unknown sandbox level '" + std::string(argument.substr(10)) +
                          "' (expected --sandbox or --sandbox=strict)"};
    return std::nullopt;
}

// Reads the value of --timeout.
std::optional<UsageError> set_timeout(EvaluationOptions& options, std::string_view name, std::string_view value) {
    if (options.timeout) return UsageError{"option " + std::string(name) + " given twice"};
    std::string const text(value);
    char* end = nullptr;
    double const seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !(seconds > 0) || !std::isfinite(seconds))
        return UsageError{std::string(name) + " needs a number of seconds above 0, got '" + text + "'"};
    options.timeout = seconds;
    return {};
}

// Reads NAME=VALUE.
std::variant<NamedValue, UsageError> parse_named_value(std::string_view option, std::string_view text) {
    auto equals = text.find('=');
    if (equals == std::string_view::npos)
        return UsageError{std::string(option) + " expects NAME=VALUE, got '" + std::string(text) + "'"};
    std::string_view name = text.substr(0, equals);
    if (!is_variable_name(name))
        return UsageError{std::string(option) + ": '" + std::string(name) + "' is not a valid variable name"};
    tesk::Any value = parse_value(text.substr(equals + 1));
    if (value.isError()) return UsageError{std::string(option) + ": " + value.error().message().toUtf8()};
    return NamedValue{tesk::String(name), value};
}

// Reads the options and the code of one command.
class Parser {
public:
    explicit Parser(CodeKind kind) { invocation_.kind = kind; }

    CommandLine parse(std::span<char const* const> arguments) {
        bool optionsEnded = false;
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            std::string_view argument = arguments[i];
            if (optionsEnded || argument == "-" || !argument.starts_with('-')) {
                if (auto error = take_code(argument)) return *error;
                continue;
            }
            if (argument == "--") {
                optionsEnded = true;
                continue;
            }
            if (argument == "-h" || argument == "--help") return HelpRequest{};
            if (auto sandbox = take_sandbox_option(argument, invocation_)) {
                if (*sandbox) return **sandbox;
                continue;
            }
            // Options with a value: "--local a=1", or "--local=a=1" for the long ones.
            std::string_view name = argument;
            std::optional<std::string_view> value;
            if (auto equals = argument.find('='); argument.starts_with("--") && equals != std::string_view::npos) {
                name = argument.substr(0, equals);
                value = argument.substr(equals + 1);
            }
            Option const* option = find_option(name);
            if (option == nullptr)
                return UsageError{"unknown option '" + std::string(name) +
                                  "' (put -- before code that starts with '-')"};
            if (!value) {
                if (i + 1 == arguments.size())
                    return UsageError{"option " + std::string(name) + " needs a value (" +
                                      std::string(option->valueName) + ")"};
                value = arguments[++i];
            }
            if (auto error = apply(*option, name, *value)) return *error;
        }
        if (invocation_.kind == CodeKind::expression && !invocation_.outLocals.empty())
            return UsageError{"--out needs a block (eval): an expression assigns no variables"};
        if (invocation_.code && invocation_.codeFile)
            return UsageError{"give the code either as an argument or with -f, not both"};
        if (!invocation_.code && !invocation_.codeFile)
            return UsageError{invocation_.kind == CodeKind::expression ? "missing the expression to evaluate"
                                                                      : "missing the block to run"};
        return invocation_;
    }

private:
    using Outcome = std::optional<UsageError>;

    // The options that take a value.
    enum class Target { locals, globals, outLocals, codeFile, extension, timeout };
    struct Option {
        std::string_view longName;
        std::string_view shortName;
        std::string_view valueName;
        Target target;
    };
    static constexpr std::array<Option, 6> options{{
        {"--local", "", "NAME=VALUE", Target::locals},
        {"--global", "", "NAME=VALUE", Target::globals},
        {"--out", "", "NAME=VALUE", Target::outLocals},
        {"--file", "-f", "FILE", Target::codeFile},
        {"--extension", "", "PATH", Target::extension},
        {"--timeout", "", "SECONDS", Target::timeout},
    }};

    Outcome apply(Option const& option, std::string_view name, std::string_view value) {
        switch (option.target) {
        case Target::locals: return append_to(invocation_.locals, name, value);
        case Target::globals: return append_to(invocation_.globals, name, value);
        case Target::outLocals: return append_to(invocation_.outLocals, name, value);
        case Target::codeFile: return set_once(invocation_.codeFile, name, value);
        case Target::extension: return set_once(invocation_.extension, name, value);
        case Target::timeout: return set_timeout(invocation_, name, value);
        }
        return {};
    }

    static Outcome append_to(std::vector<NamedValue>& list, std::string_view name, std::string_view value) {
        auto parsed = parse_named_value(name, value);
        if (auto* error = std::get_if<UsageError>(&parsed)) return *error;
        list.push_back(std::get<NamedValue>(std::move(parsed)));
        return {};
    }

    static Outcome set_once(std::optional<std::string>& slot, std::string_view name, std::string_view value) {
        if (slot) return UsageError{"option " + std::string(name) + " given twice"};
        slot = std::string(value);
        return {};
    }

    static Option const* find_option(std::string_view name) {
        for (Option const& option : options)
            if (name == option.longName || (!option.shortName.empty() && name == option.shortName)) return &option;
        return nullptr;
    }

    Outcome take_code(std::string_view argument) {
        if (invocation_.code) return UsageError{"unexpected argument '" + std::string(argument) + "'"};
        invocation_.code = std::string(argument);
        return {};
    }

    Invocation invocation_;
};

// Reads `run [--extension PATH] [--] FILE [ARGS...]`: options come before
// FILE; everything after it belongs to the script.
CommandLine parse_script_run(std::span<char const* const> arguments) {
    ScriptRun run;
    std::size_t i = 0;
    for (; i < arguments.size(); ++i) {
        std::string_view argument = arguments[i];
        if (argument == "--") {
            ++i;
            break;
        }
        if (argument == "-" || !argument.starts_with('-')) break;
        if (argument == "-h" || argument == "--help") return HelpRequest{};
        if (argument == "--extension" || argument.starts_with("--extension=")) {
            if (run.extension) return UsageError{"option --extension given twice"};
            if (argument != "--extension") {
                run.extension = std::string(argument.substr(argument.find('=') + 1));
            } else if (++i < arguments.size()) {
                run.extension = std::string(arguments[i]);
            } else {
                return UsageError{"option --extension needs a value (PATH)"};
            }
            continue;
        }
        return UsageError{"unknown option '" + std::string(argument) + "' for run (options come before FILE)"};
    }
    if (i == arguments.size()) return UsageError{"missing the script to run"};
    run.file = arguments[i];
    for (++i; i < arguments.size(); ++i) run.arguments.emplace_back(arguments[i]);
    return run;
}

// Reads `modules [--all] [--extension PATH] [NAME]`.
CommandLine parse_module_listing(std::span<char const* const> arguments) {
    ModuleListing listing;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string_view argument = arguments[i];
        if (argument == "--all") {
            listing.all = true;
        } else if (argument == "--extension" || argument.starts_with("--extension=")) {
            if (listing.extension) return UsageError{"option --extension given twice"};
            if (argument.starts_with("--extension=")) {
                listing.extension = std::string(argument.substr(argument.find('=') + 1));
            } else if (++i < arguments.size()) {
                listing.extension = std::string(arguments[i]);
            } else {
                return UsageError{"option --extension needs a value"};
            }
        } else if (argument.starts_with('-')) {
            return UsageError{"unknown option '" + std::string(argument) + "' for modules"};
        } else if (listing.name) {
            return UsageError{"modules takes one module name"};
        } else {
            listing.name = std::string(argument);
        }
    }
    return listing;
}

// Reads `repl [--sandbox[=strict]] [--timeout SECONDS] [--extension PATH]`.
CommandLine parse_repl(std::span<char const* const> arguments) {
    ReplRun repl;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string_view argument = arguments[i];
        if (argument == "-h" || argument == "--help") return HelpRequest{};
        if (auto sandbox = take_sandbox_option(argument, repl)) {
            if (*sandbox) return **sandbox;
            continue;
        }
        std::string_view name = argument.substr(0, argument.find('='));
        if (name != "--timeout" && name != "--extension")
            return UsageError{"unexpected argument '" + std::string(argument) + "' for repl"};
        std::string_view value;
        if (name.size() < argument.size()) {
            value = argument.substr(name.size() + 1);
        } else if (++i < arguments.size()) {
            value = arguments[i];
        } else {
            return UsageError{"option " + std::string(name) + " needs a value (" +
                              (name == "--timeout" ? "SECONDS" : "PATH") + ")"};
        }
        if (name == "--timeout") {
            if (auto error = set_timeout(repl, name, value)) return *error;
        } else if (repl.extension) {
            return UsageError{"option --extension given twice"};
        } else {
            repl.extension = std::string(value);
        }
    }
    return repl;
}

} // namespace

CommandLine parse_command_line(std::span<char const* const> arguments, bool interactive) {
    if (arguments.empty()) {
        if (interactive) return ReplRun{};
        return UsageError{"no command given"};
    }
    std::string_view command = arguments.front();
    if (command == "-h" || command == "--help") return HelpRequest{};
    auto rest = arguments.subspan(1);
    if (command == "expr") return Parser(CodeKind::expression).parse(rest);
    if (command == "eval") return Parser(CodeKind::block).parse(rest);
    if (command == "run") return parse_script_run(rest);
    if (command == "modules") return parse_module_listing(rest);
    if (command == "repl") return parse_repl(rest);
    if (command.starts_with('-')) return UsageError{"unknown option '" + std::string(command) + "'"};
    return UsageError{"unknown command '" + std::string(command) + "' (expected expr, eval, run, repl or modules)"};
}

std::string_view usage_text() { return usage; }
std::string_view help_text() { return help; }

} // namespace brimora
