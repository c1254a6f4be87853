// Host objects in Python: iteration, the sequence and mapping protocols,
// operators, and what each refuses.
#include "wrapper_test_classes.h"
#include "wrapper_test_support.h"

#include "to_python/wrapper.h"
#include "to_python/wrapper_protocol_slots.h"

#include <limits>

namespace tesk::cpython::testing {
namespace {

class WrapperProtocols : public WrapperTest {
protected:
    void SetUp() override {
        list_ = List{Integer(10), Integer(11), Integer(12), Integer(13), Integer(14)};
        (void)map_.set(String("a"), Integer(1));
        (void)map_.set(String("b"), Integer(2));
        (void)set_.insert(String("x"));
        bind_host("xs", list_);
        bind_host("m", map_);
        bind_host("s", set_);
        bind_host("g", make_gauge("main", 3));
    }
    std::vector<Any> items() { return list_.copyItems(); }
    List list_;
    HashMap map_;
    HashSet set_;
};

TEST_F(WrapperProtocols, HostContainersIterate) {
    expect_true("[x for x in xs] == [10, 11, 12, 13, 14]");
    expect_true("list(m) == ['a', 'b']");
    expect_true("list(s) == ['x'] and 'x' in s and 'y' not in s");
    // A host iterator ends with the host's StopIteration.
    bind_host("launch", make_launch(3));
    expect_true("list(launch) == [3, 2, 1]");
}

TEST_F(WrapperProtocols, HostListsIterateLive) {
    // Items appended during the loop are seen, items removed are not.
    bind_host("grow", List{Integer(1), Integer(2)});
    expect_true("[x for x in grow if (x < 4 and grow.append(x + 2)) or True] == [1, 2, 3, 4, 5]");
    bind_host("shrink", List{Integer(1), Integer(2), Integer(3)});
    expect_true("[x for x in shrink if shrink.pop() or True] == [1, 2]");
    expect_true("(lambda it: ([next(it) for _ in range(5)], next(it, 'end')))(iter(grow)) == ([1, 2, 3, 4, 5], 'end')");
    // An item changed ahead of the loop is seen, as a Python list's loop sees it.
    bind_host("ahead", List{Integer(1), Integer(2), Integer(3)});
    expect_true("[x for x in ahead if ahead.__setitem__(2, 30) or True] == [1, 2, 30]");
    // Two loops over one iterator share it: each item is taken once.
    bind_host("pairs", List{Integer(1), Integer(2), Integer(3), Integer(4), Integer(5)});
    expect_true("(lambda it: [(a, b) for a in it for b in it])(iter(pairs)) == [(1, 2), (1, 3), (1, 4), (1, 5)]");
}

TEST_F(WrapperProtocols, HostListItemsCrossAlikeByIndexAndByLoop) {
    // Integers of every range, other values and a nested list, whole.
    bind_host("mixed", List{Integer(-5), Integer(1000), Integer(INT64_MIN),
                            Integer::fromUnsigned(std::numeric_limits<std::uint64_t>::max()), String("s"), Float(1.5),
                            List{Integer(1)}, Any()});
    expect_true("[mixed[i] for i in range(len(mixed))] == list(mixed) == [-5, 1000, -2**63, 2**64 - 1, 's', 1.5, [1], None]");
    expect_true("type(mixed[6]) is type(xs) and mixed[6][0] == 1");
    // An error held as an item raises, read either way; StopIteration ends a loop.
    bind_host("errs", List{Error(String("held")), Integer(1)});
    EXPECT_EQ(raised_by("errs[0]"), raised_by("next(iter(errs))"));
    EXPECT_NE(raised_by("errs[0]").find("held"), std::string::npos);
    bind_host("stops", List{Integer(1), StopIteration(), Integer(2)});
    expect_true("list(stops) == [1] and stops[2] == 2");
    // Only an exact int inside the list is read directly; the rest keeps the
    // general path's answers.
    for (auto [use, raised] : {std::pair{"xs[True]", "KeyError: 'true'"},
                               {"xs[2**70]", "KeyError: 'int too big to convert'"},
                               {"xs[2**31]", "IndexError: Index out of range: 2147483648."},
                               {"xs[5]", "IndexError: Index out of range: 5."},
                               {"xs[-6]", "IndexError: Index out of range: -6."}})
        EXPECT_EQ(raised_by(use), raised) << use;
    run("class Small(int): pass\n");
    expect_true("xs[Small(1)] == 11 and xs.__getitem__(4) == 14 and list(xs[1:3]) == [11, 12]");
    EXPECT_EQ(items().size(), 5u);
}

TEST_F(WrapperProtocols, IteratorsAndWhatIsNotIterable) {
    bind_host("countdown", make_countdown(2));
    expect_true("next(countdown) == 2 and next(countdown) == 1");
    EXPECT_EQ(raised_by("next(countdown)"), "StopIteration: ");
    // An iterator is its own iterator, as Python's protocol asks.
    expect_true("iter(countdown) is countdown");
    bind_host("again", make_countdown(3));
    expect_true("list(again) == [3, 2, 1] and list(again) == []");
    // next() of a value that is no iterator ends at once.
    EXPECT_EQ(raised_by("next(g)"), "StopIteration: ");
    EXPECT_EQ(raised_by("iter(g)"), "TypeError: 'Gauge' object is not iterable.");
    bind_host("broken", make_countdown(-1));
    EXPECT_EQ(raised_by("next(broken)"), "RuntimeError: the countdown broke");
}

TEST_F(WrapperProtocols, SequencesIndexAndSlice) {
    expect_true("len(xs) == 5 and xs[1] == 11 and 12 in xs and 99 not in xs");
    expect_true("list(xs[1:10:2]) == [11, 13] and list(xs[0:3]) == [10, 11, 12]");
    expect_true("list(xs[::-2]) == [14, 12, 10] and list(xs[3:1]) == []");
    bind_host("empty", List());
    expect_true("bool(xs) and not empty"); // truth is the host length
    // A negative index goes to the host unchanged, which refuses it.
    EXPECT_EQ(raised_by("xs[-1]").rfind("IndexError", 0), 0u);
    EXPECT_EQ(raised_by("xs['a']"), "KeyError: 'a'");
    EXPECT_EQ(raised_by("xs['a':'b']").rfind("TypeError: slice indices", 0), 0u);
    run("xs[0] = 'first'\ndel xs[1]\n");
    ASSERT_EQ(items().size(), 4u);
    EXPECT_EQ(text_of(items()[0]), "first");
    EXPECT_EQ(Integer::cast(items()[1]).value().value(), 12);
    EXPECT_EQ(raised_by("xs.__setitem__(10, 1)").rfind("IndexError", 0), 0u);
    EXPECT_EQ(items().size(), 4u);
}

TEST_F(WrapperProtocols, MapsSubscriptAndChange) {
    expect_true("m['a'] == 1 and len(m) == 2 and 'b' in m and 'z' not in m");
    // A missing key is Python's KeyError with the key's text, not the host message.
    EXPECT_EQ(raised_by("m['missing']"), "KeyError: 'missing'");
    EXPECT_EQ(raised_by("m[[1]]").rfind("KeyError", 0), 0u); // a mutable key
    run("m['c'] = 3\ndel m['a']\n");
    EXPECT_EQ(map_.size(), 2u);
    EXPECT_FALSE(map_.contains(String("a")));
    EXPECT_EQ(Integer::cast(map_.find(String("c"))).value().value(), 3);
    EXPECT_EQ(raised_by("m.__delitem__('absent')"), "KeyError: 'absent'");
    EXPECT_EQ(map_.size(), 2u);
}

TEST_F(WrapperProtocols, HostContainersAreCollectionsAbcContainers) {
    run("import collections.abc as abc\n");
    expect_true("isinstance(xs, abc.MutableSequence) and isinstance(xs, abc.Sequence)");
    expect_true("isinstance(m, abc.MutableMapping) and isinstance(m, abc.Mapping)");
    expect_true("isinstance(s, abc.Set) and isinstance(iter(xs), abc.Iterator)");
    expect_true("not isinstance(xs, abc.Mapping) and not isinstance(m, abc.Sequence)");
    expect_true("not isinstance(g, abc.Sequence) and not isinstance(s, abc.Mapping)");
    // The protocols that come with the registration.
    expect_true("list(iter(xs)) == [10, 11, 12, 13, 14] and list(reversed(xs)) == [14, 13, 12, 11, 10]");
    expect_true("xs.index(12) == 2 and xs.count(11) == 1 and xs.count(99) == 0");
    EXPECT_EQ(raised_by("xs.index(99)").rfind("ValueError", 0), 0u);
    expect_true("dict(m) == {'a': 1, 'b': 2} and sorted(m.items()) == [('a', 1), ('b', 2)]");
    expect_true("list(m.keys()) == ['a', 'b'] and list(m.values()) == [1, 2]");
    expect_true("m.get('a') == 1 and m.get('z', 5) == 5 and m.get('z') is None");
    expect_true("{**m} == {'a': 1, 'b': 2} and s.isdisjoint(['y']) and len(s) == 1 and bool(s)");
    run("match xs:\n    case [first, *rest]: matched = first\n");
    expect_true("matched == 10");
    // The host's own members stay reachable, directly or, where a mapping
    // name is Python's, through __host__.
    expect_true("xs.length == 5 and xs.at(0) == 10 and xs.indexOf(12) == 2");
    expect_true("list(m.__host__.keys) == ['a', 'b'] and m.__host__.get('a') == 1");
    // Mixins change the host map through its own protocol.
    expect_true("m.setdefault('c', 3) == 3 and m.pop('a') == 1");
    EXPECT_EQ(map_.size(), 2u);
    EXPECT_FALSE(map_.contains(String("a")));
}

TEST_F(WrapperProtocols, HostContainersEqualPythonContainersBothWays) {
    expect_true("xs == [10, 11, 12, 13, 14] and [10, 11, 12, 13, 14] == xs");
    expect_true("xs != [10, 11] and [10, 11] != xs and not (xs == [10, 11])");
    expect_true("m == {'a': 1, 'b': 2} and {'b': 2, 'a': 1} == m");
    expect_true("m != {'a': 1} and {'a': 2, 'b': 2} != m");
    // A list is no tuple, and a map no list.
    expect_true("xs != (10, 11, 12, 13, 14) and m != ['a', 'b']");
}

TEST_F(WrapperProtocols, LookupFailuresAreLookupErrorsAndRuntimeErrors) {
    // Python's own protocols stop at IndexError: the iteration fallback, and
    // code written against RuntimeError still catches both.
    run("def caught(code):\n"
        "    try:\n"
        "        eval(code)\n"
        "    except Exception as e:\n"
        "        return (type(e).__name__, isinstance(e, IndexError), isinstance(e, KeyError),\n"
        "                isinstance(e, RuntimeError), str(e))\n");
    expect_true("caught('xs[10]') == ('IndexError', True, False, True, 'Index out of range: 10.')");
    expect_true("caught(\"m['zz']\") == ('KeyError', False, True, True, \"'zz'\")");
    expect_true("caught(\"xs.__setitem__(5, 1)\")[1:4] == (True, False, True)");
    expect_true("caught(\"m.__delitem__('zz')\")[1:4] == (False, True, True)");
    EXPECT_EQ(items().size(), 5u);
}

TEST_F(WrapperProtocols, ArgumentsWithoutAHostFormRaiseBeforeTheHostIsCalled) {
    // The conversion's own exception, and the host object is unchanged.
    for (char const* use : {"xs.append(2**70)", "xs.append(*[2**70])", "xs.append(value=2**70)",
                            "xs.__host__.append(2**70)", "xs.set(0, 2**70)", "xs.__setitem__(0, 2**70)"}) {
        EXPECT_EQ(raised_by(use).rfind("OverflowError", 0), 0u) << use;
        EXPECT_EQ(items().size(), 5u) << use;
    }
    for (char const* use : {"xs.append('abc\\udcffdef')", "xs.__setitem__(0, '\\ud800')", "m.__setitem__('\\ud800', 1)",
                            "m.__getitem__('\\ud800')", "'\\ud800' in xs", "m.set('k', '\\ud800')"}) {
        std::string raised = raised_by(use);
        EXPECT_EQ(raised.rfind("UnicodeEncodeError: 'utf-8' codec can't encode character", 0), 0u) << use << ": " << raised;
    }
    EXPECT_NE(raised_by("xs.append('abc\\udcffdef')").find("in position 3"), std::string::npos);
    EXPECT_EQ(items().size(), 5u);
    EXPECT_EQ(Integer::cast(items()[0]).value().value(), 10);
    EXPECT_EQ(map_.size(), 2u);
    // An exception object and a wrapped host error are values, not failures.
    run("xs.append(ValueError('kept'))\n");
    ASSERT_EQ(items().size(), 6u);
    EXPECT_EQ(message_of(items()[5]), "kept");
}

TEST_F(WrapperProtocols, OperatorsCallTheHostMetaMethods) {
    EXPECT_EQ(text("g + 1"), "__add__:1");
    EXPECT_EQ(text("g - 'x'"), "__sub__:x");
    EXPECT_EQ(text("g / 2"), "__div__:2");
    EXPECT_EQ(text("g & 1"), "__and__:1");
    EXPECT_EQ(text("g | 1"), "__or__:1");
    EXPECT_EQ(text("g ^ 1"), "__xor__:1");
    EXPECT_EQ(text("~g"), "__not__:main");
    // In-place operators rebind to whatever the host method returns.
    run("h = g\nh += 1\nk = g\nk -= 1\n");
    expect_true("h == 7 and k is None");
    // Only the wrapper's own operand order reaches the host.
    EXPECT_EQ(raised_by("2 - g").rfind("TypeError", 0), 0u);
}

TEST_F(WrapperProtocols, MissingOperatorsRaiseNotImplementedError) {
    std::string shown = display(list_).toUtf8();
    EXPECT_EQ(raised_by("xs + [1]"), "NotImplementedError: [tesk_sequence_concat] None method 'concat' in: " + shown);
    EXPECT_EQ(raised_by("xs * 2"), "NotImplementedError: [tesk_sequence_repeat] None method 'repeat' in: " + shown + ".");
    EXPECT_EQ(raised_by("xs - 1"), "NotImplementedError: [tesk_number_subtract] None method '__sub__' in: " + shown);
    EXPECT_EQ(raised_by("xs / 1"), "NotImplementedError: [tesk_number_divide] None method '__div__' in: " + shown + ".");
    EXPECT_EQ(raised_by("xs & 1"), "NotImplementedError: [tesk_number_and] None method in: " + shown);
    EXPECT_EQ(raised_by("~xs"), "NotImplementedError: [tesk_number_not] None method '__not__' in: " + shown);
    // A list extends in place; its extend gives none, which += binds.
    bind_host("more", List{Integer(15)});
    run("ys = xs\nys += more\n");
    expect_true("ys is None");
    EXPECT_EQ(items().size(), 6u);
}

TEST_F(WrapperProtocols, AnErrorHeldByAWrapperIsRaisedByEverySlot) {
    PyObjectPtr held = PyObjectPtr::steal(new_wrapper(Error(String("held error"))));
    ASSERT_TRUE(held);
    bind("e", held.get());
    for (char const* use : {"e + 1", "e - 1", "iter(e)", "e.anything"})
        EXPECT_EQ(raised_by(use), "RuntimeError: held error") << use;
}

TEST_F(WrapperProtocols, SlotsReachedWithoutAWrapperRefuse) {
    PyObjectPtr list = eval("[1]");
    EXPECT_EQ(tesk_length(list.get()), -1);
    EXPECT_EQ(take_exception_text(), "TypeError: Object is not a Tesk sequence.");
    EXPECT_EQ(tesk_contains(list.get(), list.get()), 0);
    PyObjectPtr missing = PyObjectPtr::steal(tesk_subscript(list.get(), eval("'k'").get()));
    EXPECT_EQ(take_exception_text(), "KeyError: 'k'");
    PyObjectPtr notImplemented = PyObjectPtr::steal(tesk_number_subtract(list.get(), list.get()));
    EXPECT_EQ(notImplemented.get(), Py_NotImplemented);
    // Through the type's descriptor, a refused value raises the host's message alone.
    std::string refused = raised_by("type(g).level.__set__(g, 'x')");
    EXPECT_EQ(refused.rfind("RuntimeError: Bad argument", 0), 0u) << refused;
}

TEST_F(WrapperProtocols, TextAndOrderFallBackGracefully) {
    // str() of a value that is no text shows its display text instead of raising.
    Any gauge = make_gauge("shown", 1);
    bind_host("shown", gauge);
    EXPECT_EQ(text("str(shown)"), display(gauge).toUtf8());
    // Values the host cannot order: only != holds.
    expect_true("(g == 1, g != 1, g < 1, g >= 1) == (False, True, False, False)");
}

} // namespace
} // namespace tesk::cpython::testing
