// Shared by the host runtime tests: readable failure output for host values.
#pragma once

#include <tesk/tesk.h>

#include <ostream>

namespace tesk {
// GoogleTest prints a String by its text and any other handle by its display text.
inline void PrintTo(String const& s, std::ostream* os) { *os << '"' << s.asChars() << '"'; }
inline void PrintTo(Any const& v, std::ostream* os) { *os << display(v).asChars(); }
} // namespace tesk
