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
    {"close a host descriptor", "import os\nos.close(wfd)", A, B},
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
                                     "faulthandler.cancel_dump_traceback_later()", A, B},
    // change the environment or the process
    {"os.putenv", "import os\nos.putenv('BRIMORA_CORPUS', '1')", B, B},
    {"os.environ assignment", "import os\nos.environ['BRIMORA_CORPUS'] = '1'", B, B},
    {"os.unsetenv", "import os\nos.unsetenv('HOME')", B, B},
    {"del os.environ", "import os\ndel os.environ['HOME']", B, B},
    {"resource.setrlimit", "import resource\nresource.setrlimit(resource.RLIMIT_CORE, resource.getrlimit(resource.RLIMIT_CORE))", B, B},
    {"fcntl.flock", "import fcntl\nfcntl.flock(wfd, fcntl.LOCK_SH)", B, B},
    {"os.register_at_fork", "import os\nos.register_at_fork(after_in_child=int)", A, B},
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

    {"sys.monitoring.register_callback", "import sys\nsys.monitoring.register_callback(5, sys.monitoring.events.PY_START, None)", A, B},
    {"sys.monitoring.use_tool_id", "import sys\nsys.monitoring.use_tool_id(5, 'corpus')\nsys.monitoring.free_tool_id(5)", A, B},
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
    // around the replaced functions: a fresh import, a copy of a descriptor, other system calls
    {"posix._exit after a fresh import", "import sys\nsys.modules.pop('posix')\nimport posix\nposix._exit(42)", N, B},
    {"os._exit through a fresh os", "import sys\nfor name in ('os', 'posix'):\n    sys.modules.pop(name)\n"
                                    "import os\nos._exit(42)", N, B},
    {"write to a dup of a host descriptor", "import os\nfd = os.dup(wfd)\ntry:\n    os.write(fd, b'x')\n"
                                            "finally:\n    os.close(fd)", A, B},
    {"dup2 onto a host descriptor", "import os\nr, w = os.pipe()\nos.dup2(r, wfd)\nos.close(r)\nos.close(w)", A, B},
    {"os.copy_file_range to a host descriptor", "import os\nr = os.open(d + '/existing', os.O_RDONLY)\n"
                                                "try:\n    os.copy_file_range(r, wfd, 1)\nfinally:\n    os.close(r)", A, B},
    {"os.splice to a host descriptor", "import os\nr, w = os.pipe()\nos.write(w, b'x')\ntry:\n    os.splice(r, wfd, 1)\n"
                                       "finally:\n    os.close(r)\n    os.close(w)", A, B},
    {"os.posix_fallocate on a host descriptor", "import os\nos.posix_fallocate(wfd, 0, 16)", A, B},
    {"os.set_blocking of a host descriptor", "import os\nos.set_blocking(wfd, False)", A, B},
    {"os.closerange of host descriptors", "import os\nos.closerange(wfd, wfd + 1)", A, B},
    {"faulthandler.dump_traceback to a host descriptor", "import faulthandler\nfaulthandler.dump_traceback(file=wfd)", A, B},
    {"faulthandler.enable", "import faulthandler\nfaulthandler.enable(file=wfd)\nfaulthandler.disable()", A, B},
    {"faulthandler._sigsegv", "import faulthandler\nfaulthandler._sigsegv()", N, B},
    {"faulthandler.dump_traceback_later(exit=True)", "import faulthandler, time\n"
                                                     "faulthandler.dump_traceback_later(0.01, exit=True)\ntime.sleep(1)", N, B},
    {"marshal.loads of a code object", "import marshal\nmarshal.loads(marshal.dumps((lambda: 1).__code__))", A, B},
    {"marshal.loads of a code object, allow_code=True", "import marshal\n"
                                                         "marshal.loads(marshal.dumps((lambda: 1).__code__), allow_code=True)", A, B},
    {"marshal.loads of data (control)", "import marshal\nassert marshal.loads(marshal.dumps([1, 'a'])) == [1, 'a']", A, A},
    {"sys._current_frames", "import sys\nsys._current_frames()", A, B},
    {"_socket.socketpair", "import _socket\na, b = _socket.socketpair()\na.close()\nb.close()", A, B},
    {"extension module through memfd_create", "import importlib.machinery, importlib.util, os, sysconfig\n"
                                               "source = os.path.join(sysconfig.get_path('platstdlib'), 'lib-dynload', "
                                               "'_ctypes_test' + importlib.machinery.EXTENSION_SUFFIXES[0])\n"
                                               "fd = os.memfd_create('corpus')\nwith open(source, 'rb') as f:\n"
                                               "    os.write(fd, f.read())\npath = '/proc/self/fd/%d' % fd\n"
                                               "loader = importlib.machinery.ExtensionFileLoader('_ctypes_test', path)\n"
                                               "found = importlib.util.spec_from_file_location('_ctypes_test', path, loader=loader)\n"
                                               "try:\n    importlib.util.module_from_spec(found)\nfinally:\n    os.close(fd)", A, B},
    {"extension module from a directory put on sys.path", "import importlib, sys\nsys.path.insert(0, ext)\n"
                                                          "sys.modules.pop('_ctypes_test', None)\nimportlib.invalidate_caches()\n"
                                                          "try:\n    assert importlib.import_module('_ctypes_test').__file__.startswith(ext)\n"
                                                          "finally:\n    sys.path.remove(ext)\n    sys.modules.pop('_ctypes_test', None)", A, B},
    {"ctypes loaded by the host", "import ctypes\nctypes.c_char.from_address(id(d))", A, B},
    {"ctypes loaded by the host, through sys.modules", "import sys\nctypes = sys.modules.get('ctypes')\nif ctypes is None:\n"
                                                         "    raise PermissionError('operation blocked in sandbox')\nctypes.pointer(ctypes.c_int(1))", A, B},
    {"_posixsubprocess.fork_exec loaded by the host", "import sys\nsys.modules.pop('_posixsubprocess', None)\n"
                                                      "import _posixsubprocess\ntry:\n    _posixsubprocess.fork_exec()\nexcept TypeError:\n    pass", A, B},
    {"signal.pidfd_send_signal", "import os, signal\nfd = os.pidfd_open(os.getpid())\ntry:\n"
                                 "    signal.pidfd_send_signal(fd, 0)\nfinally:\n    os.close(fd)", A, B},
    {"signal.pthread_sigmask", "import signal\nsignal.pthread_sigmask(signal.SIG_BLOCK, [])", A, B},
    {"os.setuid", "import os\nos.setuid(os.getuid())", A, B},
    {"os.umask", "import os\nos.umask(os.umask(0o022))", A, B},
    {"os.chroot", "import os\nos.chroot('/')", A, B},
    {"os.setsid", "import os\nos.setsid()", N, B},
    {"os.sched_setaffinity", "import os\nos.sched_setaffinity(0, os.sched_getaffinity(0))", A, B},
    {"os.nice", "import os\nos.nice(0)", A, B},
    {"os.unshare", "import os\nos.unshare(0)", A, B},
    {"os.waitpid (the host's children)", "import os\nos.waitpid(-1, os.WNOHANG)", A, B},
    {"locale.setlocale", "import locale\nlocale.setlocale(locale.LC_ALL, locale.setlocale(locale.LC_ALL))", A, B},
    {"locale.getlocale and time.strptime (control)", "import locale, time\nlocale.getlocale()\ntime.strptime('2024', '%Y')", A, A},
    {"closing the code's own descriptor of a host file (control)", "import os\nfd = os.open(d + '/host', os.O_RDONLY)\nos.close(fd)", A, A},
    {"sys.setswitchinterval", "import sys\nsys.setswitchinterval(sys.getswitchinterval())", A, B},
    // the host's own controls (a host error: RuntimeError with the sandbox's message)
    {"tesk.cpython.cpython_set_sandbox_level", "import tesk\ntesk.cpython.cpython_set_sandbox_level('standard')", B, B},
    {"tesk.cpython.set_time_limit", "import tesk\ntesk.cpython.set_time_limit(0)", B, B},
    {"tesk.cpython.set_code_cache_size", "import tesk\ntesk.cpython.set_code_cache_size(0)", B, B},
    {"tesk.cpython.interrupt", "import tesk\ntesk.cpython.interrupt(tesk.cpython.evaluation_thread())", B, B},
    {"tesk.cpython.cpython_add_sys_path", "import tesk\ntesk.cpython.cpython_add_sys_path(d)", B, B},
    {"tesk.cpython.finish", "import tesk\ntesk.cpython.finish()", B, B},
    {"tesk.cpython.handle_signals", "import tesk\ntesk.cpython.handle_signals()", B, B},
    {"tesk.cpython.import_all_modules", "import tesk\ntesk.cpython.import_all_modules()", B, B},
    {"CPythonLanguage.importAllModules", "import tesk\ntesk.cpython.CPythonLanguage.importAllModules()", B, B},
    {"tesk.cpython.evaluation_thread (control)", "import tesk\ntesk.cpython.evaluation_thread()", A, A},
};
// clang-format on

// Changes to the process-wide state: each block leaves something behind that
// later code would run or see, marked with an attribute `brimora`; `outlived`
// runs unsandboxed afterwards, says whether the change is still there and
// removes it. At the strict level the change is refused or undone.
struct state_change {
    char const* route;
    char const* block;
    char const* outlived;
};

// clang-format off
state_change const state_changes[] = {
    {"gc.callbacks", "import gc\ndef f(*a): pass\nf.brimora = 1\ngc.callbacks.append(f)",
     "import gc\nfound = [c for c in gc.callbacks if hasattr(c, 'brimora')]\nfor c in found:\n    gc.callbacks.remove(c)\nreturn bool(found)"},
    {"a replaced module in sys.modules", "import sys, types\nm = types.ModuleType('json')\nm.brimora = 1\nsys.modules['json'] = m",
     "import sys\nif hasattr(sys.modules.get('json'), 'brimora'):\n    del sys.modules['json']\n    return True\nreturn False"},
    {"a module attribute replaced", "import os.path\nsaved = os.path.join\ndef join(*a): return saved(*a)\njoin.brimora = 1\njoin.saved = saved\nos.path.join = join",
     "import os.path\nif hasattr(os.path.join, 'brimora'):\n    os.path.join = os.path.join.saved\n    return True\nreturn False"},
    {"builtins changed for later evaluations", "import builtins\nbuiltins.brimora = 1",
     "import builtins\nif hasattr(builtins, 'brimora'):\n    del builtins.brimora\n    return True\nreturn False"},
    {"sys.meta_path finder", "import sys\nclass F:\n    brimora = 1\n    def find_spec(self, *a): return None\nsys.meta_path.insert(0, F())",
     "import sys\nfound = [f for f in sys.meta_path if hasattr(f, 'brimora')]\nfor f in found:\n    sys.meta_path.remove(f)\nreturn bool(found)"},
    {"sys.path_hooks", "import sys\ndef hook(path): raise ImportError\nhook.brimora = 1\nsys.path_hooks.insert(0, hook)",
     "import sys\nfound = [f for f in sys.path_hooks if hasattr(f, 'brimora')]\nfor f in found:\n    sys.path_hooks.remove(f)\nreturn bool(found)"},
    {"codecs.register", "import codecs\ndef search(name):\n    return None\nsearch.brimora = 1\ncodecs.register(search)\ncodecs.brimora_search = search",
     "import codecs\nsearch = getattr(codecs, 'brimora_search', None)\nif search is None:\n    return False\ncodecs.unregister(search)\ndel codecs.brimora_search\nreturn True"},
    {"sys.set_asyncgen_hooks", "import sys\ndef f(gen): pass\nf.brimora = 1\nsys.set_asyncgen_hooks(firstiter=f)",
     "import sys\nif hasattr(sys.get_asyncgen_hooks().firstiter, 'brimora'):\n    sys.set_asyncgen_hooks(firstiter=None)\n    return True\nreturn False"},
    {"weakref.finalize", "import weakref\ndef f(): pass\nf.brimora = 1\nweakref.finalize(int, f)",
     "import weakref\nfound = [f for f, info in list(weakref.finalize._registry.items()) if hasattr(info.func, 'brimora')]\n"
     "for f in found:\n    f.detach()\nreturn bool(found)"},
    {"a signal handler", "import signal\ndef f(*a): pass\nf.brimora = 1\nsignal.signal(signal.SIGUSR2, f)",
     "import signal\nif hasattr(signal.getsignal(signal.SIGUSR2), 'brimora'):\n    signal.signal(signal.SIGUSR2, signal.SIG_DFL)\n    return True\nreturn False"},
    {"sys.setrecursionlimit", "import sys\nsys.setrecursionlimit(60)",
     "import sys\nif sys.getrecursionlimit() == 60:\n    sys.setrecursionlimit(1000)\n    return True\nreturn False"},
    {"threading._register_atexit", "import threading\ndef f(): pass\nf.brimora = 1\nthreading._register_atexit(f)",
     "import threading\nfound = [c for c in threading._threading_atexits "
     "if any(hasattr(cell.cell_contents, 'brimora') for cell in c.__closure__ or ())]\n"
     "for c in found:\n    threading._threading_atexits.remove(c)\nreturn bool(found)"},
    {"threading.settrace (for later threads)", "import threading\ndef f(*a): pass\nf.brimora = 1\nthreading.settrace(f)",
     "import threading\nif hasattr(threading._trace_hook, 'brimora'):\n    threading.settrace(None)\n    return True\nreturn False"},
    {"sys.stdout replaced", "import sys\nclass W:\n    brimora = 1\n    def write(self, s): return len(s)\n    def flush(self): pass\n"
                            "W.saved = sys.stdout\nsys.stdout = W()",
     "import sys\nif hasattr(sys.stdout, 'brimora'):\n    sys.stdout = sys.stdout.saved\n    return True\nreturn False"},
    {"os.environ._data", "import os\nos.environ._data[b'BRIMORA_CORPUS'] = b'1'",
     "import os\nif b'BRIMORA_CORPUS' in os.environ._data:\n    del os.environ._data[b'BRIMORA_CORPUS']\n    return True\nreturn False"},
    {"a dictionary cleared and refilled", "import sys\nsaved = dict(sys.path_importer_cache)\nsys.path_importer_cache.clear()\n"
                                          "sys.path_importer_cache.update(saved)\nsys.path_importer_cache['brimora'] = None",
     "import sys\nif 'brimora' in sys.path_importer_cache:\n    del sys.path_importer_cache['brimora']\n    return True\nreturn False"},
    {"gc.disable", "import gc\ngc.disable()",
     "import gc\nif not gc.isenabled():\n    gc.enable()\n    return True\nreturn False"},
    {"warnings.filters", "import warnings\nwarnings.filterwarnings('ignore', message='brimora')",
     "import warnings\nfound = [f for f in warnings.filters if f[1] is not None and f[1].pattern == 'brimora']\n"
     "for f in found:\n    warnings.filters.remove(f)\nreturn bool(found)"},
};

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

    // A directory, not on sys.path, that holds an extension module.
    static fs::path const& extension_directory() {
        static fs::path const directory = [] {
            fs::path made = fs::temp_directory_path() / "brimora-corpus-extension";
            Any source = evaluate("import importlib.machinery, os, sysconfig\n"
                                  "return os.path.join(sysconfig.get_path('platstdlib'), 'lib-dynload', "
                                  "'_ctypes_test' + importlib.machinery.EXTENSION_SUFFIXES[0])");
            std::error_code ignored;
            fs::create_directories(made, ignored);
            fs::path const from = string_of(source);
            fs::copy_file(from, made / from.filename(), fs::copy_options::overwrite_existing, ignored);
            return made;
        }();
        return directory;
    }

    // "blocked", "allowed" or what else happened. An OSError from the system
    // (one with an errno) means the call reached it: allowed.
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
        code << "except (PermissionError, RuntimeError) as e:\n"
                "    if str(e) in ('operation blocked in sandbox', 'write blocked: read-only sandbox'):\n"
                "        return 'blocked'\n"
                "    if isinstance(e, OSError) and e.errno is not None:\n"
                "        return 'allowed'\n"
                "    raise\n"
                "except OSError as e:\n"
                "    if e.errno is None:\n"
                "        raise\n"
                "return 'allowed'\n";
        Any result = call_language("evaluateInSandbox",
                                   {String(code.str()), Any(scope_of(map_of({{"d", String(dir.string())},
                                                                              {"wfd", Integer(wfd)},
                                                                              {"ext", String(extension_directory().string())}})))});
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
    ASSERT_TRUE(evaluate("import ctypes").isNone());
    run_all(&attempt::standard);
}

TEST_F(SandboxCorpus, StrictLevel) {
    ASSERT_FALSE(set_level("strict").isError());
    // The import guard sees first imports only: a module the host loaded
    // before (here subprocess, and with it _posixsubprocess) stays reachable.
    ASSERT_TRUE(evaluate("import subprocess").isNone());
    // ctypes loaded by the host: out of reach at the strict level all the same.
    ASSERT_TRUE(evaluate("import ctypes").isNone());
    run_all(&attempt::strict);
    // ... and back for the host afterwards.
    EXPECT_TRUE(evaluate("import sys\nassert 'ctypes' in sys.modules").isNone());
    // The replaced functions are the originals again once no guard is alive.
    Any same = evaluate("import os, posix, signal, _signal\n"
                        "return os.write is posix.write and os.write.__self__ is posix and signal.alarm is _signal.alarm and "
                        "_signal.alarm.__self__ is _signal");
    ASSERT_TRUE(Boolean::test(same)) << display(same).toUtf8();
    EXPECT_TRUE(Boolean::unsafe(same).value());
}

// Each change outlives a standard evaluation and none outlives a strict one.
TEST_F(SandboxCorpus, StateChangesOutliveOnlyTheStandardLevel) {
    for (char const* level : {"standard", "strict"}) {
        ASSERT_FALSE(set_level(level).isError());
        bool const strict = std::string(level) == "strict";
        for (state_change const& change : state_changes) {
            Any ran = call_language("evaluateInSandbox", {String(change.block), Any()});
            if (!ran.isNone()) {
                EXPECT_TRUE(strict) << change.route << ": " << display(ran).toUtf8();
                EXPECT_EQ(error_message(ran), "operation blocked in sandbox") << change.route;
            }
            Any outlived = evaluate(change.outlived);
            ASSERT_TRUE(Boolean::test(outlived)) << change.route << ": " << display(outlived).toUtf8();
            EXPECT_EQ(Boolean::unsafe(outlived).value(), !strict) << level << ": " << change.route;
        }
    }
}

// A strict evaluation leaves behind nothing that a later unsandboxed one
// runs: every hook it tries to leave would write a file of its own name.
TEST_F(SandboxCorpus, AStrictEvaluationLeavesNoCodeForLaterOnes) {
    std::string pattern = (fs::temp_directory_path() / "brimora-corpus-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    fs::path const dir = pattern;
    ASSERT_FALSE(set_level("strict").isError());
    Any left = call_language(
        "evaluateInSandbox",
        {String("def marker(name):\n"
                "    def run(*args, **kwargs):\n"
                "        open(d + '/' + name, 'w').close()\n"
                "    return run\n"
                "def attempt(change):\n"
                "    try:\n"
                "        change()\n"
                "    except PermissionError:\n"
                "        pass\n"
                "import builtins, codecs, gc, os.path, signal, sys, threading, types, weakref\n"
                "attempt(lambda: gc.callbacks.append(marker('gc')))\n"
                "fake = types.ModuleType('json')\n"
                "fake.__getattr__ = marker('module')\n"
                "attempt(lambda: sys.modules.__setitem__('json', fake))\n"
                "class Finder:\n"
                "    find_spec = staticmethod(marker('finder'))\n"
                "attempt(lambda: sys.meta_path.insert(0, Finder()))\n"
                "attempt(lambda: sys.path_hooks.insert(0, marker('hook')))\n"
                "attempt(lambda: sys.path_importer_cache.clear())\n"
                "attempt(lambda: codecs.register(marker('codec')))\n"
                "attempt(lambda: sys.set_asyncgen_hooks(firstiter=marker('asyncgen')))\n"
                "attempt(lambda: weakref.finalize(int, marker('finalize')))\n"
                "attempt(lambda: signal.signal(signal.SIGUSR2, marker('signal')))\n"
                "attempt(lambda: sys.setrecursionlimit(60))\n"
                "attempt(lambda: threading._register_atexit(marker('atexit')))\n"
                "attempt(lambda: setattr(os.path, 'join', marker('join')))\n"
                "attempt(lambda: setattr(builtins, 'len', marker('len')))\n"
                "attempt(lambda: setattr(sys, 'excepthook', marker('excepthook')))\n"
                "class Out:\n"
                "    write = staticmethod(marker('stdout'))\n"
                "    flush = staticmethod(marker('flush'))\n"
                "attempt(lambda: setattr(sys, 'stdout', Out()))\n"),
         Any(scope_of(map_of({{"d", String(dir.string())}})))});
    EXPECT_TRUE(left.isNone()) << display(left).toUtf8();
    ASSERT_FALSE(set_level("standard").isError());
    // Everything that would run what was left behind, unsandboxed.
    Any later = evaluate("import codecs, gc, json, os.path, sys\n"
                         "gc.collect()\n"
                         "json.dumps([1])\n"
                         "try:\n"
                         "    import brimora_no_such_module\n"
                         "except ImportError:\n"
                         "    pass\n"
                         "try:\n"
                         "    codecs.lookup('brimora-no-such-codec')\n"
                         "except LookupError:\n"
                         "    pass\n"
                         "async def numbers():\n"
                         "    yield 1\n"
                         "generator = numbers()\n"
                         "generator.__anext__().close()\n"
                         "def deep(n):\n"
                         "    return n if n == 0 else deep(n - 1)\n"
                         "deep(200)\n"
                         "os.path.join('a', 'b')\n"
                         "len([])\n"
                         "print('', end='')\n"
                         "sys.stdout.flush()\n"
                         "return sys.getrecursionlimit() != 60");
    ASSERT_TRUE(Boolean::test(later)) << display(later).toUtf8();
    EXPECT_TRUE(Boolean::unsafe(later).value());
    std::vector<std::string> written;
    for (auto const& entry : fs::directory_iterator(dir)) written.push_back(entry.path().filename().string());
    EXPECT_TRUE(written.empty()) << "ran later: " << ::testing::PrintToString(written);
    std::error_code ignored;
    fs::remove_all(dir, ignored);
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
