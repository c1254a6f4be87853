// libFuzzer target: arbitrary bytes evaluated as Python code (statement
// blocks and expressions), taken as out-local names, and turned into nested
// host values that cross to Python and back. After every input no Python
// exception may be left pending, and every result must be a value or an
// Error; a crash, a sanitizer report or a failed check is a finding.
//
// Input layout: the first byte chooses the mode (its value modulo 5), the
// rest is the payload.
//   0  the payload is a statement block
//   1  the payload is an expression
//   2  names, NUL, block: the names (separated by '\n') are out-locals
//   3  the payload describes a nested host value (see build_value)
//   4  the payload is a block compiled both ways (as its function's text and
//      through the syntax tree): both must compile or fail alike, and give
//      the same instructions at the same positions
#include "extension/exports.h"
#include "from_python/from_python.h"
#include "language/code_compiler.h"
#include "language/evaluation_control.h"
#include "python/interpreter_start.h"
#include "python/python_ref.h"
#include "to_python/to_python.h"

#include <tesk/tesk.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

using namespace tesk;
using namespace tesk::cpython;

namespace {

// Longer code is refused: every input must stay fast.
constexpr std::size_t max_code_size = 4096;
// Host values built from the bytes nest at most this deep...
constexpr int max_value_depth = 8;
// ...and have at most this many parts in all.
constexpr int max_value_parts = 256;

[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "fuzz_evaluation: %s\n", what);
    std::abort();
}

void check_no_pending_exception(char const* where) {
    gil_guard gil;
    if (PyErr_Occurred()) {
        PyErr_Print();
        fail(where);
    }
}

I_Callable_Generic language_method(char const* name) {
    auto module = find_module("tesk.cpython");
    if (!module) fail("no module tesk.cpython");
    for (auto const& [member, cls] : module.value().classes()) {
        if (member != "CPythonLanguage") continue;
        auto method = method_of(cls, String(name));
        if (!method) method = cls.definedMethod(String(name));
        if (!method) break;
        return method.value();
    }
    fail("CPythonLanguage lacks an evaluation method");
}

// Calls evaluate or evaluateExpression as a host does; the result must be a
// value or an Error, and no exception may stay pending.
Any call_language(I_Callable_Generic const& method, std::initializer_list<Any> args) {
    Any result = internal::result_unwrap_lazy(method(args));
    check_no_pending_exception("an evaluation left a Python exception pending");
    if (result.isError()) (void)result.error().message().toUtf8();
    else (void)display(result); // every value the evaluation gives can be shown
    return result;
}

struct language_entries {
    I_Callable_Generic evaluate = language_method("evaluate");
    I_Callable_Generic evaluateExpression = language_method("evaluateExpression");
};
language_entries const* entries = nullptr;

String text_of(std::string_view bytes) { return String::fromUtf8(bytes); }

void fuzz_code(std::string_view code, bool expression) {
    if (code.size() > max_code_size) return;
    HashMap locals;
    (void)locals.set(String("x"), Integer(1));
    EvaluationScope scope(Any(), locals, Any(), Any());
    call_language(expression ? entries->evaluateExpression : entries->evaluate, {text_of(code), scope});
}

void fuzz_out_locals(std::string_view payload) {
    std::size_t const separator = payload.find('\0');
    std::string_view names = payload.substr(0, separator);
    std::string_view code = separator == std::string_view::npos ? std::string_view() : payload.substr(separator + 1);
    if (code.size() > max_code_size || names.size() > max_code_size) return;
    HashMap outLocals;
    std::int64_t n = 0;
    while (!names.empty()) {
        std::size_t const end = names.find('\n');
        (void)outLocals.set(text_of(names.substr(0, end)), Integer(n++));
        names = end == std::string_view::npos ? std::string_view() : names.substr(end + 1);
    }
    EvaluationScope scope(Any(), Any(), Any(), outLocals);
    call_language(entries->evaluate, {text_of(code), scope});
    // The out-locals stay a map of values after the write-back.
    for (auto const& [name, value] : outLocals.items()) {
        if (!String::test(name)) fail("an out-local name is no longer a String");
        (void)display(value);
    }
}

// Reads a nested host value from the bytes: one byte chooses the kind, the
// following bytes give its contents.
class value_reader {
public:
    explicit value_reader(std::string_view bytes) : bytes_(bytes) {}

    Any read(int depth) {
        if (++parts_ > max_value_parts || at_end()) return Any();
        std::uint8_t const kind = next();
        bool const leaf = depth >= max_value_depth;
        switch (leaf ? kind % 4 : kind % 7) {
        case 0: return Any();
        case 1: {
            std::int64_t v = 0;
            for (int i = 0; i < 8 && !at_end(); ++i) v = (v << 8) | next();
            if (kind & 0x80) return Integer::fromUnsigned(static_cast<std::uint64_t>(v));
            return Integer(v);
        }
        case 2: {
            std::uint64_t bits = 0;
            for (int i = 0; i < 8 && !at_end(); ++i) bits = (bits << 8) | next();
            double d;
            std::memcpy(&d, &bits, sizeof d);
            return Float(d);
        }
        case 3: {
            std::size_t const n = at_end() ? 0 : next() % 16;
            std::string_view text = bytes_.substr(0, n);
            bytes_.remove_prefix(text.size());
            return text_of(text);
        }
        case 4: {
            List list;
            for (std::size_t n = count(); n > 0; --n) list.append(read(depth + 1));
            return list;
        }
        case 5: {
            std::vector<Any> items;
            for (std::size_t n = count(); n > 0; --n) items.push_back(read(depth + 1));
            return Tuple(std::move(items));
        }
        default: {
            HashMap map;
            for (std::size_t n = count(); n > 0; --n) {
                Any key = read(depth + 1);
                Any value = read(depth + 1);
                (void)map.set(key, value); // a mutable key is refused: an Error, no entry
            }
            return map;
        }
        }
    }

private:
    bool at_end() const { return bytes_.empty(); }
    std::uint8_t next() {
        std::uint8_t const b = static_cast<std::uint8_t>(bytes_.front());
        bytes_.remove_prefix(1);
        return b;
    }
    std::size_t count() { return at_end() ? 0 : next() % 8; }

    std::string_view bytes_;
    int parts_ = 0;
};

// Whether two objects have the same repr(); the interpreter lock is held.
bool same_text(PyObject* a, PyObject* b) {
    PyObjectPtr textA = PyObjectPtr::steal(PyObject_Repr(a));
    PyObjectPtr textB = PyObjectPtr::steal(PyObject_Repr(b));
    if (!textA || !textB) {
        PyErr_Clear();
        return false;
    }
    int const equal = PyObject_RichCompareBool(textA.get(), textB.get(), Py_EQ);
    if (equal < 0) PyErr_Clear();
    return equal == 1;
}

void fuzz_round_trip(std::string_view payload) {
    Any value = value_reader(payload).read(0);
    gil_guard gil;
    PyObjectPtr converted = to_python_ref(value);
    if (!converted) {
        // No Python form: an exception says why.
        if (!PyErr_Occurred()) fail("to_python failed without an exception");
        PyErr_Clear();
        return;
    }
    if (PyErr_Occurred()) fail("to_python succeeded with an exception pending");
    Any back = from_python(converted.get());
    if (PyErr_Occurred()) fail("from_python left a Python exception pending");
    if (back.isError()) return;
    (void)display(back);
    // Scalars come back equal; containers come back as proxies of the very
    // Python objects, which convert back to themselves.
    if (Integer::test(value) || String::test(value) || value.isNone()) {
        if (!equals(value, back)) fail("a scalar changed on its way through Python");
    }
    PyObjectPtr again = to_python_ref(back);
    if (!again) {
        PyErr_Clear();
        return;
    }
    int const same = PyObject_RichCompareBool(converted.get(), again.get(), Py_EQ);
    if (same < 0) PyErr_Clear();
    else if (same == 0 && !same_text(converted.get(), again.get())) // NaN is unequal to itself
        fail("a value changed on its second way into Python");
    if (PyErr_Occurred()) fail("a comparison left a Python exception pending");
}

// What a compiled block is made of, as text: per code object (nested ones
// too) its first line and its instructions with their arguments (nested
// code by its digest, not its address) and positions. NOPs are
// left out: a body on the `def` line drops one that a body below it keeps.
constexpr char const* code_digest_script = R"(
import dis
def digest(code):
    steps = [(i.opname, '' if hasattr(i.argval, 'co_lines') else i.argrepr, tuple(i.positions))
             for i in dis.get_instructions(code) if i.opname != 'NOP']
    nested = [digest(c) for c in code.co_consts if hasattr(c, 'co_lines')]
    return repr((code.co_firstlineno, steps, nested))
)";

PyObject* code_digest = nullptr;

PyObjectPtr digest_of(compiled_code const& compiled) {
    return PyObjectPtr::steal(PyObject_CallOneArg(code_digest, compiled.code.get()));
}

void fuzz_both_compilations(std::string_view code) {
    if (code.size() > max_code_size) return;
    String const text = text_of(code);
    if (!text.isValidUtf8()) return;
    // A comment with a backslash sends a block through the syntax tree and
    // changes nothing else.
    String const marked = text_of(std::string(code) + "\n# \\");
    std::uint64_t const before = syntax_tree_compilations();
    gil_guard gil;
    auto const first = compile_block(text, {});
    if (!first) PyErr_Clear();
    // Only blocks that compiled as their function's text have a second way.
    if (!first || syntax_tree_compilations() != before) return;
    auto const second = compile_block(marked, {});
    if (syntax_tree_compilations() == before) fail("the marked block did not go through the syntax tree");
    if (!second) {
        PyErr_Print();
        fail("a block that compiles as text fails through the syntax tree");
    }
    PyObjectPtr a = digest_of(*first);
    PyObjectPtr b = digest_of(*second);
    if (!a || !b) fail("a compiled block could not be read");
    if (PyObject_RichCompareBool(a.get(), b.get(), Py_EQ) != 1) {
        std::fprintf(stderr, "as text:  %s\nthrough the tree: %s\n", PyUnicode_AsUTF8(a.get()), PyUnicode_AsUTF8(b.get()));
        fail("the two compilations of a block differ");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // What a host does after loading the extension.
    brimora_extension_init();
    brimora_extension_bind_api(nullptr);
    run_init_handlers();
    Any started = ensure_interpreter();
    if (started.isError()) fail("Python could not start");
    // Code that runs long is stopped: every input stays fast.
    set_evaluation_time_limit(1.0);
    static language_entries const found;
    entries = &found;
    gil_guard gil;
    PyObjectPtr globals = PyObjectPtr::steal(PyDict_New());
    PyObjectPtr ran = globals ? PyObjectPtr::steal(PyRun_String(code_digest_script, Py_file_input, globals.get(),
                                                                 globals.get()))
                              : PyObjectPtr();
    code_digest = ran ? PyDict_GetItemString(globals.get(), "digest") : nullptr;
    if (code_digest == nullptr) fail("the code digest could not be made");
    Py_INCREF(code_digest); // kept for the process
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    if (size == 0) return 0;
    std::string_view payload(reinterpret_cast<char const*>(data) + 1, size - 1);
    switch (data[0] % 5) {
    case 0: fuzz_code(payload, false); break;
    case 1: fuzz_code(payload, true); break;
    case 2: fuzz_out_locals(payload); break;
    case 3: fuzz_round_trip(payload); break;
    default: fuzz_both_compilations(payload); break;
    }
    check_no_pending_exception("a Python exception was left pending");
    return 0;
}
