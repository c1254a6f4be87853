// The container proxies: Python dicts, sequences, sets, iterables and
// iterators used through the host's own collection interfaces, with the live
// Python objects behind them.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "language/language.h"
#include "proxies/iterable_proxy.h"
#include "proxies/iterator_proxy.h"
#include "proxies/mapping_proxy.h"
#include "proxies/sequence_proxy.h"
#include "proxies/set_proxy.h"

#include <filesystem>
#include <vector>

namespace tesk::cpython::testing {
namespace {

class ContainerProxies : public PythonTest {
protected:
    // The host value of a Python expression, as from_python gives it.
    Any proxy(char const* expression) {
        PyObjectPtr object = eval(expression);
        return from_python(object.get());
    }
    // repr() of a Python expression, to see what the Python side holds.
    std::string repr(char const* expression) {
        PyObjectPtr object = eval(expression);
        if (!object) return "<failed>";
        PyObjectPtr text = PyObjectPtr::steal(PyObject_Repr(object.get()));
        return text ? PyUnicode_AsUTF8(text.get()) : "<no repr>";
    }
    // Calls a member through the host's method lookup, as a script would.
    static Any call(Any const& object, char const* name, std::vector<Any> args = {}) {
        auto method = method_of(object, String(name));
        if (!method) return Error(String("no such member"));
        std::vector<Any> all{object};
        all.insert(all.end(), args.begin(), args.end());
        return method.value().invoke(all);
    }
    // A proxy of `cls` that holds no Python object.
    static Any empty_proxy(Class_Generic const& cls) { return cls.allocateInstance(); }
    // A host value that has no Python form.
    static Any formless() { return cpython_object_class().allocateInstance(); }
};

std::int64_t int_of(Any const& value) {
    Any resolved = internal::result_unwrap_lazy(value);
    return Integer::test(resolved) ? Integer::unsafe(resolved).value() : -999;
}
bool bool_of(Any const& value) {
    Any resolved = internal::result_unwrap_lazy(value);
    EXPECT_TRUE(Boolean::test(resolved)) << display(resolved).toUtf8();
    return Boolean::test(resolved) && Boolean::unsafe(resolved).value();
}
bool starts_with(std::string const& text, std::string const& prefix) { return text.rfind(prefix, 0) == 0; }

// Drives a host iterator to its end: the items, then whatever ended it.
std::vector<Any> drain(I_Iterator_Generic const& iterator, Any& end) {
    std::vector<Any> items;
    for (int guard = 0; guard < 10000; ++guard) {
        Any item = iterator.next();
        if (item.isError()) {
            end = item;
            break;
        }
        items.push_back(item);
    }
    return items;
}
std::vector<std::int64_t> ints_of(std::vector<Any> const& items) {
    std::vector<std::int64_t> values;
    for (Any const& item : items) values.push_back(int_of(item));
    return values;
}

// ---- which proxy ------------------------------------------------------------

TEST_F(ContainerProxies, FromPythonGivesTheProxyThatFits) {
    struct expected {
        char const* expression;
        Class_Generic cls;
    };
    for (auto const& [expression, cls] : {
             expected{"{}", cpython_proxy_mapping_class()},
             expected{"[]", cpython_proxy_sequence_class()},
             expected{"()", cpython_proxy_sequence_class()},
             expected{"range(3)", cpython_proxy_sequence_class()},
             expected{"set()", cpython_proxy_set_class()},
             expected{"frozenset()", cpython_proxy_iterable_class()},
             expected{"(x for x in ())", cpython_proxy_iterable_class()},
             expected{"{1: 2}.keys()", cpython_proxy_iterable_class()},
         }) {
        Any value = proxy(expression);
        EXPECT_TRUE(class_of(value).isSame(cls)) << expression << " gave " << class_of(value).name().toUtf8();
        EXPECT_TRUE(is_python_object(value)) << expression;
    }
    EXPECT_EQ(cpython_proxy_mapping_class().name().toUtf8(), "CPythonProxyMapping");
    EXPECT_EQ(cpython_proxy_sequence_class().name().toUtf8(), "CPythonProxySequence");
    EXPECT_EQ(cpython_proxy_set_class().name().toUtf8(), "CPythonProxySet");
    EXPECT_EQ(cpython_proxy_iterable_class().name().toUtf8(), "CPythonProxyIterable");
    EXPECT_EQ(cpython_proxy_iterator_class().name().toUtf8(), "CPythonProxyIterator");
    // Each answers its host interface and is a CPythonObject.
    EXPECT_TRUE(I_MutableMap_Generic::test(proxy("{}")));
    EXPECT_TRUE(I_MutableSequence_Generic::test(proxy("[]")));
    EXPECT_TRUE(I_MutableSet_Generic::test(proxy("set()")));
    EXPECT_TRUE(I_Iterable_Generic::test(proxy("frozenset()")));
    EXPECT_TRUE(cpython_proxy_set_class().is_ancestor(cpython_proxy_iterable_class()));
    for (Class_Generic cls : {cpython_proxy_mapping_class(), cpython_proxy_sequence_class(), cpython_proxy_set_class(),
                              cpython_proxy_iterable_class(), cpython_proxy_iterator_class()}) {
        EXPECT_TRUE(cls.is_ancestor(cpython_object_class())) << cls.name().toUtf8();
        EXPECT_EQ(cls.record()->option(), 10) << cls.name().toUtf8();
        EXPECT_TRUE(cls.doc().isEmpty()) << cls.name().toUtf8();
        EXPECT_FALSE(cls.declaringContext().hasValue()) << cls.name().toUtf8();
    }
}

// ---- mapping ----------------------------------------------------------------

TEST_F(ContainerProxies, MappingChangesAreSeenOnBothSides) {
    run("d = {'a': 1}");
    I_MutableMap_Generic map = I_MutableMap_Generic::unsafe(proxy("d"));
    EXPECT_FALSE(map.set(String("b"), Integer(2)).isError());
    EXPECT_EQ(repr("d"), "{'a': 1, 'b': 2}");
    run("d['c'] = 3");
    EXPECT_EQ(int_of(map.get(String("c"))), 3);
    EXPECT_EQ(int_of(map.length()), 3);
    EXPECT_TRUE(bool_of(map.contains(String("c"))));
    EXPECT_FALSE(bool_of(map.contains(String("z"))));
    EXPECT_EQ(int_of(map.remove(String("a"))), 1);
    EXPECT_EQ(repr("d"), "{'b': 2, 'c': 3}");
    EXPECT_FALSE(map.clear().isError());
    EXPECT_EQ(repr("d"), "{}");
}

TEST_F(ContainerProxies, MappingGetOfAMissingKeyGivesTheDefault) {
    run("d = {'a': 1}\n"
        "class Counting(dict):\n"
        "    def __missing__(self, key): return 'made up'\n"
        "c = Counting(a=1)");
    Any map = proxy("d");
    EXPECT_EQ(text_of(call(map, "get", {String("zz"), String("fallback")})), "fallback");
    EXPECT_FALSE(I_Map_Generic::unsafe(map).get(String("zz")).hasValue()); // the default default: none
    EXPECT_EQ(int_of(call(map, "get", {String("a"), String("fallback")})), 1);
    // A subclass answers through `in` and `[]`: its __missing__ is not asked.
    Any subclass = proxy("c");
    EXPECT_TRUE(class_of(subclass).isSame(cpython_proxy_mapping_class()));
    EXPECT_EQ(text_of(call(subclass, "get", {String("zz"), String("fallback")})), "fallback");
    EXPECT_EQ(int_of(I_Map_Generic::unsafe(subclass).get(String("a"))), 1);
    EXPECT_EQ(repr("d"), "{'a': 1}");
}

TEST_F(ContainerProxies, MappingRemoveOfAMissingKeyIsPythonsKeyError) {
    run("d = {'a': 1}");
    Any removed = I_MutableMap_Generic::unsafe(proxy("d")).remove(String("missing"));
    EXPECT_EQ(message_of(removed), "'missing'"); // str() of KeyError('missing')
    EXPECT_EQ(message_of(I_MutableMap_Generic::unsafe(proxy("d")).remove(proxy("[1]"))), "unhashable type: 'list'");
    EXPECT_EQ(repr("d"), "{'a': 1}");
}

TEST_F(ContainerProxies, MappingKeysAndValuesAreSnapshotsInOrder) {
    run("d = {'b': 1, 'a': 2}\ne = {}");
    I_Map_Generic map = I_Map_Generic::unsafe(proxy("d"));
    Any keys = map.keys();
    Any values = map.values();
    ASSERT_TRUE(List::test(keys)) << display(keys).toUtf8();
    ASSERT_TRUE(List::test(values));
    ASSERT_EQ(List::unsafe(keys).size(), 2u);
    EXPECT_EQ(text_of(List::unsafe(keys).at(0)), "b");
    EXPECT_EQ(text_of(List::unsafe(keys).at(1)), "a");
    EXPECT_EQ(ints_of(List::unsafe(values).copyItems()), (std::vector<std::int64_t>{1, 2}));
    run("d['c'] = 3");
    EXPECT_EQ(List::unsafe(keys).size(), 2u);
    EXPECT_EQ(List::unsafe(I_Map_Generic::unsafe(proxy("e")).keys()).size(), 0u);
    EXPECT_EQ(List::unsafe(I_Map_Generic::unsafe(proxy("e")).values()).size(), 0u);
    EXPECT_TRUE(map.keysType().isUntyped());
    EXPECT_TRUE(map.valuesType().isUntyped());
}

TEST_F(ContainerProxies, MappingRefusesUnhashableAndFormlessKeysAndChangesNothing) {
    run("d = {'a': 1}");
    I_MutableMap_Generic map = I_MutableMap_Generic::unsafe(proxy("d"));
    Any unhashable = proxy("[1]"); // goes back to Python as the list itself
    EXPECT_EQ(message_of(map.contains(unhashable)), "unhashable type: 'list'");
    EXPECT_EQ(message_of(map.set(unhashable, Integer(1))), "unhashable type: 'list'");
    EXPECT_EQ(message_of(call(map, "get", {unhashable, Integer(0)})), "unhashable type: 'list'");
    EXPECT_TRUE(starts_with(message_of(map.set(String("b"), formless())), "Unable to convert an argument: "));
    EXPECT_TRUE(starts_with(message_of(map.contains(formless())), "Unable to convert an argument: "));
    Any undecodable = String::fromRawDataUnsafe("\xff", 1);
    EXPECT_NE(message_of(map.set(undecodable, Integer(1))).find("utf-8"), std::string::npos);
    EXPECT_EQ(repr("d"), "{'a': 1}");
}

TEST_F(ContainerProxies, MappingWithoutAnObject) {
    I_MutableMap_Generic map = I_MutableMap_Generic::unsafe(empty_proxy(cpython_proxy_mapping_class()));
    EXPECT_EQ(message_of(map.contains(String("a"))), "The object is null.");
    EXPECT_EQ(message_of(map.get(String("a"))), "The object is null.");
    EXPECT_EQ(message_of(map.set(String("a"), Integer(1))), "The object is null.");
    EXPECT_EQ(message_of(map.remove(String("a"))), "The object is null.");
    EXPECT_EQ(message_of(map.length()), "The object is null.");
    EXPECT_EQ(List::unsafe(map.keys()).size(), 0u);
    EXPECT_EQ(List::unsafe(map.values()).size(), 0u);
}

TEST_F(ContainerProxies, MappingIteratesItsKeys) {
    run("d = {'x': 1, 'y': 2}");
    auto iterator = I_Iterable_Generic::unsafe(proxy("d")).iter();
    ASSERT_TRUE(iterator.is<I_Iterator_Generic>()) << message_of(iterator);
    Any end;
    std::vector<Any> keys = drain(iterator.as<I_Iterator_Generic>(), end);
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(text_of(keys[0]), "x");
    EXPECT_TRUE(StopIteration::test(end));
}

// ---- sequence ---------------------------------------------------------------

TEST_F(ContainerProxies, SequenceIndexingFollowsPython) {
    run("xs = [10, 20, 30]\n"
        "class Echo:\n"
        "    def __getitem__(self, i): return i\n"
        "    def __len__(self): return 5\n"
        "echo = Echo()");
    I_Sequence_Generic xs = I_Sequence_Generic::unsafe(proxy("xs"));
    EXPECT_EQ(int_of(xs.at(0)), 10);
    EXPECT_EQ(int_of(xs.at(-1)), 30);
    EXPECT_EQ(message_of(xs.at(3)), "list index out of range");
    EXPECT_EQ(text_of(xs.atOr(3, String("x"))), "x");
    EXPECT_EQ(int_of(xs.atOr(1, String("x"))), 20);
    EXPECT_EQ(int_of(xs.length()), 3);
    // A class of the user's own gets the index as given, negative ones too.
    I_Sequence_Generic echo = I_Sequence_Generic::unsafe(proxy("echo"));
    EXPECT_TRUE(class_of(echo).isSame(cpython_proxy_sequence_class()));
    EXPECT_EQ(int_of(echo.at(-1)), -1);
    EXPECT_EQ(int_of(echo.at(7)), 7);
    // An index that is no integer is refused before Python is asked.
    Any badIndex = call(xs, "at", {String("one")});
    EXPECT_TRUE(badIndex.isError());
    EXPECT_EQ(repr("xs"), "[10, 20, 30]");
}

TEST_F(ContainerProxies, SequenceInsertionAndRemoval) {
    run("xs = [1, 2, 3]");
    I_MutableSequence_Generic xs = I_MutableSequence_Generic::unsafe(proxy("xs"));
    EXPECT_FALSE(xs.appendAt(100, Integer(9)).isError());
    EXPECT_EQ(repr("xs"), "[1, 2, 3, 9]");
    EXPECT_FALSE(xs.append(Integer(4)).isError());
    EXPECT_FALSE(xs.set(0, Integer(0)).isError());
    EXPECT_EQ(repr("xs"), "[0, 2, 3, 9, 4]"); // seen by the Python code holding it
    EXPECT_EQ(int_of(call(xs, "pop", {Integer(1)})), 2);
    EXPECT_FALSE(xs.extend(List{Integer(5), Integer(6)}).isError());
    EXPECT_EQ(repr("xs"), "[0, 3, 9, 4, 5, 6]");
    EXPECT_EQ(message_of(xs.set(10, Integer(0))), "list assignment index out of range");
    EXPECT_EQ(message_of(call(xs, "pop", {Integer(10)})), "pop index out of range");
    EXPECT_TRUE(starts_with(message_of(xs.append(formless())), "Unable to convert an argument: "));
    EXPECT_TRUE(call(xs, "extend", {Integer(5)}).isError()); // no iterable
    EXPECT_EQ(repr("xs"), "[0, 3, 9, 4, 5, 6]");
    EXPECT_FALSE(xs.clear().isError());
    EXPECT_EQ(repr("xs"), "[]");
}

TEST_F(ContainerProxies, SequenceRemoveAtDeletesCountElementsAndKeepsWhatItDeleted) {
    run("xs = [1, 2, 3, 4]");
    I_MutableSequence_Generic xs = I_MutableSequence_Generic::unsafe(proxy("xs"));
    EXPECT_FALSE(xs.removeAt(1, 0).isError());
    EXPECT_EQ(repr("xs"), "[1, 2, 3, 4]");
    EXPECT_FALSE(xs.removeAt(1, 2).isError());
    EXPECT_EQ(repr("xs"), "[1, 4]");
    EXPECT_EQ(message_of(xs.removeAt(5, 2)), "list assignment index out of range");
    EXPECT_EQ(repr("xs"), "[1, 4]");
    EXPECT_FALSE(xs.removeAt(1).isError()); // the count defaults to one
    EXPECT_EQ(repr("xs"), "[1]");
    EXPECT_FALSE(call(xs, "removeAt", {Integer(0)}).isError()); // through the member's own default
    EXPECT_EQ(repr("xs"), "[]");
    // A count past the end: the deletions made before the failure stay.
    run("ys = [1, 2, 3, 4]");
    I_MutableSequence_Generic ys = I_MutableSequence_Generic::unsafe(proxy("ys"));
    EXPECT_EQ(message_of(ys.removeAt(2, 5)), "list assignment index out of range");
    EXPECT_EQ(repr("ys"), "[1, 2]");
}

TEST_F(ContainerProxies, SequenceRemoveOneAndIndexOf) {
    run("xs = [1, 2, 1, 3]");
    Any xs = proxy("xs");
    EXPECT_TRUE(bool_of(call(xs, "removeOne", {Integer(1)})));
    EXPECT_EQ(repr("xs"), "[2, 1, 3]");
    EXPECT_FALSE(bool_of(call(xs, "removeOne", {Integer(7)})));
    EXPECT_EQ(repr("xs"), "[2, 1, 3]");
    I_Sequence_Generic sequence = I_Sequence_Generic::unsafe(xs);
    EXPECT_EQ(int_of(sequence.indexOf(Integer(3))), 2);
    EXPECT_EQ(int_of(sequence.indexOf(Integer(7))), -1);
    EXPECT_EQ(int_of(call(xs, "indexOf", {Integer(2)})), 0); // `from` defaults to 0
    run("ys = [5, 6, 5, 6]");
    I_Sequence_Generic ys = I_Sequence_Generic::unsafe(proxy("ys"));
    EXPECT_EQ(int_of(ys.indexOf(Integer(5), 1)), 2);
    EXPECT_EQ(int_of(ys.indexOf(Integer(6), 2)), 3);
    EXPECT_EQ(int_of(ys.indexOf(Integer(5), 3)), -1);
    EXPECT_EQ(int_of(ys.indexOf(formless())), -1);
    EXPECT_TRUE(bool_of(ys.contains(Integer(6))));
    EXPECT_FALSE(bool_of(ys.contains(Integer(7))));
}

TEST_F(ContainerProxies, TupleReadsButHasNoAppend) {
    run("t = (1, 2, 3)");
    Any t = proxy("t");
    ASSERT_TRUE(I_MutableSequence_Generic::test(t));
    std::string missing = message_of(I_MutableSequence_Generic::unsafe(t).append(Integer(4)));
    EXPECT_EQ(missing, "The method is missing: append, target object: " + display(t).toUtf8() + ".");
    EXPECT_TRUE(I_MutableSequence_Generic::unsafe(t).removeAt(0).isError());
    I_Sequence_Generic tuple = I_Sequence_Generic::unsafe(t);
    EXPECT_EQ(int_of(tuple.at(-1)), 3);
    EXPECT_EQ(message_of(tuple.at(3)), "tuple index out of range");
    EXPECT_TRUE(bool_of(tuple.contains(Integer(2))));
    EXPECT_EQ(int_of(tuple.indexOf(Integer(2))), 1);
    EXPECT_EQ(int_of(tuple.length()), 3);
    EXPECT_EQ(repr("t"), "(1, 2, 3)");
}

TEST_F(ContainerProxies, SequenceWithoutAnObject) {
    I_MutableSequence_Generic xs = I_MutableSequence_Generic::unsafe(empty_proxy(cpython_proxy_sequence_class()));
    EXPECT_EQ(message_of(xs.at(0)), "The object is null.");
    EXPECT_EQ(text_of(xs.atOr(0, String("x"))), "x");
    EXPECT_EQ(message_of(xs.indexOf(Integer(1))), "The object is null.");
    EXPECT_EQ(message_of(xs.append(Integer(1))), "The object is null.");
    EXPECT_EQ(message_of(xs.removeAt(0)), "The object is null.");
    EXPECT_EQ(message_of(xs.length()), "The object is null.");
    EXPECT_EQ(message_of(xs.contains(Integer(1))), "The object is null.");
}

TEST_F(ContainerProxies, SequenceIteratesFromTheHost) {
    run("xs = [1, 2, 3]");
    Any xs = proxy("xs");
    auto iterator = I_Iterable_Generic::unsafe(xs).iter();
    ASSERT_TRUE(iterator.is<I_Iterator_Generic>()) << message_of(iterator);
    EXPECT_TRUE(class_of(iterator).isSame(cpython_proxy_iterator_class()));
    Any end;
    EXPECT_EQ(ints_of(drain(iterator.as<I_Iterator_Generic>(), end)), (std::vector<std::int64_t>{1, 2, 3}));
    EXPECT_TRUE(StopIteration::test(end)) << display(end).toUtf8();
    EXPECT_TRUE(StopIteration::test(iterator.as<I_Iterator_Generic>().next())); // asked again: still the end
}

// ---- set --------------------------------------------------------------------

TEST_F(ContainerProxies, SetInsertReportsWhetherItGrew) {
    run("s = {1, 2}");
    I_MutableSet_Generic set = I_MutableSet_Generic::unsafe(proxy("s"));
    EXPECT_TRUE(bool_of(set.insert(Integer(3))));
    EXPECT_FALSE(bool_of(set.insert(Integer(3))));
    EXPECT_EQ(repr("sorted(s)"), "[1, 2, 3]");
    EXPECT_EQ(int_of(set.length()), 3);
    EXPECT_TRUE(bool_of(set.contains(Integer(2))));
    EXPECT_EQ(message_of(set.insert(proxy("[1]"))), "unhashable type: 'list'");
    EXPECT_EQ(repr("sorted(s)"), "[1, 2, 3]");
}

TEST_F(ContainerProxies, SetRemoveGivesFalseForWhatItCannotRemove) {
    run("s = {1, 2}");
    I_MutableSet_Generic set = I_MutableSet_Generic::unsafe(proxy("s"));
    EXPECT_FALSE(bool_of(set.remove(Integer(7))));
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_FALSE(bool_of(set.remove(proxy("[1]")))); // unhashable
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_TRUE(bool_of(set.remove(Integer(1))));
    EXPECT_EQ(repr("s"), "{2}");
    EXPECT_TRUE(starts_with(message_of(set.remove(formless())), "Unable to convert an argument: "));
    EXPECT_FALSE(bool_of(I_MutableSet_Generic::unsafe(empty_proxy(cpython_proxy_set_class())).remove(Integer(1))));
}

TEST_F(ContainerProxies, SetExtendAddsEachHostValue) {
    run("s = {1, 2}");
    Any set = proxy("s");
    EXPECT_FALSE(call(set, "extend", {List{Integer(2), Integer(3), Integer(4)}}).isError());
    EXPECT_EQ(repr("sorted(s)"), "[1, 2, 3, 4]");
    EXPECT_FALSE(call(set, "extend", {List()}).isError());
    // The first value that fails ends it; what came before stays.
    Any failed = call(set, "extend", {List{Integer(5), proxy("[1]"), Integer(6)}});
    EXPECT_EQ(message_of(failed), "unhashable type: 'list'");
    EXPECT_EQ(repr("sorted(s)"), "[1, 2, 3, 4, 5]");
    EXPECT_FALSE(call(set, "clear").isError());
    EXPECT_EQ(repr("s"), "set()");
}

TEST_F(ContainerProxies, TwoIteratorsOfASetAreIndependent) {
    run("s = {1, 2, 3}");
    I_Iterable_Generic set = I_Iterable_Generic::unsafe(proxy("s"));
    I_Iterator_Generic first = set.iter().as<I_Iterator_Generic>();
    I_Iterator_Generic second = set.iter().as<I_Iterator_Generic>();
    Any a = first.next();
    Any b = first.next();
    EXPECT_EQ(int_of(second.next()), int_of(a));
    EXPECT_EQ(int_of(second.next()), int_of(b));
}

// ---- iterables and iterators ------------------------------------------------

TEST_F(ContainerProxies, TwoIteratorsOfAGeneratorShareItsPosition) {
    run("g = (x for x in [1, 2, 3, 4])");
    I_Iterable_Generic generator = I_Iterable_Generic::unsafe(proxy("g"));
    I_Iterator_Generic first = generator.iter().as<I_Iterator_Generic>();
    I_Iterator_Generic second = generator.iter().as<I_Iterator_Generic>();
    EXPECT_EQ(int_of(first.next()), 1);
    EXPECT_EQ(int_of(second.next()), 2);
    EXPECT_EQ(int_of(first.next()), 3);
    EXPECT_EQ(repr("next(g)"), "4"); // and with the Python code that holds it
    EXPECT_TRUE(StopIteration::test(second.next()));
}

TEST_F(ContainerProxies, AGeneratorThatRaisesGivesItsError) {
    run("def failing():\n"
        "    yield 1\n"
        "    raise ValueError('broken in the body')\n"
        "g = failing()");
    I_Iterator_Generic iterator = I_Iterable_Generic::unsafe(proxy("g")).iter().as<I_Iterator_Generic>();
    EXPECT_EQ(int_of(iterator.next()), 1);
    Any failed = iterator.next();
    EXPECT_FALSE(StopIteration::test(failed));
    EXPECT_EQ(message_of(failed), "broken in the body");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_TRUE(StopIteration::test(iterator.next())); // a finished generator
}

TEST_F(ContainerProxies, EveryWayAnIteratorEndsIsTheEnd) {
    // A class's __next__ raises StopIteration itself (with a value, or a
    // subclass of it); a C iterator just stops. Each is the host's end, and
    // no Python error stays behind; any other exception is an error.
    run("class Counting:\n"
        "    def __init__(self, stop, ending):\n"
        "        self.n, self.stop, self.ending = 0, stop, ending\n"
        "    def __iter__(self):\n"
        "        return self\n"
        "    def __next__(self):\n"
        "        self.n += 1\n"
        "        if self.n > self.stop:\n"
        "            raise self.ending\n"
        "        return self.n\n"
        "class Finished(StopIteration): pass\n"
        "with_value = Counting(2, StopIteration('a value'))\n"
        "subclass = Counting(1, Finished())\n"
        "failing = Counting(1, LookupError('not stopped'))\n"
        "builtin = iter(range(2))");
    for (char const* name : {"with_value", "subclass", "builtin"}) {
        Any end;
        std::vector<Any> items = drain(I_Iterable_Generic::unsafe(proxy(name)).iter().as<I_Iterator_Generic>(), end);
        EXPECT_FALSE(items.empty()) << name;
        EXPECT_TRUE(StopIteration::test(end)) << name << ": " << display(end).toUtf8();
        EXPECT_EQ(PyErr_Occurred(), nullptr) << name;
    }
    I_Iterator_Generic failing = I_Iterable_Generic::unsafe(proxy("failing")).iter().as<I_Iterator_Generic>();
    EXPECT_EQ(int_of(failing.next()), 1);
    Any failed = failing.next();
    EXPECT_FALSE(StopIteration::test(failed));
    EXPECT_EQ(message_of(failed), "not stopped");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(ContainerProxies, IterableContainsAsksContainsAndNeverIterates) {
    run("g = (x for x in [1, 2])\nf = frozenset({1, 2})");
    Any generator = proxy("g");
    std::string missing = message_of(I_Iterable_Generic::unsafe(generator).contains(Integer(1)));
    EXPECT_EQ(missing, "The method is missing: __contains__, target object: " + display(generator).toUtf8() + ".");
    EXPECT_EQ(repr("list(g)"), "[1, 2]"); // nothing consumed
    I_Iterable_Generic frozen = I_Iterable_Generic::unsafe(proxy("f"));
    EXPECT_TRUE(bool_of(frozen.contains(Integer(2))));
    EXPECT_FALSE(bool_of(frozen.contains(Integer(3))));
    // The member takes immutable values only.
    EXPECT_TRUE(frozen.contains(List()).isError());
}

TEST_F(ContainerProxies, DictViewIteratesInOrder) {
    run("d = {'a': 1, 'b': 2}");
    I_Iterable_Generic values = I_Iterable_Generic::unsafe(proxy("d.values()"));
    Any end;
    EXPECT_EQ(ints_of(drain(values.iter().as<I_Iterator_Generic>(), end)), (std::vector<std::int64_t>{1, 2}));
    EXPECT_TRUE(StopIteration::test(end));
}

TEST_F(ContainerProxies, IterableAndIteratorWithoutAnObject) {
    I_Iterable_Generic iterable = I_Iterable_Generic::unsafe(empty_proxy(cpython_proxy_iterable_class()));
    EXPECT_EQ(message_of(iterable.iter()), "Invalid object.");
    EXPECT_EQ(message_of(iterable.contains(Integer(1))), "The object is null.");
    I_Iterator_Generic iterator = I_Iterator_Generic::unsafe(empty_proxy(cpython_proxy_iterator_class()));
    EXPECT_EQ(message_of(iterator.next()), "The object is null.");
}

TEST_F(ContainerProxies, ProxiesHoldOneReferenceAndLeakNothing) {
    PyObjectPtr list = eval("[1, 2, 3]");
    {
        Any warm = from_python(list.get());
        (void)I_Sequence_Generic::unsafe(warm).at(0); // first use builds what lives for the process
        (void)I_Iterable_Generic::unsafe(warm).iter();
    }
    std::int64_t live = internal::live_object_count();
    Py_ssize_t references = Py_REFCNT(list.get());
    for (int i = 0; i < 50; ++i) {
        Any xs = from_python(list.get());
        EXPECT_EQ(int_of(I_Sequence_Generic::unsafe(xs).at(1)), 2);
        auto iterator = I_Iterable_Generic::unsafe(xs).iter();
        Any end;
        EXPECT_EQ(drain(iterator.as<I_Iterator_Generic>(), end).size(), 3u);
    }
    EXPECT_EQ(internal::live_object_count(), live);
    EXPECT_EQ(Py_REFCNT(list.get()), references);
}


// ---- the host's interface calls ---------------------------------------------
// The proxy classes answer the hot interface calls natively; whatever would
// have answered through the members still does.

Any override_at(Any const&, std::int64_t index) { return String("override {}").arg(Integer(index)); }

void fill_derived_sequence(class_builder_base& builder) {
    builder.bases({cpython_proxy_sequence_class()});
    declare_python_object_instances(builder);
    builder.method(method_builder_base(String("at"))
                       .assign_func(make_closure(&override_at))
                       .signature(String("self, index"))
                       .build());
}

TEST_F(ContainerProxies, InterfaceCallsReachOverridesAndOwnMembers) {
    static class_accessor const derived{"DerivedProxySequence", &fill_derived_sequence};
    PyObjectPtr list = eval("[10, 20, 30]");
    I_Sequence_Generic child = I_Sequence_Generic::unsafe(make_python_object(derived(), list.get()));
    EXPECT_EQ(display(child.at(1)).toUtf8(), "override 1");
    EXPECT_EQ(int_of(child.atOr(1, Any())), 20) << "what it does not override is the proxy's";

    // Members set on a proxy go to its Python object, where they change
    // nothing of what the host's calls reach.
    run("class Items(list): pass\nitems = Items([1, 2])");
    I_Sequence_Generic items = I_Sequence_Generic::unsafe(proxy("items"));
    ASSERT_FALSE(insert_method(items, String("at"), make_closure(&override_at)).isError());
    EXPECT_EQ(repr("callable(items.at)"), "True");
    EXPECT_EQ(int_of(items.at(1)), 2);
    run("del items.at"); // the host callable goes with the test
}

TEST_F(ContainerProxies, InterfaceCallsFailCleanly) {
    run("xs = [1, 2]\nd = {'a': 1}\ndef failing():\n    yield 1\n    raise KeyError('gone')\nit = failing()");
    I_Sequence_Generic xs = I_Sequence_Generic::unsafe(proxy("xs"));
    EXPECT_EQ(message_of(xs.at(5)), "list index out of range");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    I_Map_Generic d = I_Map_Generic::unsafe(proxy("d"));
    EXPECT_EQ(message_of(d.get(proxy("[1]"))), "unhashable type: 'list'");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_TRUE(d.get(String("b")).isNone()) << "a missing key gives the member's default";
    EXPECT_TRUE(starts_with(message_of(d.get(formless())), "Unable to convert an argument: "));
    I_Iterator_Generic it = I_Iterable_Generic::unsafe(proxy("it")).iter().as<I_Iterator_Generic>();
    Any item;
    EXPECT_TRUE(it.advance(item));
    EXPECT_EQ(int_of(item), 1);
    EXPECT_TRUE(it.advance(item)) << "an error is an item, as next() gives it";
    EXPECT_EQ(message_of(item), "'gone'");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_FALSE(it.advance(item));
    EXPECT_EQ(repr("xs"), "[1, 2]");
    EXPECT_EQ(repr("d"), "{'a': 1}");
}

TEST_F(ContainerProxies, InterfaceCallsOnProxiesFromASandboxRunInIt) {
    std::filesystem::path const path = std::filesystem::temp_directory_path() / "container_proxy_sandbox_probe";
    std::string const writer = "lambda *_: open(r'" + path.string() + "', 'w')";
    std::string const sequence = "type('S', (), {'__getitem__': " + writer + ", '__len__': lambda self: 1})()";
    std::string const mapping = "type('M', (dict,), {'__contains__': " + writer + "})()";
    std::string const iterator = "(open(r'" + path.string() + "', 'w') for _ in range(1))";
    auto made = [](std::string const& expression) {
        Any value = evaluate_expression_in_sandbox(String(expression), Union<EvaluationScope, None>());
        EXPECT_FALSE(value.isError()) << message_of(value);
        return value;
    };
    EXPECT_EQ(message_of(I_Sequence_Generic::unsafe(made(sequence)).at(0)), "write blocked: read-only sandbox");
    EXPECT_EQ(message_of(I_Map_Generic::unsafe(made(mapping)).get(String("k"))), "write blocked: read-only sandbox");
    I_Iterator_Generic it = I_Iterable_Generic::unsafe(made(iterator)).iter().as<I_Iterator_Generic>();
    EXPECT_EQ(message_of(it.next()), "write blocked: read-only sandbox");
    EXPECT_FALSE(std::filesystem::exists(path));
    std::filesystem::remove(path);
}

} // namespace
} // namespace tesk::cpython::testing
