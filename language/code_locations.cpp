// Code objects keep their positions in a compact location table: one entry
// per run of at most eight code units, holding a line delta from the entry
// before (the first from `co_firstlineno`) and the columns, in one of five
// forms. The table is decoded, each position moved, and encoded again the
// way CPython's assembler writes it, so the result is what compiling the
// caller's own text would have produced.
#include "language/code_locations.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace tesk::cpython {
namespace {

enum location_form : int {
    short_form_last = 9,  // 0-9: same line, column group in the form
    one_line_first = 10,  // 10-12: line delta 0, 1 or 2, one-byte columns
    one_line_last = 12,
    no_columns = 13,
    long_form = 14,
    no_location = 15,
};

struct location {
    int length = 1;  // in code units, 1 to 8
    bool known = false;
    int line = 0, endLine = 0, column = -1, endColumn = -1;
};

class table_reader {
public:
    explicit table_reader(std::string_view bytes) : bytes_(bytes) {}
    bool done() const { return at_ >= bytes_.size(); }
    bool failed() const { return failed_; }
    unsigned byte() {
        if (done()) {
            failed_ = true;
            return 0;
        }
        return static_cast<std::uint8_t>(bytes_[at_++]);
    }
    unsigned varint() {
        unsigned read = byte();
        unsigned value = read & 63;
        for (unsigned shift = 6; (read & 64) != 0 && !failed_ && shift < 32; shift += 6) {
            read = byte();
            value |= (read & 63) << shift;
        }
        return value;
    }
    int signed_varint() {
        unsigned const value = varint();
        return (value & 1) != 0 ? -static_cast<int>(value >> 1) : static_cast<int>(value >> 1);
    }

private:
    std::string_view bytes_;
    std::size_t at_ = 0;
    bool failed_ = false;
};

bool decode(std::string_view table, int firstLine, std::vector<location>& out) {
    table_reader reader(table);
    int line = firstLine;
    while (!reader.done()) {
        unsigned const first = reader.byte();
        if ((first & 0x80) == 0) return false;
        location entry;
        entry.length = static_cast<int>(first & 7) + 1;
        int const form = static_cast<int>((first >> 3) & 15);
        if (form != no_location) {
            entry.known = true;
            if (form == long_form) {
                line += reader.signed_varint();
                entry.line = line;
                entry.endLine = line + static_cast<int>(reader.varint());
                entry.column = static_cast<int>(reader.varint()) - 1;
                entry.endColumn = static_cast<int>(reader.varint()) - 1;
            } else if (form == no_columns) {
                line += reader.signed_varint();
                entry.line = entry.endLine = line;
            } else if (form >= one_line_first) {
                line += form - one_line_first;
                entry.line = entry.endLine = line;
                entry.column = static_cast<int>(reader.byte());
                entry.endColumn = static_cast<int>(reader.byte());
            } else {
                unsigned const second = reader.byte();
                entry.line = entry.endLine = line;
                entry.column = form << 3 | static_cast<int>(second >> 4);
                entry.endColumn = entry.column + static_cast<int>(second & 15);
            }
        }
        out.push_back(entry);
    }
    return !reader.failed();
}

class table_writer {
public:
    explicit table_writer(int firstLine) : line_(firstLine) {}

    void write(location const& entry) {
        if (!entry.known) {
            first_byte(no_location, entry.length);
            return;
        }
        int const delta = entry.line - line_;
        if (entry.column < 0 || entry.endColumn < 0) {
            if (entry.endLine == entry.line || entry.endLine == -1) {
                first_byte(no_columns, entry.length);
                signed_varint(delta);
                line_ = entry.line;
                return;
            }
        } else if (entry.endLine == entry.line) {
            if (delta == 0 && entry.column < 80 && entry.endColumn >= entry.column &&
                entry.endColumn - entry.column < 16) {
                first_byte(entry.column >> 3, entry.length);
                byte(static_cast<unsigned>((entry.column & 7) << 4 | (entry.endColumn - entry.column)));
                return;
            }
            if (delta >= 0 && delta < 3 && entry.column < 128 && entry.endColumn < 128) {
                first_byte(one_line_first + delta, entry.length);
                byte(static_cast<unsigned>(entry.column));
                byte(static_cast<unsigned>(entry.endColumn));
                line_ = entry.line;
                return;
            }
        }
        first_byte(long_form, entry.length);
        signed_varint(delta);
        varint(static_cast<unsigned>(entry.endLine - entry.line));
        varint(static_cast<unsigned>(entry.column + 1));
        varint(static_cast<unsigned>(entry.endColumn + 1));
        line_ = entry.line;
    }

    std::string const& bytes() const { return bytes_; }

private:
    void byte(unsigned value) { bytes_.push_back(static_cast<char>(value)); }
    void first_byte(int form, int length) { byte(0x80u | static_cast<unsigned>(form) << 3 | static_cast<unsigned>(length - 1)); }
    void varint(unsigned value) {
        for (; value >= 64; value >>= 6) byte(64 | (value & 63));
        byte(value);
    }
    void signed_varint(int value) {
        varint(value < 0 ? (static_cast<unsigned>(-value) << 1) | 1 : static_cast<unsigned>(value) << 1);
    }

    int line_;
    std::string bytes_;
};

int moved_line(int line, text_offsets offsets) { return line <= offsets.headerLines ? 1 : line - offsets.headerLines; }

// Columns of header lines stay; a column of an indented line moves left.
int moved_column(int column, int line, text_offsets offsets) {
    if (column < 0 || line <= offsets.headerLines) return column;
    return std::max(column - offsets.indent, 0);
}

location moved(location entry, text_offsets offsets) {
    if (!entry.known) return entry;
    entry.column = moved_column(entry.column, entry.line, offsets);
    entry.endColumn = moved_column(entry.endColumn, entry.endLine, offsets);
    entry.line = moved_line(entry.line, offsets);
    entry.endLine = moved_line(entry.endLine, offsets);
    return entry;
}

// The constants with every nested code object relocated; the same tuple
// when there is none.
PyObjectPtr relocated_constants(PyCodeObject* code, text_offsets offsets) {
    PyObjectPtr constants = PyObjectPtr::borrow(code->co_consts);
    Py_ssize_t const count = PyTuple_GET_SIZE(constants.get());
    bool nested = false;
    for (Py_ssize_t i = 0; i < count && !nested; ++i) nested = PyCode_Check(PyTuple_GET_ITEM(constants.get(), i));
    if (!nested) return constants;
    // A new tuple: the code's own constants are shared and must not change.
    PyObjectPtr copy = PyObjectPtr::steal(PyTuple_New(count));
    if (!copy) return {};
    for (Py_ssize_t i = 0; i < count; ++i) {
        PyObject* item = PyTuple_GET_ITEM(constants.get(), i);
        PyObjectPtr kept = PyCode_Check(item) ? relocate_code(item, offsets) : PyObjectPtr::borrow(item);
        if (!kept) return {};
        PyTuple_SET_ITEM(copy.get(), i, kept.release());
    }
    return copy;
}

// The same code with other constants, first line and location table. Made
// through the C constructor rather than code.replace(), which would raise
// the audit event of a code object made by Python code.
PyObjectPtr with_locations(PyCodeObject* code, PyObject* constants, int firstLine, PyObject* table) {
    PyObjectPtr bytecode = PyObjectPtr::steal(PyCode_GetCode(code));
    PyObjectPtr variables = PyObjectPtr::steal(PyCode_GetVarnames(code));
    PyObjectPtr freeVariables = PyObjectPtr::steal(PyCode_GetFreevars(code));
    PyObjectPtr cellVariables = PyObjectPtr::steal(PyCode_GetCellvars(code));
    if (!bytecode || !variables || !freeVariables || !cellVariables) return {};
    return PyObjectPtr::steal(reinterpret_cast<PyObject*>(PyUnstable_Code_NewWithPosOnlyArgs(
        code->co_argcount, code->co_posonlyargcount, code->co_kwonlyargcount, code->co_nlocals,
        code->co_stacksize, code->co_flags, bytecode.get(), constants, code->co_names, variables.get(),
        freeVariables.get(), cellVariables.get(), code->co_filename, code->co_name, code->co_qualname, firstLine,
        table, code->co_exceptiontable)));
}

} // namespace

PyObjectPtr relocate_code(PyObject* object, text_offsets offsets) {
    if (!PyCode_Check(object)) {
        PyErr_SetString(PyExc_TypeError, "a code object was expected");
        return {};
    }
    auto* code = reinterpret_cast<PyCodeObject*>(object);
    PyObject* table = code->co_linetable;
    std::vector<location> entries;
    if (!PyBytes_Check(table) ||
        !decode({PyBytes_AS_STRING(table), static_cast<std::size_t>(PyBytes_GET_SIZE(table))}, code->co_firstlineno,
                entries)) {
        PyErr_SetString(PyExc_SystemError, "unknown form in a code object's location table");
        return {};
    }
    int const firstLine = moved_line(code->co_firstlineno, offsets);
    table_writer writer(firstLine);
    for (location const& entry : entries) writer.write(moved(entry, offsets));

    PyObjectPtr constants = relocated_constants(code, offsets);
    PyObjectPtr newTable = PyObjectPtr::steal(
        PyBytes_FromStringAndSize(writer.bytes().data(), static_cast<Py_ssize_t>(writer.bytes().size())));
    if (!constants || !newTable) return {};
    return with_locations(code, constants.get(), firstLine, newTable.get());
}

} // namespace tesk::cpython
