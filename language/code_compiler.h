// Compiling the caller's code exactly as written.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tesk::cpython {

// Evaluated code is compiled under a file name of its own, so that Python's
// linecache shows its lines in tracebacks; syntax errors name the file
// "<string>", as Python's exec and eval do.
inline constexpr char const* syntax_error_file = "<string>";

// One compiled program: for a statement block the code of the function
// `tesk_outer` that holds it, for an expression the expression's code.
// Immutable once made; shared by every evaluation of the same code.
struct compiled_code {
    PyObjectPtr code;
    std::string file;    // the unique name its code objects carry
    PyObjectPtr fileName; // the same, as a Python string
    int lineCount = 0;   // lines of the caller's code, for clamping positions
    compiled_code() = default;
    compiled_code(compiled_code const&) = delete;
    compiled_code& operator=(compiled_code const&) = delete;
    // Takes the code's lines out of linecache again.
    ~compiled_code();
};

// Compile a statement block (with the out-local names that the function
// declares `global`) or an expression. Null with a Python exception set
// (a SyntaxError whose positions refer to the caller's own lines). The
// caller holds the interpreter lock.
std::shared_ptr<compiled_code const> compile_block(String const& code, std::vector<String> const& outLocalNames);
std::shared_ptr<compiled_code const> compile_expression(String const& code);

// How many blocks were compiled through the syntax tree since the process
// started; the others were compiled as the text of their function.
std::uint64_t syntax_tree_compilations();

} // namespace tesk::cpython
