// What the host program prints.
#pragma once

#include <brimora/embed.h>
#include <tesk/tesk.h>

namespace brimora {

// Prints "error: MESSAGE" (without surrounding blanks) on standard error,
// then "at line L, column C" (or "at line L") for an EvaluationError that has
// a position. Gives the exit status of a failure, 1.
int report_error(tesk::Error const& error);

// The exit status of a failed evaluation, as python3 -c gives it: an
// uncaught SystemExit exits with its code (none: 0; a number: that number;
// anything else is printed on standard error and gives 1) and an uncaught
// KeyboardInterrupt (Ctrl-C) with 130 after "interrupted"; any other error
// is reported by report_error.
int report_evaluation_error(tesk::Error const& error);

// Prints the result as Python source on standard output, then one line
// "NAME = value" per out-local of the scope, in the order given. Gives the
// exit status of a success, 0.
int report_result(Python const& python, tesk::Any const& result, tesk::EvaluationScope const& scope);

// Writes out what standard output still buffers; an Error naming the reason
// when the output could not be written (a full disk, a closed stream).
tesk::Any flush_output();

} // namespace brimora
