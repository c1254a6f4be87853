// Running the code of the command line with the Python language, through
// the embedding kit (brimora/embed.h).
#pragma once

#include "app/command_line.h"

#include <brimora/embed.h>
#include <tesk/tesk.h>

namespace brimora {

// The scope of an invocation: no self, and maps of its locals, globals and
// out-locals, each none when no such option was given.
tesk::EvaluationScope make_scope(Invocation const& invocation);

// The sandbox that the options ask for (--sandbox, --sandbox=strict).
Sandbox sandbox_of(EvaluationOptions const& options);

// Runs `code` as the invocation's kind (expression or block) with
// (code, scope) in the handle's sandbox. The result or an Error.
tesk::Any evaluate(Python const& python, Invocation const& invocation, tesk::String const& code,
                   tesk::EvaluationScope const& scope);

} // namespace brimora
