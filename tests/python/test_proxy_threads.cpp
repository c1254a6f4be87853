// Proxies of Python objects used by many host threads at once, with the
// interpreter lock held or not, and made and dropped in bulk.
#include "language_test_support.h"
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"

#include <atomic>
#include <thread>
#include <vector>

namespace tesk::cpython::testing {
namespace {

// The value of a Python expression as a host value, made under the lock.
Any proxy_of(char const* expression, PyObject* scope) {
    gil_guard gil;
    PyObjectPtr value = PyObjectPtr::steal(PyRun_String(expression, Py_eval_input, scope, scope));
    EXPECT_TRUE(value) << expression;
    PyErr_Clear();
    return from_python(value.get());
}

PyObjectPtr fresh_scope() {
    gil_guard gil;
    PyObjectPtr scope = PyObjectPtr::steal(PyDict_New());
    PyDict_SetItemString(scope.get(), "__builtins__", PyEval_GetBuiltins());
    PyObjectPtr ran = PyObjectPtr::steal(PyRun_String("class Box:\n"
                                                      "    def __init__(self): self.x = 0\n"
                                                      "def add(a, b): return a + b\n",
                                                      Py_file_input, scope.get(), scope.get()));
    EXPECT_TRUE(ran);
    return scope;
}

std::int64_t integer_or(Any const& value, std::int64_t fallback) {
    Any resolved = internal::result_unwrap_lazy(value);
    return Integer::test(resolved) ? Integer::unsafe(resolved).value() : fallback;
}

bool true_result(Any const& value) {
    Any resolved = internal::result_unwrap_lazy(value);
    return Boolean::test(resolved) && Boolean::unsafe(resolved).value();
}

class ProxyThreads : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_FALSE(ensure_interpreter().isError()); }
};

TEST_F(ProxyThreads, OneProxyOfEachKindSharedByEightThreads) {
    Watchdog watchdog("proxies shared by eight threads");
    PyObjectPtr scope = fresh_scope();
    I_MutableMap_Generic map = I_MutableMap_Generic::unsafe(proxy_of("{}", scope.get()));
    I_MutableSequence_Generic list = I_MutableSequence_Generic::unsafe(proxy_of("[]", scope.get()));
    I_MutableSet_Generic set = I_MutableSet_Generic::unsafe(proxy_of("set()", scope.get()));
    I_Iterable_Generic range = I_Iterable_Generic::unsafe(proxy_of("frozenset(range(10))", scope.get()));
    I_Callable_Generic add = I_Callable_Generic::unsafe(proxy_of("add", scope.get()));
    Any box = proxy_of("Box()", scope.get());
    ASSERT_TRUE(I_MutableMap_Generic::test(map) && I_MutableSequence_Generic::test(list) &&
                I_MutableSet_Generic::test(set) && I_Iterable_Generic::test(range) && I_Callable_Generic::test(add) &&
                is_python_object(box));

    constexpr int threads = 8;
    constexpr int rounds = 300;
    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < rounds; ++i) {
                // Half of the rounds run with the interpreter lock already held.
                std::optional<gil_guard> held;
                if (i % 2 == 1) held.emplace();
                std::int64_t const key = t * rounds + i;
                if (map.set(Integer(key), Integer(i)).isError()) ++wrong;
                if (integer_or(map.getOr(Integer(key), Any()), -1) != i) ++wrong;
                if (list.append(Integer(key)).isError()) ++wrong;
                if (!true_result(set.insert(Integer(key)))) ++wrong;
                if (!true_result(set.contains(Integer(key)))) ++wrong;
                if (integer_or(add({Integer(key), Integer(1)}), -1) != key + 1) ++wrong;
                if (box.setPropertyValue(String("x"), Integer(key)).isError()) ++wrong;
                if (integer_or(box.propertyValue(String("x")), -1) < 0) ++wrong;
                std::int64_t sum = 0;
                Any iterator = internal::result_unwrap_lazy(range.iter());
                for (Any item = I_Iterator_Generic::unsafe(iterator).next(); !item.isError();
                     item = I_Iterator_Generic::unsafe(iterator).next())
                    sum += integer_or(item, 1000);
                if (sum != 45) ++wrong;
            }
        });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(integer_or(map.length(), -1), threads * rounds);
    EXPECT_EQ(integer_or(list.length(), -1), threads * rounds);
    EXPECT_EQ(integer_or(set.length(), -1), threads * rounds);
    gil_guard gil;
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(ProxyThreads, AHundredThousandProxiesMadeAndDroppedLeaveNothingBehind) {
    PyObjectPtr scope = fresh_scope();
    char const* const kinds[] = {"{'a': 1}", "[1, 2]", "(1, 2)", "{1, 2}", "frozenset({1})", "add", "Box()"};
    std::vector<PyObjectPtr> objects;
    {
        gil_guard gil;
        for (char const* kind : kinds)
            objects.push_back(PyObjectPtr::steal(PyRun_String(kind, Py_eval_input, scope.get(), scope.get())));
        for (auto const& object : objects) ASSERT_TRUE(object);
        for (auto const& object : objects) (void)from_python(object.get()); // builds the classes once
    }
    std::vector<Py_ssize_t> references;
    {
        gil_guard gil;
        for (auto const& object : objects) references.push_back(Py_REFCNT(object.get()));
    }
    std::int64_t const live = internal::live_object_count();
    constexpr int total = 100000;
    for (int i = 0; i < total; ++i) {
        PyObject* object;
        {
            gil_guard gil;
            object = objects[static_cast<std::size_t>(i) % objects.size()].get();
        }
        // Made under the lock, dropped without it: the finaliser takes it.
        Any proxy;
        {
            gil_guard gil;
            proxy = from_python(object);
        }
        ASSERT_TRUE(is_python_object(proxy));
    }
    EXPECT_EQ(internal::live_object_count(), live);
    gil_guard gil;
    for (std::size_t k = 0; k < objects.size(); ++k) EXPECT_EQ(Py_REFCNT(objects[k].get()), references[k]) << kinds[k];
}

} // namespace
} // namespace tesk::cpython::testing
