// Deeply nested values cross the boundary without exhausting the stack:
// host tuples have a depth limit, Python containers arrive as proxies.
#include "language_test_support.h"

#include "to_python/to_python.h"

#include <pthread.h>

namespace tesk::cpython::testing {
namespace {

Any nested_tuple(int depth) {
    Any nested = Integer(7);
    for (int i = 0; i < depth; ++i) nested = Tuple({nested});
    return nested;
}

// The outcome of to_python: "ok", or the pending exception's type and message.
std::string convert_and_describe(Any const& value) {
    gil_guard gil;
    PyObjectPtr converted = to_python_ref(value);
    if (converted) return "ok";
    PyObjectPtr exception = PyObjectPtr::steal(PyErr_GetRaisedException());
    if (!exception) return "no form";
    PyObjectPtr text = PyObjectPtr::steal(PyObject_Str(exception.get()));
    return std::string(Py_TYPE(exception.get())->tp_name) + ": " + PyUnicode_AsUTF8(text.get());
}

TEST(DepthLimits, HostTuplesDeeperThanTheLimitRaiseRecursionError) {
    EXPECT_EQ(convert_and_describe(nested_tuple(conversion_depth_limit - 1)), "ok");
    std::string const refused = "RecursionError: A host tuple nested deeper than " +
                                std::to_string(conversion_depth_limit) + " levels has no Python form.";
    EXPECT_EQ(convert_and_describe(nested_tuple(100000)), refused);
    EXPECT_FALSE(python_error_pending());
}

// A host thread with a small stack (256 KiB) converts the same values.
// AddressSanitizer makes every frame several times larger; its builds give
// the thread proportionally more.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t small_stack = 4 * 256 * 1024;
#else
constexpr std::size_t small_stack = 256 * 1024;
#endif

TEST(DepthLimits, SmallThreadStacksSurviveDeepValues) {
    struct job {
        Any value;
        std::string outcome;
    } work{nested_tuple(100000), {}};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, small_stack);
    pthread_t thread;
    auto body = [](void* argument) -> void* {
        auto* w = static_cast<job*>(argument);
        w->outcome = convert_and_describe(w->value);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, body, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(work.outcome.rfind("RecursionError", 0), 0u) << work.outcome;
}

TEST(DepthLimits, DeepPythonTuplesArriveAsProxiesAndGoBack) {
    Any deep = evaluate("t = ()\nfor i in range(100000):\n    t = (t,)\nreturn t");
    ASSERT_FALSE(deep.isError()) << error_message(deep);
    // Back in Python it is the very same object.
    Any depth = evaluate("n = 0\nu = t\nwhile u:\n    u = u[0]\n    n += 1\nreturn n", scope_of(map_of({{"t", deep}})));
    EXPECT_EQ(integer_of(depth), 100000);
}

} // namespace
} // namespace tesk::cpython::testing
