// CPythonObject: the class, the held reference's lifetime, and calling
// methods of the held object.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "to_python/to_python.h"

namespace tesk::cpython::testing {
namespace {

class PythonObject : public PythonTest {};

TEST_F(PythonObject, TheClass) {
    Class_Generic cls = cpython_object_class();
    EXPECT_EQ(cls.name().toUtf8(), "CPythonObject");
    EXPECT_EQ(cls.doc().toUtf8(), "Proxy wrapper around of 'PyObject'.");
    EXPECT_TRUE(cls.is_ancestor(I_RuntimeOnly::getClass()));
    EXPECT_TRUE(cls.definedField(String("_pyobj")));
    EXPECT_TRUE(cpython_object_class().isSame(cls)); // built once
}

TEST_F(PythonObject, HoldsOneReferenceForAsLongAsTheHostKeepsIt) {
    PyObjectPtr object = eval("object()");
    Py_ssize_t references = Py_REFCNT(object.get());
    {
        Any proxy = from_python(object.get());
        EXPECT_EQ(Py_REFCNT(object.get()), references + 1);
        Any copy = proxy; // host copies share the one Python reference
        EXPECT_EQ(Py_REFCNT(object.get()), references + 1);
    }
    EXPECT_EQ(Py_REFCNT(object.get()), references);

    // The field reads back as the address; replacing it moves the reference.
    PyObjectPtr other = eval("object()");
    Py_ssize_t otherReferences = Py_REFCNT(other.get());
    Any proxy = from_python(object.get());
    Any field = proxy.fieldValue(String("_pyobj"));
    ASSERT_TRUE(Integer::test(field));
    EXPECT_EQ(Integer::unsafe(field).value(), reinterpret_cast<std::intptr_t>(object.get()));
    set_pyobj(proxy, other.get());
    EXPECT_EQ(get_pyobj(proxy).get(), other.get());
    EXPECT_EQ(Py_REFCNT(object.get()), references);
    EXPECT_EQ(Py_REFCNT(other.get()), otherReferences + 1);
    set_pyobj(proxy, nullptr);
    EXPECT_EQ(get_pyobj(proxy).get(), nullptr);
    EXPECT_EQ(Py_REFCNT(other.get()), otherReferences);
}

TEST_F(PythonObject, RecognisedThroughDeferredValuesAndOnlyForProxies) {
    PyObjectPtr object = eval("object()");
    Any proxy = from_python(object.get());
    Any deferred = Computed_Generic::make([proxy] { return proxy; });
    EXPECT_TRUE(is_python_object(deferred));
    EXPECT_EQ(get_pyobj(deferred).get(), object.get());
    for (Any other : {Any(), Any(Integer(1)), Any(List()), Any(Error(String("e"))), Any(cpython_object_class())}) {
        EXPECT_FALSE(is_python_object(other)) << display(other).toUtf8();
        EXPECT_EQ(get_pyobj(other).get(), nullptr);
    }
    // A derived class is recognised as well.
    Result<Class_Generic> built =
        class_builder_base(String("CPythonObjectTestDerived")).bases({cpython_object_class()}).build();
    ASSERT_TRUE(built.is<Class_Generic>()) << message_of(built);
    Class_Generic derived = built.as<Class_Generic>();
    Any instance = make_python_object(derived, object.get());
    EXPECT_TRUE(is_python_object(instance));
    EXPECT_EQ(get_pyobj(instance).get(), object.get());
}

TEST_F(PythonObject, TheHeldObjectIsFoundAfterAFieldMovesIt) {
    // Inherited fields come first: a field added later to the first base of
    // a proxy class moves `_pyobj` in the instances made afterwards.
    Class_Generic first = class_builder_base(String("CPythonObjectTestFirstBase")).build().as<Class_Generic>();
    Class_Generic derived = class_builder_base(String("CPythonObjectTestMovedFields"))
                                .bases({first, cpython_object_class()})
                                .build()
                                .as<Class_Generic>();
    PyObjectPtr object = eval("object()");
    EXPECT_EQ(get_pyobj(make_python_object(derived, object.get())).get(), object.get());
    add_class_field_unsafe(first, internal::field_info{String("moved_by"), Type::untyped(), String()});
    Any later = make_python_object(derived, object.get());
    EXPECT_EQ(get_pyobj(later).get(), object.get());
    EXPECT_TRUE(Integer::test(later.fieldValue(String("_pyobj"))));
    EXPECT_TRUE(later.fieldValue(String("moved_by")).isNone());
}

TEST_F(PythonObject, AFieldWrittenByHandNeitherReplacesNorLosesTheObject) {
    // The proxy's own record owns the reference; `_pyobj` shows its address
    // to host code, and a value written there by hand takes no reference.
    PyObjectPtr object = eval("object()");
    Py_ssize_t references = Py_REFCNT(object.get());
    {
        Any proxy = from_python(object.get());
        for (Any written : {Any(), Any(Integer(1)), Any(String("not an integer"))}) {
            // The field is typed: the text is refused, the others stored.
            EXPECT_EQ(proxy.setFieldValue(String("_pyobj"), written).isError(), String::test(written));
            EXPECT_EQ(get_pyobj(proxy).get(), object.get()) << display(written).toUtf8();
            EXPECT_EQ(Py_REFCNT(object.get()), references + 1);
        }
        EXPECT_EQ(to_python_ref(proxy).get(), object.get());
        // set_pyobj writes both again.
        set_pyobj(proxy, object.get());
        EXPECT_EQ(Integer::unsafe(proxy.fieldValue(String("_pyobj"))).value(),
                  reinterpret_cast<std::intptr_t>(object.get()));
    }
    EXPECT_EQ(Py_REFCNT(object.get()), references);
}

TEST_F(PythonObject, ADerivedClassWithTheErrorTraitMakesErrorsNotProxies) {
    // Its first base is CPythonObject, whose records hold Python objects,
    // but its instances are read as errors, so they are error records, which
    // hold no Python object: the object is neither kept nor leaked.
    Result<Class_Generic> built = class_builder_base(String("CPythonObjectTestFailure"))
                                      .bases({cpython_object_class(), Error::getClass()})
                                      .build();
    ASSERT_TRUE(built.is<Class_Generic>()) << message_of(built);
    PyObjectPtr object = eval("object()");
    Py_ssize_t references = Py_REFCNT(object.get());
    {
        Any instance = make_python_object(built.as<Class_Generic>(), object.get());
        ASSERT_TRUE(Error::test(instance));
        EXPECT_TRUE(Error::unsafe(instance).message().isEmpty());
        EXPECT_EQ(get_pyobj(instance).get(), nullptr);
        EXPECT_EQ(Py_REFCNT(object.get()), references);
    }
    EXPECT_EQ(Py_REFCNT(object.get()), references);
}

TEST_F(PythonObject, ConversionsLeakNoHostObjects) {
    PyObjectPtr list = eval("[1, 2, 3]");
    from_python(list.get()); // first use builds what lives for the process
    std::int64_t live = internal::live_object_count();
    Py_ssize_t references = Py_REFCNT(list.get());
    for (int i = 0; i < 100; ++i) {
        Any proxy = from_python(list.get());
        PyObjectPtr back = to_python_ref(proxy);
        EXPECT_EQ(back.get(), list.get());
    }
    EXPECT_EQ(internal::live_object_count(), live);
    EXPECT_EQ(Py_REFCNT(list.get()), references);
}

TEST_F(PythonObject, CallMethodCallsThePythonMethod) {
    PyObjectPtr list = eval("[3, 1]");
    Any proxy = from_python(list.get());
    Any const two[] = {Integer(2)};
    EXPECT_TRUE(call_method(proxy, "append", two).isNone());
    EXPECT_EQ(PyList_GET_SIZE(list.get()), 3);
    EXPECT_TRUE(call_method(proxy, "sort").isNone());
    Any index = call_method(proxy, "index", two);
    ASSERT_TRUE(Integer::test(index));
    EXPECT_EQ(Integer::unsafe(index).value(), 1);
    EXPECT_EQ(text_of(call_method(proxy, "__str__")), "[1, 2, 3]");
}

TEST_F(PythonObject, CallMethodFailuresAreClearErrors) {
    PyObjectPtr list = eval("[1]");
    Any proxy = from_python(list.get());
    std::string missing = message_of(call_method(proxy, "no_such_method"));
    EXPECT_EQ(missing.rfind("The method is missing: no_such_method, target object: ", 0), 0u) << missing;
    run("class Holder:\n"
        "    not_callable = 5\n"
        "    def boom(self): raise KeyError('kaboom')\n");
    PyObjectPtr holder = eval("Holder()");
    Any holderProxy = from_python(holder.get());
    EXPECT_EQ(message_of(call_method(holderProxy, "not_callable")).rfind("The method is missing: not_callable", 0), 0u);
    EXPECT_NE(message_of(call_method(holderProxy, "boom")).find("kaboom"), std::string::npos);
    // Python's own error for a bad argument; the list is unchanged.
    Any const badIndex[] = {String("x")};
    EXPECT_TRUE(call_method(proxy, "index", badIndex).isError());
    // An argument that fails to convert: its Python error, or a message naming it.
    Any const undecodable[] = {String::fromRawDataUnsafe("\xff", 1)};
    EXPECT_NE(message_of(call_method(proxy, "append", undecodable)).find("utf-8"), std::string::npos);
    Any const formless[] = {cpython_object_class().allocateInstance()};
    EXPECT_EQ(message_of(call_method(proxy, "append", formless)).rfind("Unable to convert an argument: ", 0), 0u);
    EXPECT_EQ(PyList_GET_SIZE(list.get()), 1);
    // A proxy that holds nothing.
    EXPECT_EQ(message_of(call_method(cpython_object_class().allocateInstance(), "append")), "The object is null.");
    EXPECT_EQ(message_of(call_method(Integer(1), "append")), "The object is null.");
}

} // namespace
} // namespace tesk::cpython::testing
