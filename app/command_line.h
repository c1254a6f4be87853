// The command line of the host program.
#pragma once

#include <tesk/tesk.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brimora {

// What the code is: one expression, or a statement block (a function body
// whose `return` gives the result).
enum class CodeKind { expression, block };

// One NAME=VALUE option, its value already read (see parse_value).
struct NamedValue {
    tesk::String name;
    tesk::Any value;
};

// How code runs: what expr, eval and repl share.
struct EvaluationOptions {
    bool sandbox = false;
    bool strictSandbox = false;           // --sandbox=strict (implies sandbox)
    std::optional<std::string> extension; // the extension library to load instead of the default
    std::optional<double> timeout;        // seconds the code (each entry of repl) may run
};

// An evaluation to run.
struct Invocation : EvaluationOptions {
    CodeKind kind = CodeKind::expression;
    std::optional<std::string> code;      // given as an argument
    std::optional<std::string> codeFile;  // given with -f; "-" is standard input
    std::vector<NamedValue> locals;       // in the order given
    std::vector<NamedValue> globals;
    std::vector<NamedValue> outLocals;    // blocks only
};

// The interactive prompt: `brimora repl [options]`, or brimora without
// arguments on a terminal.
struct ReplRun : EvaluationOptions {};

// A Python script run the way python3 runs it: `brimora run FILE [ARGS...]`.
struct ScriptRun {
    std::string file;                     // "-" is standard input
    std::vector<std::string> arguments;   // what follows FILE: sys.argv[1:]
    std::optional<std::string> extension; // the extension library to load instead of the default
};

// The host modules: `brimora modules [--all] [--extension PATH] [NAME]`.
struct ModuleListing {
    bool all = false;                     // export every Python module first
    std::optional<std::string> name;      // one module's members instead of the list
    std::optional<std::string> extension; // the extension library to load instead of the default
};

struct HelpRequest {};

struct UsageError {
    std::string message;
};

using CommandLine = std::variant<Invocation, ScriptRun, ReplRun, ModuleListing, HelpRequest, UsageError>;

// Reads the arguments after the program name. Without any, the prompt when
// standard input is a terminal (`interactive`), else a usage error.
CommandLine parse_command_line(std::span<char const* const> arguments, bool interactive);

// The short reminder printed after a usage error, and the full help.
std::string_view usage_text();
std::string_view help_text();

} // namespace brimora
