// brimora: the host program. Loads the Python extension, starts the host the
// way every Tesk host does, and runs the code given on the command line.
#include "app/command_line.h"
#include "app/evaluation.h"
#include "app/interruption.h"
#include "app/module_listing.h"
#include "app/platform.h"
#include "app/repl.h"
#include "app/report.h"
#include "app/script_run.h"
#include "app/tesk_module.h"

#include <tesk/tesk.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <span>

#include <unistd.h>

namespace brimora {
namespace {

// The code to run, as bytes: invalid UTF-8 reaches Python, which reports it.
tesk::Any code_of(Invocation const& invocation) {
    if (invocation.codeFile) return read_all_bytes(*invocation.codeFile);
    return tesk::String::fromRawDataUnsafe(invocation.code->data(), invocation.code->size());
}

// Ctrl-C stops the work that this thread does from now on (the export of
// every module, which is no evaluation).
void stop_on_interrupt(Python const& python) {
    auto thread = python.evaluation_thread();
    on_interrupt([python, thread] { return thread && python.interrupt(*thread); });
}

// After the code: what python3 does before it exits, then the output made
// sure of. The first failure decides the exit status.
int finish(Python const& python, int status) {
    // The result goes out first, as python3 prints before its exit handlers run.
    auto flushed = [&status] {
        if (tesk::Any written = flush_output(); written.isError() && status == 0)
            status = report_error(written.error());
    };
    flushed();
    if (Outcome finished = python.finish(); !finished && status == 0) status = report_error(finished.error());
    flushed();
    return status;
}

// Starts the host the way every Tesk host does (the extension loaded, the
// module tesk defined, the init handlers run) and finds the Python language.
Python start_host(std::optional<std::string> const& extensionPath) {
    // The interpreter is never finalised, so nothing would flush Python's own
    // buffers of standard output at exit: have it write through instead.
    setenv("PYTHONUNBUFFERED", "1", 0);
    return Python::start(extensionPath.value_or(default_extension_path()), define_tesk_module);
}

// A started host made ready to evaluate: Python gets SIGINT as python3 has
// it (KeyboardInterrupt in the code, blocking calls cut short), and a time
// limit cuts a blocking call short. The Error when either failed.
Outcome ready_to_evaluate(Python const& python) {
    if (!python) return Outcome(python.error());
    return python.handle_signals();
}


int run(Invocation const& invocation) {
    tesk::Any code = code_of(invocation);
    if (code.isError()) return report_error(code.error());
    Python python = start_host(invocation.extension);
    if (Outcome ready = ready_to_evaluate(python); !ready) return report_error(ready.error());
    if (Outcome chosen = python.set_sandbox(sandbox_of(invocation)); !chosen) return report_error(chosen.error());
    if (invocation.timeout) {
        if (Outcome limited = python.set_time_limit(*invocation.timeout); !limited)
            return report_error(limited.error());
    }
    tesk::EvaluationScope scope = make_scope(invocation);
    tesk::Any result = evaluate(python, invocation, tesk::String::unsafe(code), scope);
    if (invocation.timeout) (void)python.set_time_limit(0);
    if (result.isError()) return finish(python, report_evaluation_error(result.error()));
    return finish(python, report_result(python, result, scope));
}

int run(ScriptRun const& script) {
    Python python = start_host(script.extension);
    if (Outcome ready = ready_to_evaluate(python); !ready) return report_error(ready.error());
    return finish(python, run_script(python, script));
}

// Ctrl-C cancels an entry, not the session.
int run(ReplRun const& repl) {
    Python python = start_host(repl.extension);
    if (Outcome ready = ready_to_evaluate(python); !ready) return report_error(ready.error());
    return finish(python, run_repl(python, repl));
}

int run(ModuleListing const& listing) {
    // The export takes any exception of an import as a module that cannot be
    // imported: Ctrl-C is held by brimora instead of raised in Python.
    hold_interrupt_signal();
    Python python = start_host(listing.extension);
    if (!python) return report_error(python.error());
    stop_on_interrupt(python);
    int status = list_modules(python, listing);
    if (interrupt_requested()) return report_interrupted();
    return finish(python, status);
}

int usage_error(UsageError const& error) {
    std::cerr << "brimora: " << error.message << '\n' << usage_text();
    return 2;
}

int help() {
    std::cout << help_text();
    return 0;
}

} // namespace
} // namespace brimora

int main(int argc, char** argv) {
    using namespace brimora;
    // As python3 does: a write to a pipe whose reader has gone raises
    // BrokenPipeError in the code instead of ending the whole host. Python
    // gives children started by subprocess the default action back.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        CommandLine commandLine =
            parse_command_line(std::span<char const* const>(argv + 1, argc - 1), isatty(STDIN_FILENO) == 1);
        if (auto* invocation = std::get_if<Invocation>(&commandLine)) return run(*invocation);
        if (auto* script = std::get_if<ScriptRun>(&commandLine)) return run(*script);
        if (auto* repl = std::get_if<ReplRun>(&commandLine)) return run(*repl);
        if (auto* listing = std::get_if<ModuleListing>(&commandLine)) return run(*listing);
        if (auto* error = std::get_if<UsageError>(&commandLine)) return usage_error(*error);
        return help();
    } catch (std::exception const& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
}
