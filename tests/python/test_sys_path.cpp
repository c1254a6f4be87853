// Module search paths: the packages beside the library, the per-user home,
// and cpython_add_sys_path.
#include "extension/sys_path.h"
#include "language_test_support.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>
#include <unistd.h>

namespace tesk::cpython::testing {
namespace {

namespace fs = std::filesystem;

// sys.path, one path per item.
std::vector<std::string> sys_path() {
    std::vector<std::string> result;
    for (String const& path : String::unsafe(evaluate_expression("'\\n'.join(__import__('sys').path)")).split('\n'))
        result.push_back(path.toUtf8());
    return result;
}

std::ptrdiff_t index_in(std::vector<std::string> const& paths, std::string const& path) {
    auto found = std::find(paths.begin(), paths.end(), path);
    return found == paths.end() ? -1 : found - paths.begin();
}

// A fresh directory below the system's temporary directory, removed afterwards.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = (fs::temp_directory_path() / "brimora-h4-XXXXXX").string();
        path_ = mkdtemp(pattern.data()) ? fs::path(pattern) : fs::path();
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    fs::path const& path() const { return path_; }

private:
    fs::path path_;
};

void touch(fs::path const& file) { std::ofstream(file) << "x"; }

// Sets (or, with nullopt, unsets) an environment variable for the lifetime of
// the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(char const* name, std::optional<std::string> value) : name_(name) {
        if (char const* old = std::getenv(name)) saved_ = old;
        if (value) setenv(name, value->c_str(), 1);
        else unsetenv(name);
    }
    ~ScopedEnvironment() {
        if (saved_) setenv(name_, saved_->c_str(), 1);
        else unsetenv(name_);
    }

private:
    char const* name_;
    std::optional<std::string> saved_;
};

TEST(SysPath, AddsAPathOnceThroughTheModuleFunction) {
    auto module = find_module("tesk.cpython");
    ASSERT_TRUE(module);
    I_Callable_Generic add = I_Callable_Generic::unsafe(Any());
    for (auto const& [name, callable] : module.value().callables())
        if (name == "cpython_add_sys_path") add = callable;
    ASSERT_TRUE(add.hasValue());
    String const path = "/tmp/brimora-h4-added-once";
    EXPECT_TRUE(add({path}).isNone());
    EXPECT_TRUE(add({path}).isNone());
    EXPECT_FALSE(python_error_pending());
    auto paths = sys_path();
    EXPECT_EQ(std::count(paths.begin(), paths.end(), path.toUtf8()), 1);
    // Not text: refused by the function's parameter type.
    EXPECT_TRUE(add({Integer(3)}).isError());
}

TEST(SysPath, TheQueueHoldsPathsUntilTheStartUpTakesThem) {
    sys_path_queue queue;
    EXPECT_TRUE(queue.queue(String("/a"), false));
    EXPECT_TRUE(queue.queue(String("/b"), false));
    // An interpreter that something else started takes paths directly.
    EXPECT_FALSE(queue.queue(String("/c"), true));
    EXPECT_EQ(queue.take(), (std::vector<String>{String("/a"), String("/b")}));
    // Taken once: every later path goes straight to sys.path, even while the
    // interpreter is not reported as running yet.
    EXPECT_FALSE(queue.queue(String("/d"), false));
    EXPECT_TRUE(queue.take().empty());
}

TEST(SysPath, APathAddedWhileTheStartUpTakesTheQueueIsNeverLost) {
    // Each path ends up either in what the start-up took or back with its
    // caller, who adds it directly; none falls in between, however the
    // threads interleave.
    constexpr int adders = 3;
    constexpr int pathsEach = 200;
    for (int round = 0; round < 20; ++round) {
        sys_path_queue queue;
        std::atomic<int> refused{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < adders; ++t) {
            threads.emplace_back([&, t] {
                while (!go.load()) std::this_thread::yield();
                for (int i = 0; i < pathsEach; ++i)
                    if (!queue.queue(String("/p" + std::to_string(t) + "-" + std::to_string(i)), false)) ++refused;
            });
        }
        std::vector<String> taken;
        std::thread startUp([&] {
            while (!go.load()) std::this_thread::yield();
            std::this_thread::yield();
            taken = queue.take();
        });
        go = true;
        for (auto& thread : threads) thread.join();
        startUp.join();
        ASSERT_EQ(static_cast<int>(taken.size()) + refused.load(), adders * pathsEach) << "round " << round;
    }
}

TEST(SysPath, LibraryPathsAddZipArchivesAndSitePackages) {
    TemporaryDirectory dir;
    fs::path const sitePackages = dir.path() / "site-packages";
    fs::path const lib = dir.path() / "python3" / "lib";
    fs::create_directories(sitePackages / "folder.zip");
    fs::create_directories(lib);
    touch(sitePackages / "a.zip");
    touch(sitePackages / "UPPER.ZIP");
    touch(sitePackages / ".zip");
    touch(sitePackages / "notes.txt");
    touch(lib / "d.zip");

    add_library_paths(dir.path().string());
    EXPECT_FALSE(python_error_pending());
    auto paths = sys_path();
    std::ptrdiff_t const archive = index_in(paths, (sitePackages / "a.zip").string());
    std::ptrdiff_t const packages = index_in(paths, dir.path().string() + "/site-packages");
    std::ptrdiff_t const libArchive = index_in(paths, (lib / "d.zip").string());
    EXPECT_GE(archive, 0);
    EXPECT_GT(packages, archive);
    EXPECT_GT(libArchive, packages);
    for (char const* left_out : {"UPPER.ZIP", "folder.zip", ".zip", "notes.txt"})
        EXPECT_EQ(index_in(paths, (sitePackages / left_out).string()), -1) << left_out;
    EXPECT_EQ(index_in(paths, lib.string()), -1);
}

TEST(SysPath, MissingSitePackagesIsStillAdded) {
    TemporaryDirectory dir;
    add_library_paths(dir.path().string());
    EXPECT_GE(index_in(sys_path(), dir.path().string() + "/site-packages"), 0);
}

TEST(SysPath, ExtensionDirectoryIsThisProgramsDirectory) {
    // The library's objects are linked into this test program.
    EXPECT_EQ(fs::path(extension_directory()), fs::canonical("/proc/self/exe").parent_path());
}

TEST(SysPath, UserHomeFollowsTheEnvironment) {
    ScopedEnvironment local("LOCALAPPDATA", "/la");
    ScopedEnvironment profile("USERPROFILE", "/up");
    ScopedEnvironment xdg("XDG_DATA_HOME", "/xdg");
    ScopedEnvironment home("HOME", "/home/someone");
    EXPECT_EQ(user_python_home(), fs::path("/la/Brimora/Python313"));
    {
        ScopedEnvironment empty("LOCALAPPDATA", "");
        EXPECT_EQ(user_python_home(), fs::path("/up/AppData/Local/Brimora/Python313"));
        ScopedEnvironment noProfile("USERPROFILE", std::nullopt);
        EXPECT_EQ(user_python_home(), fs::path("/xdg/Brimora/Python313"));
        ScopedEnvironment noXdg("XDG_DATA_HOME", std::nullopt);
        EXPECT_EQ(user_python_home(), fs::path("/home/someone/.local/share/Brimora/Python313"));
        ScopedEnvironment noHome("HOME", std::nullopt);
        EXPECT_TRUE(user_python_home().empty());
    }
}

TEST(SysPath, UserHomeIsCreatedAndAdded) {
    TemporaryDirectory dir;
    ScopedEnvironment local("LOCALAPPDATA", dir.path().string());
    add_user_home();
    fs::path const home = dir.path() / "Brimora" / "Python313";
    EXPECT_TRUE(fs::is_directory(home));
    EXPECT_GE(index_in(sys_path(), home.string()), 0);
}

} // namespace
} // namespace tesk::cpython::testing
