// Host values inside Python: wrapper identity, lifetime, calls, text, hash
// and comparison.
#include "wrapper_test_support.h"

#include "from_python/from_python.h"
#include "to_python/to_python.h"
#include "to_python/wrapper.h"

namespace tesk::cpython::testing {
namespace {

std::int64_t combine(std::int64_t a, std::int64_t b) { return a * 10 + b; }
Any echo(Any const& value) { return value; }
Any fail(Any const&) { return Error(String("deliberate failure")); }

// A host callable with named parameters, bound in the test namespace.
I_Callable_Generic named_callable(I_Callable_Generic callable, char const* name, char const* parameters) {
    internal::decorate(callable, String(name), String(parameters), String(), {});
    return callable;
}

class Wrapper : public WrapperTest {
protected:
    // Whether it raises RuntimeError or a type derived from it (host errors
    // of derived classes raise types of their own).
    bool raises_runtime_error(char const* expression) {
        PyObjectPtr result = PyObjectPtr::steal(PyRun_String(expression, Py_eval_input, scope(), scope()));
        bool matches = !result && PyErr_ExceptionMatches(PyExc_RuntimeError);
        std::string text = take_exception_text();
        EXPECT_TRUE(matches) << expression << " raised " << text;
        return matches;
    }
};

TEST_F(Wrapper, CallsPassPositionalOrNamedArguments) {
    bind_host("f", named_callable(make_closure(&combine), "combine", "a, b"));
    EXPECT_TRUE(equal(eval("f(1, 2)").get(), eval("12").get()));
    EXPECT_TRUE(equal(eval("f(a=1, b=2)").get(), eval("12").get()));
    EXPECT_TRUE(equal(eval("f(b=2, a=1)").get(), eval("12").get()));
    // Named arguments are the whole call: positional ones are not passed with them.
    EXPECT_TRUE(equal(eval("f(8, 9, a=1, b=2)").get(), eval("12").get()));
    // No named arguments (none, or only an empty name) means a positional call.
    EXPECT_TRUE(equal(eval("f(1, 2, **{})").get(), eval("12").get()));
    EXPECT_TRUE(equal(eval("f(1, 2, **{'': 5})").get(), eval("12").get()));
    // What the host refuses is raised, with the host's message.
    EXPECT_TRUE(raises_runtime_error("f(1)"));
    EXPECT_TRUE(raises_runtime_error("f(a=1, c=2)"));
    EXPECT_TRUE(raises_runtime_error("f('x', 2)"));
}

TEST_F(Wrapper, CallResultsConvertAndErrorsAreRaised) {
    bind_host("echo", make_closure(&echo));
    bind_host("fail", make_closure(&fail));
    EXPECT_EQ(eval("echo(None)").get(), Py_None);
    EXPECT_TRUE(equal(eval("echo('t\\u00e9xt')").get(), eval("'t\\u00e9xt'").get()));
    EXPECT_EQ(eval("echo(2.0) == 2 and type(echo(2.0)) is int").get(), Py_True);
    // A Python object passed through the host comes back as itself.
    EXPECT_EQ(eval("(lambda o: echo(o) is o)([1, 2])").get(), Py_True);
    // And so does a wrapper: the host gets its own object back, Python a new wrapper of it.
    EXPECT_EQ(eval("echo(echo) == echo").get(), Py_True);
    std::string raised = raised_by("fail(1)");
    EXPECT_NE(raised.find("deliberate failure"), std::string::npos) << raised;
}

TEST_F(Wrapper, ValuesThatAreNotCallableHaveTypesThatAreNot) {
    bind_host("values", List{Integer(1), Integer(2)});
    EXPECT_EQ(raised_by("values()"), "TypeError: '>TeskObject' object is not callable");
}

TEST_F(Wrapper, WrappersOwnOneHostReferenceEach) {
    List list{Integer(1)};
    std::uint32_t uses = list.get()->use_count();
    std::int64_t live = internal::live_object_count();
    {
        std::vector<PyObjectPtr> wrappers;
        for (int i = 0; i < 100; ++i) wrappers.push_back(to_python_ref(list));
        EXPECT_EQ(list.get()->use_count(), uses + 100);
    }
    EXPECT_EQ(list.get()->use_count(), uses);
    EXPECT_EQ(internal::live_object_count(), live);
}

TEST_F(Wrapper, CallsThroughWrappersLeakNothingOnEitherSide) {
    bind_host("echo", make_closure(&echo));
    bind_host("f", named_callable(make_closure(&combine), "combine", "a, b"));
    run("payload = [1, 2, 3]\n");
    char const* loop = "for _ in range(200):\n"
                       "    echo(payload); echo('text'); echo((1, 2.5)); f(1, 2); f(a=3, b=4)\n"
                       "    try:\n"
                       "        f('bad', 1)\n"
                       "    except RuntimeError:\n"
                       "        pass\n";
    run(loop); // first use builds what lives for the process
    PyObjectPtr payload = eval("payload");
    Py_ssize_t references = Py_REFCNT(payload.get());
    std::int64_t live = internal::live_object_count();
    run(loop);
    EXPECT_EQ(Py_REFCNT(payload.get()), references);
    EXPECT_EQ(internal::live_object_count(), live);
}

TEST_F(Wrapper, TextHashAndComparisonGoThroughTheHost) {
    List a{Integer(1), Integer(2)};
    List same{Integer(1), Integer(2)};
    List larger{Integer(1), Integer(3)};
    bind_host("a", a);
    bind_host("a2", a);
    bind_host("same", same);
    bind_host("larger", larger);
    std::string shown = display(a).toUtf8();
    PyObjectPtr text = PyObjectPtr::steal(PyObject_Str(eval("a").get()));
    EXPECT_EQ(PyUnicode_AsUTF8(text.get()), shown);
    PyObjectPtr repr = PyObjectPtr::steal(PyObject_Repr(eval("a").get()));
    EXPECT_EQ(PyUnicode_AsUTF8(repr.get()), shown);

    // Two wrappers of one mutable object: different Python objects, equal, same hash.
    EXPECT_EQ(eval("a is not a2 and a == a2 and hash(a) == hash(a2)").get(), Py_True);
    EXPECT_EQ(eval("a == same and a < larger and larger >= a and a != larger").get(), Py_True);
    // Values the host cannot order: only != holds.
    EXPECT_EQ(eval("(a == 5, a != 5, a < 5, a > 5) == (False, True, False, False)").get(), Py_True);
}

TEST_F(Wrapper, RecognisedByTypeIdentityOnly) {
    PyObjectPtr wrapped = to_python_ref(List());
    EXPECT_NE(is_wrapper(wrapped.get()), nullptr);
    EXPECT_EQ(is_wrapper(nullptr), nullptr);
    EXPECT_EQ(is_wrapper(eval("[]").get()), nullptr);
    run("Impostor = type('>TeskObject', (), {})\n");
    EXPECT_EQ(is_wrapper(eval("Impostor()").get()), nullptr);
    EXPECT_STREQ(Py_TYPE(wrapped.get())->tp_name, ">TeskObject");
    bind("w", wrapped.get());
    EXPECT_TRUE(equal(eval("type(w).__doc__").get(), eval("'Wrapper around of a Tesk object'").get()));
    // Python code cannot derive from a wrapper type.
    PyObjectPtr derived = PyObjectPtr::steal(PyRun_String("type('D', (type(w),), {})", Py_eval_input, scope(), scope()));
    EXPECT_FALSE(derived);
    EXPECT_EQ(take_exception_text().rfind("TypeError", 0), 0u);
}

} // namespace
} // namespace tesk::cpython::testing
