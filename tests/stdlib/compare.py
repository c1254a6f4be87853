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
import tempfile
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
# Python's logging goes to the host's logger (the root logger's handler), so a
# record of a library logger reaches the host (brimora prints it on its own
# standard error) where python3, without any handler, has logging.lastResort
# write it to sys.stderr, which these tests capture.
_LOGGING_GOES_TO_THE_HOST = "Python's logging goes to the host's logger, not to sys.stderr"
EXPECTED_DIFFERENCES = {
    "test.test_concurrent_futures.test_future.FutureTests.test_done_callback_raises": _LOGGING_GOES_TO_THE_HOST,
    "test.test_concurrent_futures.test_future.FutureTests.test_done_callback_raises_already_succeeded":
        _LOGGING_GOES_TO_THE_HOST,
}

TIMEOUT = 900


def counts_in(output):
    """The counts that the runner printed, also when a test's own output left
    the line unfinished before them (the line then starts with that output)."""
    decoder = json.JSONDecoder()
    for line in reversed(output.splitlines()):
        at = line.rfind("COUNTS {")
        if at >= 0:
            try:
                return decoder.raw_decode(line, at + len("COUNTS "))[0]
            except ValueError:
                continue
    return None


def run_side(command, module):
    """Runs one side in a process group of its own, and kills whatever the
    run leaves behind in it (a manager process that ignores SIGINT, say),
    which would otherwise keep running and hold the output open. The output
    goes to files, so nothing waits for a pipe that a leftover holds."""
    started = time.monotonic()
    with tempfile.TemporaryFile("w+", errors="replace") as out, \
            tempfile.TemporaryFile("w+", errors="replace") as err:
        process = subprocess.Popen(command + [RUNNER, module], stdout=out, stderr=err,
                                   stdin=subprocess.DEVNULL, process_group=0)
        try:
            process.wait(timeout=TIMEOUT)
            timed_out = False
        except subprocess.TimeoutExpired:
            timed_out = True
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
        out.seek(0)
        err.seek(0)
        stdout, stderr = out.read(), err.read()
    if timed_out:
        return {"module": module, "error": f"no result within {TIMEOUT} s"}
    counts = counts_in(stdout)
    if counts is not None:
        counts["seconds"] = round(time.monotonic() - started, 1)
        return counts
    tail = (stdout + stderr).strip().splitlines()[-5:]
    return {"module": module, "error": f"exit status {process.returncode}: " + " | ".join(tail)}


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
