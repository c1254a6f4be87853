// The Python language of a host, reached through the host's own module
// registry and method dispatch, as any host code would.
#pragma once

#include "brimora/export.h"
#include "brimora/extension.h"
#include "brimora/outcome.h"
#include "brimora/scope.h"

#include <tesk/tesk.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>

namespace brimora {

// How much the evaluations of a Python handle may do (see docs/sandbox.md):
// off, standard (no file writes, processes, network or native libraries),
// strict (also no threads, tracing, frames, code objects, signals ...).
enum class Sandbox { off, standard, strict };

// A handle to the language class CPythonLanguage of the host module
// tesk.cpython: cheap to copy, usable from any thread. A handle that could
// not be had (the extension failed to load, or offers no language) holds
// the Error instead, and every call answers with that Error.
class BRIMORA_EMBED_API Python {
public:
    // Everything a host does to get Python, in one call: loads the
    // extension (load_extension), calls `defineHostModules` (the host's own
    // modules, which the init handlers then see), runs the host's init
    // handlers (tesk::run_init_handlers) and finds the language.
    static Python start(std::string const& extensionPath = default_extension_path(),
                        std::function<void()> const& defineHostModules = {});
    // The language of an extension already loaded, its init handlers run.
    static Python find();

    bool ok() const { return !language_.isError(); }
    explicit operator bool() const { return ok(); }
    // Why the handle holds no language; holds nothing when it does.
    tesk::Error error() const;
    // The language class, for the host's own dispatch; none when !ok().
    tesk::Any const& language() const { return language_; }

    // Runs a statement block as the body of a function: `return` gives the
    // value, names it assigns are its own but for the scope's out-locals.
    // A Scope converts to the scope taken here.
    Outcome evaluate(tesk::String const& code, tesk::EvaluationScope const& scope) const;
    Outcome evaluate(tesk::String const& code) const;
    // Evaluates one expression.
    Outcome evaluate_expression(tesk::String const& code, tesk::EvaluationScope const& scope) const;
    Outcome evaluate_expression(tesk::String const& code) const;

    // The sandbox of this handle's evaluations from now on (off at first).
    // The level of standard and strict belongs to the extension and holds
    // for every sandboxed evaluation in the process; `off` leaves it.
    // None, or an Error when the extension cannot set the level.
    Outcome set_sandbox(Sandbox sandbox);
    Sandbox sandbox() const { return sandbox_; }

    // Limits the evaluations that the calling thread starts from now on to
    // `seconds`; 0 for none. Past it an evaluation ends with the Error
    // "time limit of N s exceeded", stopped as interrupt() stops it.
    Outcome set_time_limit(double seconds) const;
    // The number that names the calling thread for interrupt.
    std::optional<std::int64_t> evaluation_thread() const;
    // Ends the evaluation that thread runs with the Error "evaluation
    // interrupted", at Python's next check; raised again until the
    // evaluation has ended, whatever the code catches. A blocking call is
    // cut short on the thread that started the interpreter once
    // handle_signals() was called, elsewhere it finishes first; a long call
    // inside C code finishes first. Any thread may call it, and it returns
    // at once (it takes no lock the code can hold); false when that thread
    // runs none.
    bool interrupt(std::int64_t thread) const;
    // Hands signals to Python, as python3 has them; the library installs no
    // signal handler until the host calls this. SIGINT gets python3's
    // handler: Ctrl-C raises KeyboardInterrupt in the code that runs on the
    // thread that started the interpreter (the code may catch it), and cuts
    // a blocking call there (sleep, input(), a lock, a read) short. A stop
    // (interrupt, time limit) of an evaluation on that thread then also cuts
    // its blocking call short, through a signal of its own (SIGRTMAX - 2).
    // Call it on the thread that started the interpreter (the one that ran
    // start()); an Error elsewhere. Calling it again changes nothing.
    Outcome handle_signals() const;
    // What python3 does before it exits: waits for non-daemon Python
    // threads, runs the atexit handlers, flushes sys.stdout and sys.stderr.
    Outcome finish() const;

    // A value as Python source text (None, 42, 'text', [1, 2] ...); the
    // host's display text for a value without a source form.
    tesk::String to_code(tesk::Any const& value) const;
    // Calls a function of the module tesk.cpython by name.
    Outcome call(tesk::String const& function, std::initializer_list<tesk::Any> arguments) const;

private:
    explicit Python(tesk::Any language) : language_(std::move(language)) {}
    Outcome call_language(tesk::String const& method, std::initializer_list<tesk::Any> arguments) const;

    tesk::Any language_; // the class, or the Error why there is none
    Sandbox sandbox_ = Sandbox::off;
};

} // namespace brimora
