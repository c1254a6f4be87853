// The sandbox as the host uses it: evaluateInSandbox and
// evaluateExpressionInSandbox refuse writes and the listed operations with
// PermissionError inside the Python code; the guard nests and restores what
// it changed; the flag belongs to one thread.
#include "language/code_compiler.h"
#include "python/sandbox_guard.h"
#include "language_test_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace tesk::cpython::testing {
namespace {

namespace fs = std::filesystem;

constexpr char const* write_blocked = "write blocked: read-only sandbox";
constexpr char const* operation_blocked = "operation blocked in sandbox";

Any sandboxed(String const& code, Any const& scope = Any()) { return call_language("evaluateInSandbox", {code, scope}); }

// A directory of its own for each test, with one file that may be read.
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "brimora-sandbox-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        std::ofstream(dir_ / "existing") << "content";
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    // The scope with `d`, the directory, as a local.
    EvaluationScope scope() const { return scope_of(map_of({{"d", String(dir_.string())}})); }
    // What the block returns, or "PermissionError: message" when it raises that.
    std::string attempt(char const* block) {
        string_builder code;
        code << "try:\n";
        for (String const& line : String(block).split('\n')) code << "    " << line << '\n';
        code << "except PermissionError as e:\n    return 'PermissionError: ' + str(e)\n";
        Any result = sandboxed(code.str(), scope());
        if (result.isError()) return "error: " + result.error().message().toUtf8();
        return String::test(result) ? string_of(result) : display(result).toUtf8();
    }
    fs::path dir_;
};

std::string refused(char const* message) { return std::string("PermissionError: ") + message; }

TEST_F(SandboxTest, OpeningForWritingIsRefusedWithItsOwnMessage) {
    for (char const* mode : {"w", "a", "x", "r+", "wb", "ab+"}) {
        std::string block = std::string("open(d + '/existing', '") + mode + "')\nreturn 'opened'";
        EXPECT_EQ(attempt(block.c_str()), refused(write_blocked)) << mode;
    }
    EXPECT_EQ(attempt("open(d + '/new', 'w')\nreturn 'opened'"), refused(write_blocked));
    EXPECT_FALSE(fs::exists(dir_ / "new"));
    std::string content;
    std::getline(std::ifstream(dir_ / "existing"), content);
    EXPECT_EQ(content, "content");
}

TEST_F(SandboxTest, ReadingStaysAllowed) {
    EXPECT_EQ(attempt("with open(d + '/existing') as f:\n    return f.read()"), "content");
    EXPECT_EQ(attempt("with open(d + '/existing', 'r') as f:\n    return f.read()"), "content");
    EXPECT_EQ(attempt("with open(d + '/existing', 'rb') as f:\n    return f.read().decode()"), "content");
    EXPECT_EQ(attempt("import os\nfd = os.open(d + '/existing', os.O_RDONLY)\nos.close(fd)\nreturn 'read'"), "read");
}

TEST_F(SandboxTest, OsOpenIsJudgedByItsFlags) {
    EXPECT_EQ(attempt("import os\nos.open(d + '/existing', os.O_WRONLY)"), refused(write_blocked));
    EXPECT_EQ(attempt("import os\nos.open(d + '/existing', os.O_RDWR)"), refused(write_blocked));
    EXPECT_EQ(attempt("import os\nos.open(d + '/created', os.O_RDONLY | os.O_CREAT)"), refused(write_blocked));
    EXPECT_FALSE(fs::exists(dir_ / "created"));
}

TEST_F(SandboxTest, ListedOperationsAreRefusedAndCanBeCaught) {
    EXPECT_EQ(attempt("import os\nos.system('true')"), refused(operation_blocked));
    EXPECT_EQ(attempt("import subprocess\nsubprocess.Popen(['true'])"), refused(operation_blocked));
    EXPECT_EQ(attempt("import socket\nsocket.socket()"), refused(operation_blocked));
    EXPECT_EQ(attempt("import _ctypes\n_ctypes.dlopen(None)"), refused(operation_blocked));
    EXPECT_EQ(attempt("import _thread\n_thread.start_new_thread(print, ())"), refused(operation_blocked));
    // Python swallows a refusal of sys.addaudithook (any Exception): the
    // call returns None and the hook is not added.
    EXPECT_EQ(attempt("import sys\nseen = []\nsys.addaudithook(lambda event, args: seen.append(event))\n"
                      "sys.audit('brimora.probe')\nreturn repr(seen)"),
              "[]");
    EXPECT_EQ(attempt("import os\nos.remove(d + '/existing')"), refused(operation_blocked));
    EXPECT_TRUE(fs::exists(dir_ / "existing"));
}

TEST_F(SandboxTest, EventsAreMatchedByTheirWholeName) {
    EXPECT_EQ(attempt("import sys\nsys.audit('os.remove')"), refused(operation_blocked));
    EXPECT_EQ(attempt("import sys\nsys.audit('os.removed')\nsys.audit('os')\nreturn 'passed'"), "passed");
}

TEST_F(SandboxTest, AnUncaughtRefusalIsTheEvaluationsError) {
    Any result = sandboxed("open(d + '/new', 'w')", scope());
    EXPECT_EQ(error_message(result), write_blocked);
    result = call_language("evaluateExpressionInSandbox", {String("open(d + '/new', 'a')"), scope()});
    EXPECT_EQ(error_message(result), write_blocked);
    EXPECT_EQ(error_message(call_language("evaluateExpressionInSandbox",
                                          {String("__import__('os').system('true')"), Any()})),
              operation_blocked);
    EXPECT_FALSE(fs::exists(dir_ / "new"));
}

TEST_F(SandboxTest, PlainEvaluationsAreNotRestricted) {
    EXPECT_TRUE(evaluate("open(d + '/plain', 'w').close()", scope()).isNone());
    EXPECT_TRUE(fs::exists(dir_ / "plain"));
    EXPECT_TRUE(evaluate("import os\nos.remove(d + '/plain')", scope()).isNone());
    EXPECT_FALSE(fs::exists(dir_ / "plain"));
}

// sys.dont_write_bytecode as Python code sees it, outside any sandbox.
std::string dont_write_bytecode() { return string_of(evaluate("import sys\nreturn repr(getattr(sys, 'dont_write_bytecode', 'missing'))")); }

TEST_F(SandboxTest, ByteCodeIsNotWrittenWhileSandboxedAndTheSettingComesBack) {
    ASSERT_TRUE(evaluate("import sys\nsys.dont_write_bytecode = False").isNone());
    EXPECT_EQ(string_of(sandboxed("import sys\nreturn repr(sys.dont_write_bytecode)")), "True");
    EXPECT_EQ(dont_write_bytecode(), "False");

    // Restored also when the evaluation fails.
    EXPECT_TRUE(sandboxed("raise ValueError('inside')").isError());
    EXPECT_EQ(dont_write_bytecode(), "False");

    // An earlier True stays True; a missing setting comes back as False.
    ASSERT_TRUE(evaluate("import sys\nsys.dont_write_bytecode = True").isNone());
    EXPECT_TRUE(sandboxed("return 1").is<Integer>());
    EXPECT_EQ(dont_write_bytecode(), "True");
    ASSERT_TRUE(evaluate("import sys\ndel sys.dont_write_bytecode").isNone());
    EXPECT_TRUE(sandboxed("return 1").is<Integer>());
    EXPECT_EQ(dont_write_bytecode(), "False");
}

TEST_F(SandboxTest, GuardsNestAndEachRestoresWhatItFound) {
    char const* write = "open(d + '/nested', 'w').close()";
    {
        sandbox_guard outer;
        EXPECT_TRUE(sandbox_active);
        {
            sandbox_guard inner;
            EXPECT_TRUE(sandbox_active);
        }
        EXPECT_TRUE(sandbox_active);
        // A sandboxed evaluation inside the guard ends without lifting it:
        // even a plain evaluation is still restricted on this thread.
        EXPECT_TRUE(sandboxed("return 1").is<Integer>());
        EXPECT_EQ(error_message(evaluate(write, scope())), write_blocked);
        EXPECT_EQ(dont_write_bytecode(), "True");
    }
    EXPECT_FALSE(sandbox_active);
    EXPECT_TRUE(evaluate(write, scope()).isNone());
    EXPECT_TRUE(fs::exists(dir_ / "nested"));
}

// The configured level through the module function, as a host sets it.
Any set_sandbox_level(char const* level) {
    auto module = find_module("tesk.cpython");
    if (!module) return Error("no module tesk.cpython");
    for (auto const& [name, callable] : module.value().callables())
        if (name == "cpython_set_sandbox_level") return internal::result_unwrap_lazy(callable({String(level)}));
    return Error("no function cpython_set_sandbox_level");
}

TEST_F(SandboxTest, ANestedGuardNeverLoosensTheStrictLevel) {
    char const* fifo = "import os\nos.mkfifo(d + '/fifo')";
    ASSERT_EQ(string_of(set_sandbox_level("strict")), "standard");
    {
        sandbox_guard outer;
        EXPECT_EQ(active_sandbox_level, sandbox_level::strict);
        // As the host on another thread would (code inside the guard may not).
        ASSERT_EQ(configured_sandbox_level.exchange(sandbox_level::standard), sandbox_level::strict);
        {
            sandbox_guard inner;
            EXPECT_EQ(active_sandbox_level, sandbox_level::strict);
        }
        // The inner guard's end did not put the originals back.
        EXPECT_EQ(error_message(evaluate(fifo, scope())), operation_blocked);
    }
    EXPECT_FALSE(sandbox_active);
    // Standard again: os.mkfifo is not refused there.
    EXPECT_TRUE(sandboxed(fifo, scope()).isNone());
    EXPECT_TRUE(fs::exists(dir_ / "fifo"));
}

// Compiling is the host's work: the strict level, which refuses making code
// objects, does not send blocks down the slower path or refuse them.
TEST_F(SandboxTest, StrictLevelCompilesBlocksAsUsual) {
    ASSERT_EQ(string_of(set_sandbox_level("strict")), "standard");
    std::uint64_t const before = syntax_tree_compilations();
    Any result = sandboxed("def twice(v):\n    return v * 2\nreturn twice(21)");
    ASSERT_EQ(string_of(set_sandbox_level("standard")), "strict");
    EXPECT_EQ(integer_of(result), 42);
    EXPECT_EQ(syntax_tree_compilations(), before);
}

TEST_F(SandboxTest, ASandboxedThreadDoesNotRestrictAnother) {
    // At each level, the sandboxed evaluation waits (giving up the
    // interpreter lock) until the plain one on another thread has written
    // its file (and, while the strict level's replacements stand, made a
    // FIFO), then tries to write too.
    for (char const* level : {"standard", "strict"}) {
        ASSERT_FALSE(set_sandbox_level(level).isError());
        ASSERT_TRUE(evaluate("import sys\nsys.brimora_sandbox_step = 0").isNone());
        Any sandboxedResult;
        std::thread sandboxedThread([&] {
            sandboxedResult = sandboxed("import sys, time\n"
                                        "sys.brimora_sandbox_step = 1\n"
                                        "while sys.brimora_sandbox_step != 2:\n"
                                        "    time.sleep(0.001)\n"
                                        "try:\n"
                                        "    open(d + '/from_sandbox', 'w')\n"
                                        "except PermissionError as e:\n"
                                        "    return str(e)\n",
                                        scope());
        });
        Any plainResult = evaluate("import os, sys, time\n"
                                   "while sys.brimora_sandbox_step != 1:\n"
                                   "    time.sleep(0.001)\n"
                                   "open(d + '/from_plain', 'w').close()\n"
                                   "os.mkfifo(d + '/fifo_' + level)\n"
                                   "bytecode = sys.dont_write_bytecode\n"
                                   "sys.brimora_sandbox_step = 2\n"
                                   "return bytecode",
                                   scope_of(map_of({{"d", String(dir_.string())}, {"level", String(level)}})));
        sandboxedThread.join();
        // The plain evaluation wrote its files, but wrote no byte code meanwhile.
        EXPECT_TRUE(fs::exists(dir_ / "from_plain")) << level;
        EXPECT_TRUE(fs::exists(dir_ / (std::string("fifo_") + level))) << level;
        ASSERT_TRUE(Boolean::test(plainResult)) << display(plainResult).toUtf8();
        EXPECT_TRUE(Boolean::unsafe(plainResult).value()) << level;
        EXPECT_EQ(string_of(sandboxedResult), write_blocked) << level;
        EXPECT_FALSE(fs::exists(dir_ / "from_sandbox")) << level;
    }
    (void)set_sandbox_level("standard");
}

} // namespace
} // namespace tesk::cpython::testing
