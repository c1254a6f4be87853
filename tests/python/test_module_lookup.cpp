// Python modules in the host: resolving dotted names, values as Python
// source, modules exported as host modules, the language modules and the
// export of every module.
#include "language_test_support.h"

#include "python/python_ref.h"
#include "proxies/python_module.h"
#include "language/module_export.h"

#include <chrono>

namespace tesk::cpython::testing {
namespace {

Any resolve(char const* name) { return internal::result_unwrap_lazy(call_language("resolve", {String(name)})); }

// A Python module made from source, registered in sys.modules under `name`.
void define_python_module(char const* name, char const* source) {
    gil_guard gil;
    PyObjectPtr module = PyObjectPtr::steal(PyModule_New(name));
    ASSERT_TRUE(module);
    PyObject* dict = PyModule_GetDict(module.get());
    PyDict_SetItemString(dict, "__builtins__", PyEval_GetBuiltins());
    PyObjectPtr ran = PyObjectPtr::steal(PyRun_String(source, Py_file_input, dict, dict));
    ASSERT_TRUE(ran) << name;
    ASSERT_EQ(PyDict_SetItemString(PySys_GetObject("modules"), name, module.get()), 0);
}

Module module_named(char const* name) {
    auto found = find_module(String(name));
    EXPECT_TRUE(found.has_value()) << name;
    return found ? found.value() : Module::unsafe(Any());
}

bool has_named(auto const& members, char const* name) {
    for (auto const& [key, value] : members)
        if (key == name) return true;
    return false;
}

TEST(ModuleLookup, ResolveFindsModulesAndTheirObjects) {
    EXPECT_TRUE(resolve("").isNone());
    Any math = resolve("math");
    EXPECT_EQ(string_of(call_language("toCode", {math})).rfind("<module 'math'", 0), 0u);
    Any pi = resolve("math.pi");
    ASSERT_TRUE(Float::test(pi)) << display(pi).toUtf8();
    EXPECT_DOUBLE_EQ(Float::unsafe(pi).value(), 3.141592653589793);
    EXPECT_EQ(error_message(resolve("math.e2")), "Unable to find the object: math.e2.");
    EXPECT_NE(error_message(resolve("no_such_module.x")).find("No module named 'no_such_module'"), std::string::npos);
    Any join = resolve("os.path.join");
    ASSERT_TRUE(I_Callable_Generic::test(join));
    EXPECT_EQ(string_of(I_Callable_Generic::unsafe(join)({String("a"), String("b")})), "a/b");
    // A trailing dot names the module itself; other empty parts fail clearly.
    EXPECT_EQ(string_of(call_language("toCode", {resolve("os.")})).rfind("<module 'os'", 0), 0u);
    for (char const* odd : {"a..b", ".", ".os"}) {
        EXPECT_TRUE(resolve(odd).isError()) << odd;
        EXPECT_FALSE(python_error_pending()) << odd;
    }
}

TEST(ModuleLookup, ToCodeIsReprForPythonObjectsAndTheHostsFormOtherwise) {
    Any list = evaluate("return [1, 'two']");
    EXPECT_EQ(string_of(call_language("toCode", {list})), "[1, 'two']");
    EXPECT_EQ(string_of(call_language("toCode", {Integer(42)})), "42");
}

TEST(ModuleLookup, AModuleExportsItsPublicClassesAndCallables) {
    define_python_module("lookup_test_shapes", "'''Shapes.'''\n"
                                               "class Square:\n    pass\n"
                                               "def area(side): return side * side\n"
                                               "alias = area\n"
                                               "SIDES = 4\n"
                                               "def _hidden(): pass\n");
    gil_guard gil;
    PyObjectPtr python = PyObjectPtr::steal(PyImport_ImportModule("lookup_test_shapes"));
    ASSERT_TRUE(python);
    Module module = python_module(String("python.lookup_test_shapes"), python.get());
    EXPECT_EQ(module.name(), String("python.lookup_test_shapes"));
    EXPECT_EQ(module.doc(), String("Shapes."));
    EXPECT_TRUE(has_named(module.classes(), "Square"));
    EXPECT_TRUE(has_named(module.callables(), "area"));
    EXPECT_TRUE(has_named(module.callables(), "alias"));
    EXPECT_FALSE(has_named(module.callables(), "_hidden"));
    EXPECT_FALSE(has_named(module.callables(), "SIDES"));
    EXPECT_EQ(module.classes().size(), 1u);
    // Both names of one function: two callables over the same function.
    Any area, alias;
    for (auto const& [name, callable] : module.callables()) (name == "area" ? area : alias) = callable;
    EXPECT_FALSE(area.isSame(alias));
    EXPECT_TRUE(Boolean::unsafe(area.callMethod(Any::$__isSame__, std::initializer_list<Any>{alias})).value());
    // The members are read-only properties too, and the class is claimed by the module.
    Any byProperty = module.propertyValue(String("area"));
    ASSERT_TRUE(I_Callable_Generic::test(byProperty)) << display(byProperty).toUtf8();
    Any nine = internal::result_unwrap_lazy(I_Callable_Generic::unsafe(byProperty)({Integer(3)}));
    ASSERT_TRUE(Integer::test(nine)) << display(nine).toUtf8();
    EXPECT_EQ(Integer::unsafe(nine).value(), 9);
    Class_Generic square = module.classes().front().second;
    EXPECT_TRUE(square.declaringContext().isSame(module));
    // A snapshot: a function added later does not appear.
    PyObjectPtr ran = PyObjectPtr::steal(
        PyRun_String("def later(): pass", Py_file_input, PyModule_GetDict(python.get()), PyModule_GetDict(python.get())));
    EXPECT_FALSE(has_named(module.callables(), "later"));
    // Another module that imports the class leaves it with the first.
    define_python_module("lookup_test_more", "from lookup_test_shapes import Square\n__doc__ = None\n");
    PyObjectPtr more = PyObjectPtr::steal(PyImport_ImportModule("lookup_test_more"));
    Module second = python_module(String("python.lookup_test_more"), more.get());
    EXPECT_TRUE(square.declaringContext().isSame(module));
    EXPECT_TRUE(has_named(second.classes(), "Square"));
    EXPECT_EQ(second.doc(), String(""));
}

TEST(ModuleLookup, TheLanguageModulesExistAfterStartUp) {
    ASSERT_FALSE(evaluate("return 1").isError()); // started
    for (char const* name : {"python.builtins", "python.collections", "python.collections.abc", "python.datetime",
                             "python.decimal", "python.sys", "python.types", "python.typing"}) {
        EXPECT_TRUE(find_module(String(name)).has_value()) << name;
    }
    Module builtins = module_named("python.builtins");
    EXPECT_TRUE(has_named(builtins.callables(), "len"));
    EXPECT_TRUE(has_named(builtins.classes(), "ValueError"));
    // Dotted children are properties of their parents.
    Any abc = module_named("python.collections").propertyValue(String("abc"));
    EXPECT_TRUE(abc.isSame(module_named("python.collections.abc")));
}

TEST(ModuleLookup, ExportingAModuleThatFailsOrHasNoPathGivesNone) {
    define_python_module("lookup_test_broken_package", "__path__ = []\n");
    gil_guard gil;
    EXPECT_TRUE(export_python_module(String("no_such_module_here"), String("python.no_such_module_here"), true).isNone());
    EXPECT_FALSE(find_module(String("python.no_such_module_here")).has_value());
    Any exported = export_python_module(String("lookup_test_broken_package"), String("python.lookup_test_broken"), true);
    EXPECT_TRUE(Module::test(exported));
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST(ModuleLookup, ImportAllModulesExportsEveryModuleOnce) {
    Any first = call_language("importAllModules", {});
    EXPECT_FALSE(first.isError()) << error_message(first);
    EXPECT_TRUE(find_module(String("python.json")).has_value());
    EXPECT_TRUE(find_module(String("python.json.decoder")).has_value());
    EXPECT_TRUE(module_named("python").propertyValue(String("json")).isSame(module_named("python.json")));
    for (char const* left : {"python.this", "python.antigravity", "python._thread", "python.tkinter", "python.test"})
        EXPECT_FALSE(find_module(String(left)).has_value()) << left;
    // The second call does nothing.
    std::size_t const count = modules().size();
    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(call_language("importAllModules", {}).isError());
    EXPECT_EQ(modules().size(), count);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_FALSE(python_error_pending());
}

} // namespace
} // namespace tesk::cpython::testing
