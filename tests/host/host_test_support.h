// Shared by the host runtime tests: readable failure output for host values.
#pragma once

#include <tesk/tesk.h>

#include <ostream>
#include <vector>

namespace tesk {
// GoogleTest prints a String by its text and any other handle by its display text.
inline void PrintTo(String const& s, std::ostream* os) { *os << '"' << s.asChars() << '"'; }
inline void PrintTo(Any const& v, std::ostream* os) { *os << display(v).asChars(); }
} // namespace tesk

// A bare class record for tests. Class records live for the process; the
// list keeps them reachable so that leak checkers do not report them.
inline tesk::internal::object_value_class* test_class_record(char const* name, std::uint64_t traits = 0) {
    static auto* const records = new std::vector<tesk::internal::object_value_class*>();
    records->push_back(new tesk::internal::object_value_class(tesk::String(name), traits));
    return records->back();
}
