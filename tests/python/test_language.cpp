// CPythonLanguage as the host sees it: its class, its constant members, the
// functions of tesk.cpython, the importer of host modules and search paths.
#include "language_test_support.h"


namespace tesk::cpython::testing {
namespace {

Any module_member(char const* name) {
    auto module = find_module("tesk.cpython");
    if (!module) return Error("no module tesk.cpython");
    for (auto const& [member, callable] : module.value().callables())
        if (member == name) return callable;
    return Error(String("no function {}").arg(name));
}

Any call_module_function(char const* name, std::initializer_list<Any> args) {
    Any function = module_member(name);
    if (function.isError()) return function;
    Any result = internal::result_unwrap_lazy(I_Callable_Generic::unsafe(function)(args));
    EXPECT_FALSE(python_error_pending()) << name << " left a Python exception pending";
    return result;
}

TEST(Language, ClassIsRegisteredWithItsModuleAndInterface) {
    Class_Generic cls = language_class();
    ASSERT_TRUE(cls.hasValue());
    EXPECT_EQ(cls.name(), "CPythonLanguage");
    EXPECT_TRUE(cls.is_ancestor(PythonLanguage::getClass()));
    EXPECT_EQ(cls.doc(), "Implementation of 'I_Language' interface for Python language.");
    for (char const* member : {"__init__", "evaluate", "evaluateExpression", "evaluateInSandbox",
                               "evaluateExpressionInSandbox", "resolve", "toCode", "importAllModules"})
        EXPECT_TRUE(cls.definedMethod(member).has_value()) << member;
}

TEST(Language, NameAndCanEvaluateAnswer) {
    Any instance = call_language("__init__", {});
    EXPECT_EQ(string_of(instance.propertyValue("name")), "CPython");
    Any canEvaluate = instance.propertyValue("canEvaluate");
    ASSERT_TRUE(Boolean::test(canEvaluate));
    EXPECT_TRUE(Boolean::unsafe(canEvaluate).value());
}

TEST(Language, InitAndInstanceGiveTheSameObject) {
    Any first = call_language("__init__", {});
    Any second = call_language("__init__", {});
    ASSERT_TRUE(first.hasValue());
    EXPECT_TRUE(first.isSame(second));
    EXPECT_TRUE(first.isSame(first.propertyValue("instance")));
    EXPECT_TRUE(I_Language::test(first));
    EXPECT_TRUE(PythonLanguage::test(first));
}

TEST(Language, ModuleFunctionsRunWhatTheClassMembersRun) {
    EXPECT_EQ(integer_of(call_module_function("evaluate", {String("return 6 * 7")})), 42);
    EXPECT_EQ(integer_of(call_module_function("evaluate_expr", {String("6 * 7")})), 42);
    // The scope defaults to none.
    EXPECT_EQ(integer_of(call_module_function("evaluate", {String("return 1"), Any()})), 1);
    auto module = find_module("tesk.cpython");
    ASSERT_TRUE(module);
    EXPECT_EQ(string_of(module.value().propertyValue("doc")), "Interface to Python language.");
}

TEST(Language, ABadScopeArgumentIsAnError) {
    Any result = call_language("evaluate", {String("return 1"), Integer(5)});
    EXPECT_TRUE(result.isError());
}

TEST(Language, SandboxedMembersEvaluate) {
    EXPECT_EQ(integer_of(call_language("evaluateInSandbox", {String("return 2 + 3"), Any()})), 5);
    EXPECT_EQ(integer_of(call_language("evaluateExpressionInSandbox", {String("2 + 3"), Any()})), 5);
}

TEST(Language, ToCodeRendersPythonObjectsByReprAndHostValuesByTheHost) {
    Any list = evaluate_expression("[1, 'a', None]");
    ASSERT_FALSE(list.isError());
    EXPECT_EQ(string_of(call_language("toCode", {list})), "[1, 'a', None]");
    EXPECT_EQ(string_of(call_language("toCode", {Integer(42)})), "42");
    EXPECT_EQ(string_of(call_language("toCode", {String("it's")})), PythonLanguage::toCode(String("it's")).as<String>().toUtf8());
}

TEST(Language, ToCodeFallsBackWhenReprRaises) {
    Any object = evaluate("class Odd:\n    def __repr__(self):\n        raise ValueError('no repr')\nreturn Odd()");
    ASSERT_FALSE(object.isError()) << error_message(object);
    Any code = call_language("toCode", {object});
    // The host's rendering decides; what matters is that nothing is left pending.
    EXPECT_FALSE(python_error_pending());
    (void)code;
}

TEST(Language, PythonModuleHasItsDocAndIcon) {
    auto module = find_module("python");
    ASSERT_TRUE(module);
    EXPECT_TRUE(module.value().doc().startsWith("Python is an easy to learn"));
    EXPECT_EQ(string_of(module.value().propertyValue("icon")), ":/tesk/icons/py.svg");
}

TEST(Language, ExtensionDirectoryAndUserHomeAreSearched) {
    Any paths = evaluate("import sys\nreturn [p for p in sys.path if p.endswith('/site-packages') or p.endswith('Python313')]");
    ASSERT_FALSE(paths.isError()) << error_message(paths);
    Any text = call_language("toCode", {paths});
    EXPECT_NE(string_of(text).find("Brimora/Python313"), std::string::npos) << string_of(text);
}

TEST(Importer, ImportsHostModulesAsPythonModules) {
    // The parent package; a host program defines it with its own members.
    (void)get_module("tesk");
    Any result = evaluate("import tesk.cpython\nreturn callable(tesk.cpython.cpython_add_sys_path)");
    ASSERT_TRUE(Boolean::test(result)) << display(result).toUtf8();
    EXPECT_TRUE(Boolean::unsafe(result).value());
    EXPECT_EQ(string_of(evaluate("import tesk.cpython\nreturn tesk.cpython.doc")), "Interface to Python language.");
}

TEST(Importer, OnlyTheTeskNamespaceIsServed) {
    // "tesk" only as a later component, or as a mere prefix of the name.
    EXPECT_EQ(string_of(evaluate("try:\n    import python.tesk\nexcept ImportError as e:\n    return type(e).__name__")),
              "ModuleNotFoundError");
    EXPECT_EQ(string_of(evaluate("try:\n    import teskfoo\nexcept ImportError as e:\n    return type(e).__name__")),
              "ModuleNotFoundError");
    EXPECT_EQ(string_of(evaluate("try:\n    import tesk.no_such_module\nexcept ImportError as e:\n"
                                 "    return type(e).__name__")),
              "ModuleNotFoundError");
}

TEST(Importer, ImporterFunctionsCheckTheirArgument) {
    Any result = evaluate(
        "import sys\n"
        "finder = sys.meta_path[0]\n"
        "assert type(finder).__name__ == '_TeskModuleImporter'\n"
        "has = finder.find_spec.__globals__['_tesk_has_module']\n"
        "create = finder.find_spec.__globals__['_tesk_create_module']\n"
        "try:\n"
        "    create(42)\n"
        "except TypeError as e:\n"
        "    message = str(e)\n"
        "try:\n"
        "    create('tesk.no_such_module')\n"
        "except RuntimeError as e:\n"
        "    missing = str(e)\n"
        "return [has(42), has('tesk.cpython'), message, missing]");
    EXPECT_EQ(string_of(call_language("toCode", {result})),
              "[False, True, 'Tesk module name must be a string.', "
              "'[export_tesk_module] Unable to import the module.']");
}

} // namespace
} // namespace tesk::cpython::testing
