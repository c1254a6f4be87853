// Class edits and the interpreter lock: a value whose release needs the
// interpreter lock is replaced in a class member table on one thread while
// another thread holds the interpreter lock and edits and reads the same
// class. The replaced value must be released outside the record's lock, or
// the two threads wait for each other forever.
#include "python_test_support.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace tesk::cpython::testing {
namespace {

// A method whose callable holds a Python object: dropping the callable drops
// the Python reference, which takes the interpreter lock.
I_Callable_Generic holding(PyObject* object, char const* tag) {
    String text(tag);
    auto c = internal::make_function_callable(
        [text, held = PyObjectPtr::borrow(object)](std::span<Any const>) -> Any { return text; },
        Signature(Type::untyped(), {}), text);
    return I_Callable_Generic::unsafe(c);
}

class ClassEditLocking : public PythonTest {};

TEST_F(ClassEditLocking, ReplacedValueIsReleasedWhileAnotherThreadHoldsTheInterpreterLock) {
    // This thread holds the interpreter lock for the whole test (PythonTest).
    PyObjectPtr payload = eval("['held by host callables']");
    Py_ssize_t baseline = Py_REFCNT(payload.get());
    Class_Generic cls = class_builder_base(String("EditedUnderTheInterpreterLock")).build().as<Class_Generic>();
    Any instance = cls.allocateInstance();
    constexpr int replacements = 50;
    std::vector<I_Callable_Generic> values;
    for (int i = 0; i < replacements; ++i) values.push_back(holding(payload.get(), "replacement"));
    add_class_method_unsafe(cls, String("m"), holding(payload.get(), "first"));
    EXPECT_EQ(Py_REFCNT(payload.get()), baseline + replacements + 1);

    Watchdog guard("class edits with the interpreter lock held elsewhere");
    std::atomic<bool> started{false};
    std::atomic<int> replaced{0};
    // The editor holds no interpreter lock: each replacement releases the
    // previous callable, and with it a Python reference.
    std::thread editor([&] {
        started.store(true);
        for (auto& v : values) {
            add_class_method_unsafe(cls, String("m"), std::exchange(v, I_Callable_Generic::unsafe(Any())));
            replaced.fetch_add(1);
        }
    });
    while (!started.load()) std::this_thread::yield();
    // Meanwhile this thread, holding the interpreter lock, edits and reads the
    // same class; it never waits for the editor.
    for (int i = 0; i < 2000 && replaced.load() < replacements; ++i) {
        add_class_property_unsafe(cls, String("p"),
                                  Property(I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(i)))));
        EXPECT_TRUE(method_of(instance, String("m")).has_value());
        EXPECT_EQ(Integer::cast(instance.propertyValue(String("p"))).value().value(), i);
    }
    // Let the editor take the interpreter lock for the references it drops.
    Py_BEGIN_ALLOW_THREADS editor.join();
    Py_END_ALLOW_THREADS

    EXPECT_EQ(replaced.load(), replacements);
    auto last = String::cast(instance.callMethod(String("m")));
    ASSERT_TRUE(last.has_value());
    EXPECT_EQ(last.value(), "replacement");
    // One more edit reclaims whatever readers still held; then only the
    // callable in the table keeps a reference.
    set_doc_unsafe(cls, String("edited"));
    EXPECT_EQ(Py_REFCNT(payload.get()), baseline + 1);
}

} // namespace
} // namespace tesk::cpython::testing
