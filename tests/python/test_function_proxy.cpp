// CPythonFunction: Python callables as host callables. Calls, names, docs,
// signatures worked out from annotations, defaults, compiling from source,
// and what bad input gives.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "language/language.h"
#include "proxies/function.h"
#include "proxies/function_source.h"
#include "to_python/to_python.h"

#include <filesystem>

namespace tesk::cpython::testing {
namespace {

class FunctionProxy : public PythonTest {
protected:
    // A function compiled from source; fails the test when it does not compile.
    I_Callable_Generic compiled(char const* source) {
        Union<CPythonFunction, Error> made = function_from_source(String(source));
        EXPECT_TRUE(made.is<CPythonFunction>()) << source << ": " << message_of(made);
        return I_Callable_Generic::unsafe(made);
    }
    // The host value of a Python expression.
    Any host(char const* expression) {
        PyObjectPtr object = eval(expression);
        return from_python(object.get());
    }
    static Signature signature_of(I_Callable_Generic const& function) {
        Union<Signature, Error> signature = function.signature();
        EXPECT_TRUE(signature.is<Signature>()) << message_of(signature);
        return signature.as<Signature>();
    }
    // The parameter types of a signature, by class name ("Any" for Untyped).
    static std::vector<std::string> parameter_types(Signature const& signature) {
        std::vector<std::string> names;
        for (Parameter const& p : signature.parameters()) names.push_back(p.type().name().toUtf8());
        return names;
    }
    // The host type that annotating a parameter with `annotation` gives.
    Type annotated_type(char const* annotation) {
        run((std::string("def annotated(x: ") + annotation + "): pass").c_str());
        Signature signature = signature_of(I_Callable_Generic::unsafe(host("annotated")));
        EXPECT_EQ(signature.parameters().size(), 1u);
        return signature.parameters().empty() ? Type::untyped() : signature.parameters()[0].type();
    }
    static std::int64_t integer(Any const& value) {
        EXPECT_TRUE(Integer::test(value)) << display(value).toUtf8();
        return Integer::test(value) ? Integer::unsafe(value).value() : -1;
    }
};

TEST_F(FunctionProxy, TheClass) {
    Class_Generic cls = cpython_function_class();
    EXPECT_EQ(cls.name().toUtf8(), "CPythonFunction");
    EXPECT_EQ(cls.qualname().toUtf8(), "tesk.cpython.CPythonFunction");
    EXPECT_EQ(cls.doc().toUtf8(), "Invokable wrapper around of a Python function.");
    EXPECT_EQ(cls.record()->option(), 10);
    for (Class_Generic base : {I_HasDoc::getClass(), I_HasName::getClass(), I_Callable_Generic::getClass(),
                               cpython_object_class()})
        EXPECT_TRUE(cls.is_ancestor(base)) << base.name().toUtf8();
    EXPECT_TRUE(cls.definedField(String("_sign")));
    EXPECT_TRUE(cls.definedField(String("_result_type")));
    auto defaults = cls.definedProperty(String("defaults"));
    ASSERT_TRUE(defaults);
    EXPECT_EQ(defaults.value().doc().toUtf8(), "Default values for arguments, can be overriden.");
    EXPECT_TRUE(cpython_function_class().isSame(cls)); // built once
    auto found = find_type(String("tesk.cpython.CPythonFunction"));
    ASSERT_TRUE(found);
    EXPECT_TRUE(found.value().isSame(cls));
}

TEST_F(FunctionProxy, EveryPythonCallableArrivesAsOne) {
    run("def plain(a, b):\n    '''Adds.'''\n    return a + b\n"
        "class Summing:\n"
        "    def __call__(self, *xs): return sum(xs)\n"
        "    def __iter__(self): return iter(())\n");
    for (char const* callable : {"plain", "lambda: 1", "Summing()", "len", "[].append"}) {
        Any value = host(callable);
        EXPECT_TRUE(CPythonFunction::test(value)) << callable;
        EXPECT_TRUE(I_Callable_Generic::test(value)) << callable;
        EXPECT_TRUE(I_Callable_Generic::unsafe(value).isIndependent()) << callable << ": the host passes no receiver";
    }
    // An instance with __call__ is called as Python calls it, even when it is
    // also iterable.
    Any summing = host("Summing()");
    EXPECT_EQ(integer(I_Callable_Generic::unsafe(summing)({Integer(1), Integer(2), Integer(3)})), 6);
    EXPECT_EQ(signature_of(I_Callable_Generic::unsafe(summing)).parameterCount(), 1) << "self is not a parameter";

    // The held object goes back to Python as itself.
    PyObjectPtr plain = eval("plain");
    PyObjectPtr back = to_python_ref(from_python(plain.get()));
    EXPECT_EQ(back.get(), plain.get());

    Union<CPythonFunction, Error> refused = function_from_object(eval("3").get());
    EXPECT_EQ(message_of(refused), "The source object isn't a function.");
}

TEST_F(FunctionProxy, TheHostCallsWithHostValuesAndGetsHostValues) {
    run("def add(a, b):\n    '''Adds two things.'''\n    return a + b\n");
    auto add = I_Callable_Generic::unsafe(host("add"));
    EXPECT_EQ(integer(add({Integer(40), Integer(2)})), 42);
    Any text = add({String("ab"), String("cd")});
    EXPECT_EQ(text_of(text), "abcd");
    Any number = add({Float(0.5), Integer(1)});
    ASSERT_TRUE(Float::test(number));
    EXPECT_EQ(Float::unsafe(number).value(), 1.5);

    // Every way the host calls reaches the same function.
    EXPECT_EQ(integer(add.callWith(List{Integer(1), Integer(2)})), 3);
    auto call = method_of(add, String("call"));
    ASSERT_TRUE(call);
    EXPECT_EQ(integer(call.value()({add, List{Integer(2), Integer(3)}})), 5);
    EXPECT_EQ(integer(add.callMethod(String("call"), std::vector<Any>{List{Integer(3), Integer(4)}})), 7);

    // Name and doc through the host's own interfaces and properties.
    EXPECT_EQ(add.name().toUtf8(), "add");
    EXPECT_EQ(add.doc().toUtf8(), "Adds two things.");
    EXPECT_EQ(text_of(add.propertyValue(String("name"))), "add");
    EXPECT_EQ(I_HasDoc::unsafe(add).doc().toUtf8(), "Adds two things.");
    auto nameProperty = property_of(add, String("name"));
    ASSERT_TRUE(nameProperty);
    EXPECT_EQ(text_of(nameProperty.value().get(add)), "add");
    EXPECT_EQ(compiled("lambda x: 0").doc().toUtf8(), "") << "a None doc string is empty text";
}

TEST_F(FunctionProxy, ALambdaCompilesThroughEval) {
    I_Callable_Generic twice = compiled("  lambda x: x * 2  ");
    Signature signature = signature_of(twice);
    ASSERT_EQ(signature.parameters().size(), 1u);
    EXPECT_EQ(signature.parameters()[0].name().toUtf8(), "x");
    EXPECT_TRUE(signature.parameters()[0].type().isUntyped());
    EXPECT_TRUE(signature.resultType().isUntyped());
    EXPECT_EQ(integer(twice({Integer(21)})), 42);
    EXPECT_EQ(twice.name().toUtf8(), "<lambda>");
}

TEST_F(FunctionProxy, ABareBodyBecomesAVariadicFunc) {
    I_Callable_Generic answer = compiled("return 42");
    EXPECT_EQ(answer.name().toUtf8(), "func");
    EXPECT_EQ(integer(answer({})), 42);
    Signature signature = signature_of(answer);
    ASSERT_EQ(signature.parameters().size(), 1u);
    EXPECT_EQ(signature.parameters()[0].name().toUtf8(), "args");
    EXPECT_TRUE(signature.hasVariadicParameters());
    EXPECT_EQ(integer(answer.propertyValue(String("parameterCount"))), 1);
    Any variadic = answer.propertyValue(String("hasVariadicParameters"));
    EXPECT_TRUE(Boolean::test(variadic) && Boolean::unsafe(variadic).value());

    // Several lines, each indented under the def; the arguments are `args`.
    I_Callable_Generic counted = compiled("n = len(args)\nif n > 1:\n    n = n * 10\nreturn n");
    EXPECT_EQ(integer(counted({Integer(7), Integer(8)})), 20);
    // The host's top-level modules are globals of the compiled code; those
    // internal to the host (importance 10) are not.
    (void)get_module(String("functionproxyseen"));
    get_module(String("functionproxyhidden")).as<Module>().setImportance(10);
    I_Callable_Generic seen =
        compiled("return str('functionproxyseen' in globals()) + str('functionproxyhidden' in globals())");
    EXPECT_EQ(text_of(seen({})), "TrueFalse");
}

TEST_F(FunctionProxy, AnnotationsGiveTypesAndDefaultsAreRead) {
    I_Callable_Generic area = compiled("def  area (a: int, b: str = 'x') -> float:\n    return a * 1.25");
    EXPECT_EQ(area.name().toUtf8(), "area");
    Signature signature = signature_of(area);
    EXPECT_EQ(parameter_types(signature), (std::vector<std::string>{"Integer", "String"}));
    EXPECT_TRUE(signature.resultType().isSame(Float::getClass()));
    EXPECT_TRUE(area.resultType().isSame(Float::getClass()));
    ASSERT_EQ(signature.defaults().size(), 1u);
    EXPECT_EQ(text_of(signature.defaults()[0]), "x");
    EXPECT_EQ(signature.requiredParameterCount(), 1);
    EXPECT_EQ(integer(area.propertyValue(String("requiredParameterCount"))), 1);
    Any defaults = area.propertyValue(String("defaults"));
    ASSERT_TRUE(List::test(defaults));
    ASSERT_EQ(List::unsafe(defaults).size(), 1u);
    EXPECT_EQ(text_of(List::unsafe(defaults).at(0)), "x");
    Any product = area({Integer(2)}); // Python fills in its own defaults
    ASSERT_TRUE(Float::test(product)) << display(product).toUtf8();
    EXPECT_EQ(Float::unsafe(product).value(), 2.5);
}

TEST_F(FunctionProxy, CollectionAnnotationsMapToTheHostCollections) {
    run("import typing, collections.abc");
    for (char const* list : {"list[int]", "typing.List[int]", "'list[int]'", "collections.abc.MutableSequence",
                             "collections.abc.Sequence", "'collections.abc.Sequence'"})
        EXPECT_TRUE(annotated_type(list).isSame(List::getClass())) << list;
    EXPECT_TRUE(annotated_type("dict[str, int]").isSame(HashMap::getClass()));
    EXPECT_TRUE(annotated_type("typing.Mapping[str, int]").isSame(HashMap::getClass()));
    EXPECT_TRUE(annotated_type("set[int]").isSame(HashSet::getClass()));
    EXPECT_TRUE(annotated_type("tuple[int, str]").isSame(Tuple::getClass()));
    EXPECT_TRUE(annotated_type("typing.Callable[[int], int]").isSame(I_Callable_Generic::getClass()));
    EXPECT_TRUE(annotated_type("bytes").isSame(ByteArray::getClass()));
    EXPECT_TRUE(annotated_type("bool").isSame(Boolean::getClass()));
}

TEST_F(FunctionProxy, AnyMissingAndNoneAnnotations) {
    run("import typing\n"
        "def loose(a, b: typing.Any, c: None) -> None: pass\n"
        "def unannotated(a): return a\n");
    Signature loose = signature_of(I_Callable_Generic::unsafe(host("loose")));
    ASSERT_EQ(loose.parameters().size(), 3u);
    EXPECT_TRUE(loose.parameters()[0].type().isUntyped());
    EXPECT_TRUE(loose.parameters()[1].type().isUntyped());
    EXPECT_TRUE(loose.parameters()[2].type().isSame(Type::none()));
    EXPECT_TRUE(loose.resultType().isSame(Type::none()));
    EXPECT_TRUE(I_Callable_Generic::unsafe(host("unannotated")).resultType().isUntyped());
}

TEST_F(FunctionProxy, UnionsMapAsTheirFirstMemberAndTextAsTheNameItSpells) {
    run("import typing");
    EXPECT_TRUE(annotated_type("int | None").isSame(Integer::getClass()));
    EXPECT_TRUE(annotated_type("typing.Optional[int]").isSame(Integer::getClass()));
    EXPECT_TRUE(annotated_type("'int | None'").isSame(Integer::getClass()));
    EXPECT_TRUE(annotated_type("'str|bytes'").isSame(String::getClass()));
    // Text names a type by its bare name: "Optional[int]" is looked up as
    // "Optional", which the host does not know.
    EXPECT_TRUE(annotated_type("'Optional[int]'").isUntyped());
    EXPECT_TRUE(annotated_type("'NoSuchTypeAnywhere'").isUntyped());
    // A name the host's registry knows gives that class, after the cuts.
    static Class_Generic const probe =
        class_builder_base(String("FunctionProxyProbe")).build().as<Class_Generic>();
    EXPECT_TRUE(annotated_type("'mod.FunctionProxyProbe[int] | None'").isSame(probe));
}

TEST_F(FunctionProxy, StringReturnAnnotationsAreEvaluated) {
    run("def listed() -> 'list[int]': return []\n"
        "def unknown() -> 'Nowhere[int]': return []\n");
    EXPECT_TRUE(I_Callable_Generic::unsafe(host("listed")).resultType().isSame(List::getClass()));
    // Not evaluable: the text is read as it is.
    EXPECT_TRUE(I_Callable_Generic::unsafe(host("unknown")).resultType().isUntyped());
}

TEST_F(FunctionProxy, TheSignatureIsKeptAndALaterDefaultsWriteLeavesIt) {
    run("def scaled(x, factor=2): return x * factor");
    Any scaled = host("scaled");
    Signature before = signature_of(I_Callable_Generic::unsafe(scaled));
    ASSERT_EQ(before.defaults().size(), 1u);

    EXPECT_FALSE(scaled.setPropertyValue(String("defaults"), List{Integer(10)}).isError());
    EXPECT_EQ(integer(I_Callable_Generic::unsafe(scaled)({Integer(3)})), 30) << "Python uses the new defaults";
    PyObjectPtr defaults = eval("scaled.__defaults__");
    EXPECT_TRUE(equal(defaults.get(), eval("(10,)").get()));

    Signature after = signature_of(I_Callable_Generic::unsafe(scaled));
    EXPECT_TRUE(after.isSame(before)) << "the kept signature";
    EXPECT_EQ(integer(after.defaults()[0]), 2);
    // A new proxy of the function works its signature out afresh.
    Signature fresh = signature_of(I_Callable_Generic::unsafe(host("scaled")));
    EXPECT_EQ(integer(fresh.defaults()[0]), 10);
}

TEST_F(FunctionProxy, TwoProxiesOfOneFunctionAreTheSame) {
    run("def one(): pass\ndef other(): pass");
    Any a = host("one");
    Any b = host("one");
    EXPECT_FALSE(a.isSame(b)) << "two host objects";
    auto same = [](Any const& x, Any const& y) { return x.callMethod(Any::$__isSame__, std::vector<Any>{y}); };
    EXPECT_TRUE(Boolean::cast(same(a, b)).value().value());
    EXPECT_FALSE(Boolean::cast(same(a, host("other"))).value().value());
    EXPECT_FALSE(Boolean::cast(same(a, host("object()"))).value().value()) << "a proxy that is no function";
    EXPECT_FALSE(Boolean::cast(same(a, Integer(1))).value().value());
}

TEST_F(FunctionProxy, SourceThatDefinesNoFunctionOrDoesNotCompile) {
    Union<CPythonFunction, Error> rebound = function_from_source(String("def f():\n    pass\nf = 3"));
    EXPECT_EQ(message_of(rebound), "Unable to find the function: f.");

    Union<CPythonFunction, Error> broken = function_from_source(String("def f(:\n    pass"));
    ASSERT_TRUE(broken.isError());
    EXPECT_NE(message_of(broken).find("SyntaxError"), std::string::npos) << message_of(broken);

    Union<CPythonFunction, Error> raising = function_from_source(String("def f():\n    pass\nraise ValueError('no')"));
    EXPECT_EQ(message_of(raising), "no");
}

TEST_F(FunctionProxy, TheNameOnTheFirstLineOfADef) {
    EXPECT_EQ(defined_function_name(String("def  area (r):\n    return r")).toUtf8(), "area");
    EXPECT_EQ(defined_function_name(String("  def f(a: int) -> int: return a")).toUtf8(), "f");
    EXPECT_EQ(defined_function_name(String("def\tg():")).toUtf8(), "g");
    for (char const* none : {"define = 1", "def", "def f()", "return 1", "lambda x: x", "deff():"})
        EXPECT_EQ(defined_function_name(String(none)).toUtf8(), "") << none;
}

TEST_F(FunctionProxy, BadDefaultsChangeNothing) {
    run("def scaled(x, factor=2): return x * factor");
    Any scaled = host("scaled");
    PyObjectPtr before = eval("scaled.__defaults__");

    Any notASequence = scaled.setPropertyValue(String("defaults"), Integer(3));
    ASSERT_TRUE(BadArgument::test(notASequence)) << display(notASequence).toUtf8();
    Error unconvertible(String("no Python form"));
    Any badItem = scaled.setPropertyValue(String("defaults"), List{Integer(1), unconvertible});
    EXPECT_EQ(message_of(badItem), "no Python form") << "the item's own error";

    PyObjectPtr after = eval("scaled.__defaults__");
    EXPECT_EQ(after.get(), before.get()) << "__defaults__ unchanged";
    EXPECT_EQ(integer(I_Callable_Generic::unsafe(scaled)({Integer(3)})), 6);
}

TEST_F(FunctionProxy, AnArgumentWithoutPythonFormCallsNothing) {
    run("calls = []\ndef record(*xs): calls.append(xs)");
    auto record = I_Callable_Generic::unsafe(host("record"));
    Error bad(String("unconvertible"));
    EXPECT_EQ(message_of(record({Integer(1), bad})), "unconvertible");
    EXPECT_EQ(message_of(record.callMethod(String("call"), std::vector<Any>{List{bad}})), "unconvertible");
    EXPECT_TRUE(equal(eval("len(calls)").get(), eval("0").get())) << "nothing was called";
}

TEST_F(FunctionProxy, ARaisingFunctionGivesItsError) {
    run("def fail(x):\n    raise ValueError('bad value: %d' % x)");
    Any failed = I_Callable_Generic::unsafe(host("fail"))({Integer(7)});
    EXPECT_EQ(message_of(failed), "bad value: 7");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    Any arity = I_Callable_Generic::unsafe(host("fail"))({});
    EXPECT_NE(message_of(arity).find("missing 1 required positional argument"), std::string::npos)
        << message_of(arity);
}

TEST_F(FunctionProxy, AProxyWithoutAnObject) {
    auto empty = I_Callable_Generic::unsafe(cpython_function_class().allocateInstance());
    EXPECT_TRUE(empty({Integer(1)}).isNone()) << "no value and no error";
    EXPECT_EQ(empty.name().toUtf8(), "");
    EXPECT_EQ(empty.doc().toUtf8(), "");
    Any defaults = empty.propertyValue(String("defaults"));
    ASSERT_TRUE(List::test(defaults));
    EXPECT_EQ(List::unsafe(defaults).size(), 0u);
    EXPECT_EQ(message_of(empty.signature()), "Unable to find the function.");
    EXPECT_TRUE(empty.resultType().isUntyped());
    EXPECT_EQ(message_of(empty.setPropertyValue(String("defaults"), List{})), "The object is null.");
}

TEST_F(FunctionProxy, AFunctionFromASandboxedEvaluationRunsInItsSandbox) {
    std::filesystem::path const path =
        std::filesystem::temp_directory_path() / "function_proxy_sandbox_probe";
    std::string const expression = "lambda: open(r'" + path.string() + "', 'w')";
    Result<Any> made = evaluate_expression_in_sandbox(String(expression), Union<EvaluationScope, None>());
    ASSERT_TRUE(CPythonFunction::test(made)) << message_of(made);
    Any opened = I_Callable_Generic::unsafe(made)({});
    EXPECT_EQ(message_of(opened), "write blocked: read-only sandbox");
    EXPECT_FALSE(std::filesystem::exists(path));
    std::filesystem::remove(path);
}

TEST_F(FunctionProxy, TheComparisonHelperIsCompiledThroughIt) {
    // Objects whose comparisons answer with truthy values other than True
    // reach the compiled comparison function of CPythonObject.
    run("class Vague:\n"
        "    def __init__(self, n): self.n = n\n"
        "    def __lt__(self, other): return int(self.n < other.n)\n"
        "    def __gt__(self, other): return int(self.n > other.n)\n"
        "    def __eq__(self, other): return int(self.n == other.n)\n");
    EXPECT_EQ(compare_objects(host("Vague(1)"), host("Vague(2)")), Ordering::less());
    EXPECT_EQ(compare_objects(host("Vague(3)"), host("Vague(2)")), Ordering::greater());
}

} // namespace
} // namespace tesk::cpython::testing
