#include "app/script_run.h"

#include "app/main_module_prelude.h"
#include "app/report.h"

#include <string>

namespace brimora {
namespace {

// Runs as a statement block with the locals tesk_script (the path, "-" for
// standard input) and tesk_arguments. The script itself runs with exec in
// the namespace of __main__, so the runner's own names never reach it, and
// its traceback starts below the runner's frame, as in python3.
constexpr std::string_view runner_body = R"(import os

namespace = fresh_main_namespace()
if tesk_script == "-":
    source, filename = sys.stdin.buffer.read(), "<stdin>"
    sys.path.insert(0, "")
else:
    try:
        with open(tesk_script, "rb") as script_file:
            source = script_file.read()
    except OSError as error:
        print(f"brimora: can't open file {os.path.abspath(tesk_script)!r}: [Errno {error.errno}] {error.strerror}",
              file=sys.stderr)
        return 2
    filename = tesk_script
    namespace["__file__"] = tesk_script
    sys.path.insert(0, os.path.dirname(os.path.realpath(tesk_script)))
sys.argv = [tesk_script, *tesk_arguments]

try:
    try:
        code = compile(source, filename, "exec")
    except SyntaxError as error:
        error.__traceback__ = None
        sys.excepthook(type(error), error, None)
        return 1
    exec(code, namespace)
except SystemExit as error:
    return exit_status(error.code)
except BaseException as error:
    # The traceback printer reads the exception's own traceback.
    error.__traceback__ = error.__traceback__.tb_next
    sys.excepthook(type(error), error, error.__traceback__)
    return 130 if isinstance(error, KeyboardInterrupt) else 1
finally:
    for stream in (sys.stdout, sys.stderr):
        try:
            stream.flush()
        except Exception:
            pass
return 0
)";

} // namespace

int run_script(Python const& python, ScriptRun const& run) {
    // A tuple: it reaches Python as a tuple of str.
    std::vector<tesk::Any> arguments;
    for (std::string const& argument : run.arguments) arguments.push_back(tesk::String(argument));
    tesk::HashMap locals;
    locals.set(tesk::String("tesk_script"), tesk::String(run.file));
    locals.set(tesk::String("tesk_arguments"), tesk::Tuple(std::move(arguments)));
    // The runner's own frame sits below the script's on the stack: like the
    // bottom frame of python3, its module is __main__.
    tesk::HashMap globals;
    globals.set(tesk::String("__name__"), tesk::String("__main__"));
    tesk::EvaluationScope scope(tesk::Any(), locals, globals, tesk::Any());
    static std::string const runner = std::string(main_module_prelude) + std::string(runner_body);
    tesk::Any status = python.evaluate(tesk::String(runner), scope).value();
    if (status.isError()) return report_error(status.error());
    if (auto code = tesk::Integer::cast(status)) return static_cast<int>(code.value().value());
    return 1;
}

} // namespace brimora
