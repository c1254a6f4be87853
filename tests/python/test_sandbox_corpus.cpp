// Escape attempts run inside evaluateInSandbox, at the standard and at the
// strict level. Each entry states what happens today at each level; an
// attempt that escapes is listed as allowed (and in docs/sandbox.md), so
// that any change of behaviour shows up here.
#include "language_test_support.h"

#include "from_python/python_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace tesk::cpython::testing {
namespace {

namespace fs = std::filesystem;

enum class outcome {
    blocked, // PermissionError with one of the sandbox's messages
    allowed, // the attempt succeeded: an escape, or a control that must work
    not_run, // would end or disturb the test program when allowed
};

struct attempt {
    char const* route;
    char const* block; // sees `d` (a directory of its own) and `wfd` (a host descriptor open for writing)
    outcome standard;
    outcome strict;
};

constexpr outcome B = outcome::blocked;
constexpr outcome A = outcome::allowed;
constexpr outcome N = outcome::not_run;

// clang-format off
attempt const corpus[] = {
    // write or create a file or directory
    {"open for writing", "open(d + '/f', 'w')", B, B},
    {"open for appending", "open(d + '/existing', 'a')", B, B},
    {"open, exclusive creation", "open(d + '/f', 'x')", B, B},
    {"open for reading and writing", "open(d + '/existing', 'r+')", B, B},
    {"io.FileIO for writing", "import io\nio.FileIO(d + '/f', 'w')", B, B},
    {"pathlib write_text", "import pathlib\npathlib.Path(d, 'f').write_text('x')", B, B},
    {"pathlib touch", "import pathlib\npathlib.Path(d, 'f').touch()", B, B},
    {"os.open write-only", "import os\nos.open(d + '/f', os.O_WRONLY | os.O_CREAT)", B, B},
    {"os.open truncating", "import os\nos.open(d + '/existing', os.O_RDONLY | os.O_TRUNC)", B, B},
    {"os.mkdir", "import os\nos.mkdir(d + '/sub')", B, B},
    {"os.makedirs", "import os\nos.makedirs(d + '/a/b')", B, B},
    {"os.rename", "import os\nos.rename(d + '/existing', d + '/moved')", B, B},
    {"os.replace", "import os\nos.replace(d + '/existing', d + '/moved')", B, B},
    {"os.unlink", "import os\nos.unlink(d + '/existing')", B, B},
    {"os.rmdir", "import os\nos.rmdir(d)", B, B},
    {"os.chmod", "import os\nos.chmod(d + '/existing', 0o600)", B, B},
    {"os.utime", "import os\nos.utime(d + '/existing')", B, B},
    {"os.truncate", "import os\nos.truncate(d + '/existing', 0)", B, B},
    {"os.ftruncate of a host descriptor", "import os\nos.ftruncate(wfd, 0)", B, B},
    {"os.symlink", "import os\nos.symlink(d + '/existing', d + '/link')", B, B},
    {"os.link", "import os\nos.link(d + '/existing', d + '/link')", B, B},
    {"shutil.copyfile", "import shutil\nshutil.copyfile(d + '/existing', d + '/copy')", B, B},
    {"shutil.rmtree", "import shutil\nshutil.rmtree(d)", B, B},
    {"tempfile.mkstemp", "import tempfile\ntempfile.mkstemp(dir=d)", B, B},
    {"tempfile.mkdtemp", "import tempfile\ntempfile.mkdtemp(dir=d)", B, B},
    {"tempfile.TemporaryFile", "import tempfile\ntempfile.TemporaryFile(dir=d)", B, B},
    {"os.mkfifo", "import os\nos.mkfifo(d + '/fifo')", A, B},
    {"os.mknod", "import os\nos.mknod(d + '/node')", A, B},
    {"os.write to a host descriptor", "import os\nos.write(wfd, b'x')", A, B},
    {"os.pwrite to a host descriptor", "import os\nos.pwrite(wfd, b'x', 0)", A, B},
    {"os.writev to a host descriptor", "import os\nos.writev(wfd, [b'x'])", A, B},
    {"writable mapping of a host descriptor", "import mmap\nmmap.mmap(wfd, 1, access=mmap.ACCESS_WRITE).close()", A, B},
    {"shared mapping, default access", "import mmap\nmmap.mmap(wfd, 1).close()", A, B},
    {"read-only mapping (control)", "import mmap\nmmap.mmap(wfd, 1, access=mmap.ACCESS_READ).close()", A, A},
    {"write to the code's own pipe (control)", "import os\nr, w = os.pipe()\nos.write(w, b'x')\nos.close(r)\nos.close(w)", A, A},
    {"close a host descriptor", "import os\nos.close(wfd)", A, A},
    {"reading a file (control)", "open(d + '/existing').read()", A, A},
    {"os.chdir", "import os\nos.chdir(d)", B, B},
    // start a process
    {"os.system", "import os\nos.system('true')", B, B},
    {"os.popen", "import os\nos.popen('true')", B, B},
    {"subprocess.run", "import subprocess\nsubprocess.run(['true'])", B, B},
    {"os.fork", "import os\nos.fork()", B, B},
    {"os.posix_spawn", "import os\nos.posix_spawn('/bin/true', ['true'], {})", B, B},
    {"os.execv", "import os\nos.execv('/bin/true', ['true'])", B, B},
    {"os.spawnv", "import os\nos.spawnv(os.P_WAIT, '/bin/true', ['true'])", B, B},
    {"pty.fork", "import pty\npty.fork()", B, B},
    {"import _posixsubprocess anew", "import sys\nsys.modules.pop('_posixsubprocess', None)\nimport _posixsubprocess", A, B},
    {"fork_exec of an imported _posixsubprocess", "import subprocess\nsubprocess._fork_exec", A, A},
    // open a socket
    {"socket.socket", "import socket\nsocket.socket()", B, B},
    {"socket.socketpair", "import socket\nsocket.socketpair()", B, B},
    {"_socket.socket", "import _socket\n_socket.socket()", B, B},
    {"socket.create_connection", "import socket\nsocket.create_connection(('127.0.0.1', 9), timeout=1)", B, B},
    {"socket.gethostname", "import socket\nsocket.gethostname()", B, B},
    {"urllib.request.urlopen", "import urllib.request\nurllib.request.urlopen('http://127.0.0.1:9/', timeout=1)", B, B},
    {"http.client connect", "import http.client\nhttp.client.HTTPConnection('127.0.0.1', 9, timeout=1).connect()", B, B},
    {"sqlite3.connect", "import sqlite3\nsqlite3.connect(':memory:')", B, B},
    // load native code
    {"_ctypes.dlopen", "import _ctypes\n_ctypes.dlopen(None)", B, B},
    {"ctypes.CDLL", "import ctypes\nctypes.CDLL(None)", B, B},
    {"import _ctypes anew", "import sys\nsys.modules.pop('_ctypes', None)\nimport _ctypes", A, B},
    {"import _testcapi anew", "import sys\nsys.modules.pop('_testcapi', None)\nimport _testcapi", A, B},
    {"import _interpreters anew", "import sys\nsys.modules.pop('_interpreters', None)\nimport _interpreters", A, B},
    {"_posixshmem.shm_open", "import os, sys\nsys.modules.pop('_posixshmem', None)\nimport _posixshmem\n"
                             "fd = _posixshmem.shm_open('/brimora-corpus', os.O_RDWR | os.O_CREAT, 0o600)\n"
                             "_posixshmem.shm_unlink('/brimora-corpus')\nos.close(fd)", A, B},
    {"extension module loaded by path", "import importlib.machinery, importlib.util, os, sysconfig\n"
                                        "path = os.path.join(sysconfig.get_path('platstdlib'), 'lib-dynload', "
                                        "'_ctypes_test' + importlib.machinery.EXTENSION_SUFFIXES[0])\n"
                                        "found = importlib.util.spec_from_file_location('_ctypes_test', path)\n"
                                        "importlib.util.module_from_spec(found)", A, A},
    // start a thread
    {"_thread.start_new_thread", "import _thread\n_thread.start_new_thread(int, ())", B, B},
    {"threading.Thread", "import threading\nt = threading.Thread(target=int)\nt.start()\nt.join()", A, B},
    {"_thread.start_joinable_thread", "import _thread\n_thread.start_joinable_thread(int).join()", A, B},
    {"ThreadPoolExecutor", "from concurrent.futures import ThreadPoolExecutor\nwith ThreadPoolExecutor(1) as pool:\n"
                           "    pool.submit(int).result()", A, B},
    {"faulthandler watchdog thread", "import faulthandler\nfaulthandler.dump_traceback_later(3600)\n"
                                     "faulthandler.cancel_dump_traceback_later()", A, A},
    // change the environment or the process
    {"os.putenv", "import os\nos.putenv('BRIMORA_CORPUS', '1')", B, B},
    {"os.environ assignment", "import os\nos.environ['BRIMORA_CORPUS'] = '1'", B, B},
    {"os.unsetenv", "import os\nos.unsetenv('HOME')", B, B},
    {"del os.environ", "import os\ndel os.environ['HOME']", B, B},
    {"resource.setrlimit", "import resource\nresource.setrlimit(resource.RLIMIT_CORE, resource.getrlimit(resource.RLIMIT_CORE))", B, B},
    {"fcntl.flock", "import fcntl\nfcntl.flock(wfd, fcntl.LOCK_SH)", B, B},
    {"builtins changed for later evaluations", "import builtins\nbuiltins.open = builtins.open", A, A},
    {"os.register_at_fork", "import os\nos.register_at_fork(after_in_child=int)", A, A},
    // remove or add hooks, reach frames and code
    {"sys.addaudithook (refused silently)", "import sys\nseen = []\nsys.addaudithook(lambda event, args: seen.append(event))\n"
                                            "sys.audit('brimora.probe')\n"
                                            "if not seen:\n    raise PermissionError('operation blocked in sandbox')", B, B},
    {"sys.settrace", "import sys\nsys.settrace(None)", A, B},
    {"sys.setprofile", "import sys\nsys.setprofile(None)", A, B},
    // Refused silently: Python reports the refusal as unraisable and leaves the trace unset.
    {"threading.settrace_all_threads", "import sys, threading\nf = lambda *a: None\n"
                                       "threading.settrace_all_threads(f)\n"
                                       "if sys.gettrace() is not f:\n"
                                       "    raise PermissionError('operation blocked in sandbox')\n"
                                       "threading.settrace_all_threads(None)", A, B},
    {"threading.settrace (for later threads)", "import threading\nthreading.settrace(None)", A, A},
    {"sys.monitoring.register_callback", "import sys\nsys.monitoring.register_callback(5, sys.monitoring.events.PY_START, None)", A, B},
    {"sys.monitoring.use_tool_id", "import sys\nsys.monitoring.use_tool_id(5, 'corpus')\nsys.monitoring.free_tool_id(5)", A, A},
    {"code.replace", "(lambda: 1).__code__.replace(co_name='x')", A, B},
    {"compile (control)", "compile('1', 'corpus', 'eval')", A, A},
    {"sys._getframe", "import sys\nsys._getframe()", A, B},
    {"frame through a traceback", "try:\n    1 / 0\nexcept ZeroDivisionError as e:\n    e.__traceback__.tb_frame.f_back", A, A},
    {"gc.get_objects", "import gc\ngc.get_objects()", A, B},
    {"gc.get_referrers", "import gc\ngc.get_referrers(d)", A, B},
    // end or signal the host
    {"os._exit", "import os\nos._exit(0)", N, B},
    {"os.abort", "import os\nos.abort()", N, B},
    {"_thread.interrupt_main", "import _thread\n_thread.interrupt_main()", N, B},
    {"os.kill", "import os\nos.kill(os.getpid(), 0)", B, B},
    {"os.killpg", "import os\nos.killpg(os.getpgid(0), 0)", B, B},
    {"signal.pthread_kill", "import signal, threading\nsignal.pthread_kill(threading.get_ident(), 0)", B, B},
    {"signal.raise_signal", "import signal\nsignal.raise_signal(signal.SIGWINCH)", A, B},
    {"signal.signal", "import signal\nsignal.signal(signal.SIGUSR2, signal.getsignal(signal.SIGUSR2))", A, B},
    {"signal.alarm", "import signal\nsignal.alarm(0)", A, B},
    {"signal.setitimer", "import signal\nsignal.setitimer(signal.ITIMER_REAL, 0)", A, B},
    {"signal.set_wakeup_fd", "import signal\nsignal.set_wakeup_fd(signal.set_wakeup_fd(-1))", A, B},
    // defer code past the guard
    {"atexit.register", "import atexit\natexit.register(int)", A, B},
};
// clang-format on

// Runs every attempt at one level; `d` is a fresh directory per attempt.
class SandboxCorpus : public ::testing::Test {
protected:
    static Any set_level(char const* level) {
        auto module = find_module("tesk.cpython");
        if (!module) return Error("no module tesk.cpython");
        for (auto const& [name, callable] : module.value().callables())
            if (name == "cpython_set_sandbox_level")
                return internal::result_unwrap_lazy(callable({String(level)}));
        return Error("no function cpython_set_sandbox_level");
    }
    void TearDown() override { (void)set_level("standard"); }

    // "blocked", "allowed" or what else happened.
    static std::string run(attempt const& entry) {
        std::string pattern = (fs::temp_directory_path() / "brimora-corpus-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) return "no directory";
        fs::path const dir = pattern;
        std::ofstream(dir / "existing") << "content";
        int const wfd = open((dir / "host").c_str(), O_RDWR | O_CREAT, 0600);
        (void)!write(wfd, "content", 7);

        string_builder code;
        code << "try:\n";
        for (String const& line : String(entry.block).split('\n')) code << "    " << line << '\n';
        code << "except PermissionError as e:\n"
                "    if str(e) in ('operation blocked in sandbox', 'write blocked: read-only sandbox'):\n"
                "        return 'blocked'\n"
                "    raise\n"
                "return 'allowed'\n";
        Any result = call_language(
            "evaluateInSandbox",
            {String(code.str()), Any(scope_of(map_of({{"d", String(dir.string())}, {"wfd", Integer(wfd)}})))});
        close(wfd);
        std::error_code ignored;
        fs::remove_all(dir, ignored);
        if (result.isError()) return "error: " + result.error().message().toUtf8();
        return String::test(result) ? String::unsafe(result).toUtf8() : display(result).toUtf8();
    }

    static void run_all(outcome attempt::*level) {
        int blocked = 0, allowed = 0;
        for (attempt const& entry : corpus) {
            outcome const expected = entry.*level;
            if (expected == outcome::not_run) continue;
            std::string const got = run(entry);
            EXPECT_EQ(got, expected == outcome::blocked ? "blocked" : "allowed") << entry.route;
            (expected == outcome::blocked ? blocked : allowed) += 1;
        }
        std::cout << "[ corpus   ] " << blocked << " blocked, " << allowed << " allowed\n";
    }
};

TEST_F(SandboxCorpus, HasEnoughAttempts) { EXPECT_GE(std::size(corpus), 60u); }

TEST_F(SandboxCorpus, StandardLevel) {
    ASSERT_EQ(string_of(set_level("standard")), "standard");
    run_all(&attempt::standard);
}

TEST_F(SandboxCorpus, StrictLevel) {
    ASSERT_FALSE(set_level("strict").isError());
    // The import guard sees first imports only: a module the host loaded
    // before (here subprocess, and with it _posixsubprocess) stays reachable.
    ASSERT_TRUE(evaluate("import subprocess").isNone());
    run_all(&attempt::strict);
    // The replaced functions are the originals again once no guard is alive.
    Any same = evaluate("import os, posix, signal, _signal\n"
                        "return os.write is posix.write and os.write.__self__ is posix and signal.alarm is _signal.alarm and "
                        "_signal.alarm.__self__ is _signal");
    ASSERT_TRUE(Boolean::test(same)) << display(same).toUtf8();
    EXPECT_TRUE(Boolean::unsafe(same).value());
}

TEST_F(SandboxCorpus, EndingTheHostIsLeftAloneAtTheStandardLevel) {
    // Not run at the standard level: os._exit, os.abort and interrupt_main
    // are Python's own functions there, unreplaced.
    Any untouched = call_language("evaluateInSandbox",
                                  {String("import os, posix, _thread\n"
                                          "return os._exit.__self__ is posix and os.abort.__self__ is posix and "
                                          "_thread.interrupt_main.__self__ is _thread"),
                                   Any()});
    ASSERT_TRUE(Boolean::test(untouched)) << display(untouched).toUtf8();
    EXPECT_TRUE(Boolean::unsafe(untouched).value());
}

TEST_F(SandboxCorpus, AnUnknownLevelIsRefused) {
    EXPECT_EQ(error_message(set_level("paranoid")), "Unknown sandbox level: paranoid. Expected 'standard' or 'strict'.");
    EXPECT_EQ(string_of(set_level("standard")), "standard");
}

TEST_F(SandboxCorpus, StrictLevelLeavesUnsandboxedCodeAlone) {
    ASSERT_FALSE(set_level("strict").isError());
    Any result = evaluate("import threading, sys\nt = threading.Thread(target=int)\nt.start()\nt.join()\n"
                          "sys._getframe()\nreturn 'ran'");
    EXPECT_EQ(string_of(result), "ran");
}

TEST_F(SandboxCorpus, FinalisersRunAfterTheGuardUnsandboxed) {
    // An object kept alive by a cycle is collected after the evaluation, and
    // its __del__ then runs without the sandbox: an escape at both levels.
    std::string pattern = (fs::temp_directory_path() / "brimora-corpus-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    fs::path const dir = pattern;
    for (char const* level : {"standard", "strict"}) {
        ASSERT_FALSE(set_level(level).isError());
        fs::path const written = dir / level;
        Any result = call_language(
            "evaluateInSandbox",
            {String("class Later:\n"
                    "    def __del__(self):\n"
                    "        open(path, 'w').close()\n"
                    "x = Later()\n"
                    "x.cycle = x\n"),
             Any(scope_of(map_of({{"path", String(written.string())}})))});
        EXPECT_TRUE(result.isNone()) << display(result).toUtf8();
        EXPECT_FALSE(fs::exists(written)) << level;
        EXPECT_TRUE(evaluate("import gc\ngc.collect()").isNone());
        EXPECT_TRUE(fs::exists(written)) << level;
    }
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}


TEST_F(SandboxCorpus, ReturnedObjectsRunUnderTheirSandbox) {
    // An object that a sandboxed evaluation returns keeps its sandbox: the
    // host printing it, reading and writing its attributes, calling its
    // methods, comparing it or dropping it runs its code under that sandbox.
    // Each attempt writes a file of its own name; without the sandbox (the
    // control) every one of them is written.
    std::string pattern = (fs::temp_directory_path() / "brimora-corpus-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    fs::path const dir = pattern;
    char const* const routes[] = {"repr", "str", "get", "set", "call", "lt", "del"};
    // The class gets a namespace of its own, so that no cycle through the
    // evaluation's globals keeps the instances alive past their last proxy.
    String const code("namespace = {'d': d}\n"
                      "exec('''\n"
                      "class Sneaky:\n"
                      "    def touch(self, what):\n"
                      "        open(d + '/' + what, 'w').close()\n"
                      "        return what\n"
                      "    def __repr__(self): return self.touch('repr')\n"
                      "    def __str__(self): return self.touch('str')\n"
                      "    @property\n"
                      "    def value(self): return self.touch('get')\n"
                      "    @value.setter\n"
                      "    def value(self, v): self.touch('set')\n"
                      "    def call(self): return self.touch('call')\n"
                      "    def __lt__(self, other): return self.touch('lt') == ''\n"
                      "    def __del__(self): self.touch('del')\n"
                      "''', namespace)\n"
                      "first = namespace['Sneaky']()\n"
                      "second = namespace['Sneaky']()\n");
    for (char const* level : {"none", "standard", "strict"}) {
        fs::path const sub = dir / level;
        fs::create_directory(sub);
        bool const sandboxed = std::string(level) != "none";
        if (sandboxed) {
            ASSERT_FALSE(set_level(level).isError());
        }
        {
            HashMap made = map_of({{"first", Any()}, {"second", Any()}});
            Any scope = scope_of(map_of({{"d", String(sub.string())}}), Any(), made);
            Any result = call_language(sandboxed ? "evaluateInSandbox" : "evaluate", {code, scope});
            ASSERT_TRUE(result.isNone()) << display(result).toUtf8();
            Any first = made.find(String("first"));
            Any second = made.find(String("second"));
            ASSERT_TRUE(is_python_object(first));
            (void)call_language("toCode", {first});
            (void)display(first);
            (void)first.propertyValue(String("value"));
            (void)first.setPropertyValue(String("value"), Integer(1));
            (void)first.callMethod(String("call"));
            (void)compare_objects(first, second);
        }
        EXPECT_FALSE(python_error_pending());
        for (char const* route : routes)
            EXPECT_EQ(fs::exists(sub / route), !sandboxed) << level << ": " << route;
    }
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

} // namespace
} // namespace tesk::cpython::testing
