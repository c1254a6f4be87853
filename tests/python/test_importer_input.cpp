// Bad and unusual input for the importer of host modules and for the search
// paths: names that are not text or cannot be encoded, modules only named
// like tesk, hidden properties, unreadable and non-ASCII directories.
#include "extension/sys_path.h"
#include "language_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace tesk::cpython::testing {
namespace {

namespace fs = std::filesystem;

// Python code that reaches the importer's two functions as `has` and `create`.
constexpr char const* importer_functions = "import sys\n"
                                           "finder = next(f for f in sys.meta_path if type(f).__name__ == '_TeskModuleImporter')\n"
                                           "has = finder.find_spec.__globals__['_tesk_has_module']\n"
                                           "create = finder.find_spec.__globals__['_tesk_create_module']\n";

std::string run_to_code(std::string const& block) {
    Any result = evaluate(String(std::string(importer_functions) + block));
    if (result.isError()) return "error: " + result.error().message().toUtf8();
    return string_of(call_language("toCode", {result}));
}

TEST(ImporterInput, NamesThatAreNotTextAreRefusedCleanly) {
    EXPECT_EQ(run_to_code("return [has(None), has(b'tesk'), has(['tesk']), has(1.5)]"),
              "[False, False, False, False]");
    EXPECT_EQ(run_to_code("out = []\n"
                          "for name in (None, b'tesk', 3):\n"
                          "    try:\n"
                          "        create(name)\n"
                          "    except TypeError as e:\n"
                          "        out.append(str(e))\n"
                          "return out"),
              "['Tesk module name must be a string.', 'Tesk module name must be a string.', "
              "'Tesk module name must be a string.']");
    // A name that UTF-8 cannot encode (a lone surrogate) raises the encoding error.
    EXPECT_EQ(run_to_code("out = []\n"
                          "for f in (has, create):\n"
                          "    try:\n"
                          "        f('tesk.\\udcff')\n"
                          "    except UnicodeEncodeError as e:\n"
                          "        out.append(type(e).__name__)\n"
                          "return out"),
              "['UnicodeEncodeError', 'UnicodeEncodeError']");
    // A str subclass is a name like any other.
    EXPECT_EQ(run_to_code("class Name(str): pass\nreturn has(Name('tesk.cpython'))"), "True");
}

TEST(ImporterInput, AModuleOnlyNamedLikeTeskIsNotServed) {
    ASSERT_TRUE(get_module("teskish").is<Module>());
    ASSERT_TRUE(get_module("tesk").is<Module>());
    EXPECT_EQ(run_to_code("out = [has('teskish'), has('tesk')]\n"
                          "try:\n"
                          "    import teskish\n"
                          "except ImportError as e:\n"
                          "    out.append(type(e).__name__)\n"
                          "return out"),
              "[False, True, 'ModuleNotFoundError']");
}

TEST(ImporterInput, PropertiesWhoseNameStartsWithAtAreHidden) {
    auto found = get_module("tesk.importer_properties");
    ASSERT_TRUE(found.is<Module>());
    Module module = found.as<Module>();
    ASSERT_FALSE(insert_property_value(module, String("@hidden"), Integer(1)).isError());
    ASSERT_FALSE(insert_property_value(module, String("visible"), Integer(2)).isError());
    EXPECT_EQ(run_to_code("import tesk.importer_properties as m\n"
                          "return (m.visible, hasattr(m, '@hidden'), '@hidden' in vars(m))"),
              "(2, False, False)");
}

// A fresh directory below the temporary directory, removed afterwards.
class ScratchDirectory {
public:
    explicit ScratchDirectory(std::string const& prefix) {
        std::string pattern = (fs::temp_directory_path() / (prefix + "XXXXXX")).string();
        path_ = mkdtemp(pattern.data()) ? fs::path(pattern) : fs::path();
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        fs::permissions(path_ / "site-packages", fs::perms::owner_all, ignored);
        fs::remove_all(path_, ignored);
    }
    fs::path const& path() const { return path_; }

private:
    fs::path path_;
};

bool in_sys_path(std::string const& path) {
    Any result = evaluate("import sys\nreturn p in sys.path", scope_of(map_of({{"p", String(path)}})));
    return Boolean::test(result) && Boolean::unsafe(result).value();
}

TEST(ImporterInput, AnUnreadableOrMisplacedSitePackagesIsStillAdded) {
    ScratchDirectory unreadable("brimora-unreadable-");
    fs::create_directories(unreadable.path() / "site-packages");
    std::ofstream(unreadable.path() / "site-packages" / "a.zip") << "x";
    ASSERT_EQ(chmod((unreadable.path() / "site-packages").c_str(), 0), 0);
    add_library_paths(unreadable.path().string());
    EXPECT_FALSE(python_error_pending());
    EXPECT_TRUE(in_sys_path(unreadable.path().string() + "/site-packages"));
    // Root reads it anyway; everyone else walks nothing.
    if (geteuid() != 0) {
        EXPECT_FALSE(in_sys_path((unreadable.path() / "site-packages" / "a.zip").string()));
    }

    ScratchDirectory file("brimora-file-");
    std::ofstream(file.path() / "site-packages") << "not a directory";
    add_library_paths(file.path().string());
    EXPECT_FALSE(python_error_pending());
    EXPECT_TRUE(in_sys_path(file.path().string() + "/site-packages"));
}

TEST(ImporterInput, NonAsciiPathsArriveIntact) {
    ScratchDirectory dir("brimora-\xc3\xbc-\xe6\x97\xa5\xe6\x9c\xac-");
    fs::path const packages = dir.path() / "site-packages";
    fs::create_directories(packages);
    std::ofstream(packages / "nonascii_probe_module.py") << "value = 'found'\n";
    std::ofstream(packages / "arch\xc3\xadve.zip") << "x";
    add_library_paths(dir.path().string());
    EXPECT_TRUE(in_sys_path(dir.path().string() + "/site-packages"));
    EXPECT_TRUE(in_sys_path((packages / "arch\xc3\xadve.zip").string()));
    EXPECT_EQ(string_of(evaluate("import importlib\nimportlib.invalidate_caches()\n"
                                 "import nonascii_probe_module\nreturn nonascii_probe_module.value")),
              "found");
}

} // namespace
} // namespace tesk::cpython::testing
