// A statement block as the text of the function that runs it.
#pragma once

#include <tesk/tesk.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tesk::cpython {

// The lines the function text puts before the block's first line, and the
// indentation (one tab, in bytes) it adds to every line of the block.
inline constexpr int function_header_lines(bool withGlobals) { return withGlobals ? 2 : 1; }
inline constexpr int function_body_indent = 1;

// "def tesk_outer():", a `global` line for the out-local names when there are
// any, and every line of `block` indented by one tab; nothing when indenting
// could change what the block means or how it is reported: string literals
// across lines (triple quotes, line breaks inside quotes), backslashes, CR,
// form feed or NUL bytes, future imports,
// class statements (their `__firstlineno__` is stored as a value), a first
// statement that is indented, no statement at all, or an out-local name that
// is not a plain ASCII identifier.
std::optional<std::string> block_function_text(std::string_view block, std::vector<String> const& globalNames);

} // namespace tesk::cpython
