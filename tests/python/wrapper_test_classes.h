// Host classes that exercise the wrapper protocols, declared in the host
// module "wrappertest" (so that each gets a Python type of its own), plus
// two classes declared in no module, which share the variant types.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython::testing {

// Gauge: fields "label" (String) and "count" (Integer); a read-only
// property "size" (42) and a writable property "level" (the count, set from
// an Integer); methods "add(a, b)" (a * 10 + b), "fail()" (an Error) and the
// static "make(label)" (a new Gauge); meta-methods that return which of them
// ran ("__add__:" plus the operand's text, ...), "__iadd__" returning 7 and
// "__isub__" returning none.
Class_Generic gauge_class();
Any make_gauge(char const* label, std::int64_t count);

// Countdown(n): an iterator (not an iterable) giving n, n-1, ..., 1 and then
// a host StopIteration; Countdown(-1) fails with an Error on the first next().
Class_Generic countdown_class();
Any make_countdown(std::int64_t from);
// Launch(n): an iterable whose iter() gives Countdown(n).
Any make_launch(std::int64_t from);

// Declared in no module: a callable class (its instances sum their
// arguments) and a plain one.
Any make_free_callable();
Any make_free_plain();

} // namespace tesk::cpython::testing
