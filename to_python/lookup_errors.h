// The exceptions of a failed lookup in a host container: an index out of
// range and a missing key. Each is Python's own lookup error, so that
// `except IndexError`, `reversed()` and the sequence-iteration fallback work,
// and a RuntimeError too, as every other host failure is.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// tesk.IndexError (IndexError, RuntimeError) raised with `message`; null.
std::nullptr_t raise_index_error(String const& message);
// tesk.KeyError (KeyError, RuntimeError) raised with the key's display text; null.
std::nullptr_t raise_key_error(Any const& key);

} // namespace tesk::cpython
