"""Runs CPython's own test modules inside the host (brimora run) and in
python3 beside it, and fails when the counts differ: tests run, failed,
errored and skipped. Differences that are inherent to embedding are listed
below, each with its reason; everything else must match exactly.

usage: python3.13 compare.py BRIMORA [--long] [MODULE...]
  BRIMORA   the host program
  --long    the long list (a manual run of several minutes more)
  MODULE    these test modules instead of a list
Run it with the python3 whose runtime library the host embeds.
"""
import json
import os
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
RUNNER = os.path.join(HERE, "run_unittest.py")

# About two minutes on each side: run by the project's CI.
SHORT = [
    "test_json", "test_threading", "test_subprocess", "test_logging", "test_traceback",
    "test_exceptions", "test_inspect", "test_sys", "test_os", "test_atexit", "test_warnings",
    "test_io",
]
# For a manual run.
LONG = SHORT + [
    "test_site", "test_faulthandler", "test_pdb", "test_unittest", "test_concurrent_futures",
    "test_multiprocessing_spawn", "test_venv", "test_signal", "test_tempfile", "test_shutil",
    "test_pathlib", "test_datetime", "test_decimal", "test_collections", "test_typing",
    "test_functools", "test_itertools", "test_re", "test_unicode", "test_codecs", "test_csv",
    "test_sqlite3", "test_zipfile", "test_argparse",
]

# Tests whose outcome inside the host differs from python3's for a reason
# that belongs to embedding itself, by test id, with the reason.
# brimora owns SIGINT: Ctrl-C stops the running evaluation ("interrupted",
# exit status 130), so Python inside the host has no SIGINT handler of its
# own, and signal.getsignal(SIGINT) is None where python3 gives
# default_int_handler. Tests that save and restore that handler, or that
# raise KeyboardInterrupt through _thread.interrupt_main, differ.
_SIGINT_OWNED_BY_THE_HOST = "brimora owns SIGINT: Python has no SIGINT handler of its own inside the host"
EXPECTED_DIFFERENCES = {
    "test.test_threading.InterruptMainTests.test_interrupt_main_mainthread": _SIGINT_OWNED_BY_THE_HOST,
    "test.test_threading.InterruptMainTests.test_interrupt_main_noerror": _SIGINT_OWNED_BY_THE_HOST,
    "test.test_threading.InterruptMainTests.test_interrupt_main_subthread": _SIGINT_OWNED_BY_THE_HOST,
    # _kill_process saves the SIGINT handler and restores it: None cannot be restored.
    "test.test_subprocess.POSIXProcessTestCase.test_kill": _SIGINT_OWNED_BY_THE_HOST,
    "test.test_subprocess.POSIXProcessTestCase.test_terminate": _SIGINT_OWNED_BY_THE_HOST,
    "test.test_subprocess.POSIXProcessTestCase.test_send_signal": _SIGINT_OWNED_BY_THE_HOST,
}

TIMEOUT = 900


def run_side(command, module):
    started = time.monotonic()
    try:
        completed = subprocess.run(command + [RUNNER, module], capture_output=True, text=True,
                                   timeout=TIMEOUT, stdin=subprocess.DEVNULL, errors="replace")
    except subprocess.TimeoutExpired:
        return {"module": module, "error": f"no result within {TIMEOUT} s"}
    for line in reversed(completed.stdout.splitlines()):
        if line.startswith("COUNTS "):
            counts = json.loads(line[len("COUNTS "):])
            counts["seconds"] = round(time.monotonic() - started, 1)
            return counts
    tail = (completed.stdout + completed.stderr).strip().splitlines()[-5:]
    return {"module": module, "error": f"exit status {completed.returncode}: " + " | ".join(tail)}


def differences(module, inside, outside):
    """The unexpected differences between the two sides' results, as text lines."""
    if "error" in inside or "error" in outside:
        return [f"inside: {inside.get('error', 'ok')}; python3: {outside.get('error', 'ok')}"]
    if "import_error" in inside or "import_error" in outside:
        if inside.get("import_error") == outside.get("import_error"):
            return []
        return [f"import: inside {inside.get('import_error')}, python3 {outside.get('import_error')}"]
    expected = {test for test in EXPECTED_DIFFERENCES if test.startswith(f"test.{module}.")}
    failing_inside = set(inside["failed"]) - expected
    failing_outside = set(outside["failed"]) - expected
    lines = [f"fails only inside: {test}" for test in sorted(failing_inside - failing_outside)]
    lines += [f"fails only in python3: {test}" for test in sorted(failing_outside - failing_inside)]
    for key in ("run", "skipped"):
        if inside[key] != outside[key]:
            lines.append(f"{key}: inside {inside[key]}, python3 {outside[key]}")
    return lines


def main(arguments):
    if not arguments or arguments[0] in ("-h", "--help"):
        print(__doc__)
        return 2
    # A shell starts background commands with SIGINT ignored, and an ignored
    # signal stays ignored in every program started from there: both sides'
    # tests of Ctrl-C (_thread.interrupt_main) would then wait for ever.
    # A caught signal goes back to its default action in the children.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    brimora, rest = arguments[0], arguments[1:]
    modules = LONG if rest == ["--long"] else (rest or SHORT)
    unexpected = 0
    for module in modules:
        inside = run_side([brimora, "run"], module)
        outside = run_side([sys.executable], module)
        found = differences(module, inside, outside)
        summary = (f"run={inside.get('run')} failures={inside.get('failures')} errors={inside.get('errors')} "
                   f"skipped={inside.get('skipped')} ({inside.get('seconds')} s inside, "
                   f"{outside.get('seconds')} s in python3)")
        print(f"{'DIFFERS' if found else 'same   '} {module}: {summary}", flush=True)
        for line in found:
            print(f"    {line}", flush=True)
        unexpected += bool(found)
    print(f"{len(modules) - unexpected} passed, {unexpected} failed")
    return 1 if unexpected else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
