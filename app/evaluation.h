// Running code with the Python language that the extension registers, the
// way any host code would: through the host's module registry and method
// dispatch.
#pragma once

#include "app/command_line.h"

#include <tesk/tesk.h>

namespace brimora {

// The host class of the Python language (CPythonLanguage in the module
// tesk.cpython), or an Error saying that Python evaluation is not available.
tesk::Union<tesk::Class_Generic, tesk::Error> find_python_language();

// The scope of an invocation: no self, and maps of its locals, globals and
// out-locals, each none when no such option was given.
tesk::EvaluationScope make_scope(Invocation const& invocation);

// Runs `code` with the language's evaluate, evaluateExpression or their
// sandboxed forms, called with (code, scope). The result or an Error.
tesk::Any evaluate(tesk::Class_Generic const& language, Invocation const& invocation, tesk::String const& code,
                   tesk::EvaluationScope const& scope);

// Runs a statement block with the language's evaluate. The result or an Error.
tesk::Any evaluate_block(tesk::Class_Generic const& language, tesk::String const& code,
                         tesk::EvaluationScope const& scope);

// Calls a function of the language's module (tesk.cpython) by name; its
// result, or an Error when the extension has no such function.
tesk::Any call_language_function(tesk::String const& name, std::initializer_list<tesk::Any> arguments);

// Lets the evaluations started on this thread run for `seconds` at most.
tesk::Any set_time_limit(double seconds);
// The number by which stop_evaluation names this thread.
tesk::Any evaluation_thread();
// Stops the evaluation that the thread `thread` runs; false when none runs.
bool stop_evaluation(tesk::Any const& thread);
// What python3 does before it exits: waits for non-daemon threads, runs the
// atexit handlers, flushes Python's standard streams.
tesk::Any finish_python_work();

// A value as Python source text, as the language renders it; the host's
// display text for a value that has no source form.
tesk::String to_code(tesk::Class_Generic const& language, tesk::Any const& value);

} // namespace brimora
