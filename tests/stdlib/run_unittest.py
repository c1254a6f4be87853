"""Runs the tests of CPython's own test modules with unittest and prints
their counts, so that the counts inside the host and in python3 can be
compared.

usage: run_unittest.py MODULE [MODULE...]   (e.g. test_json)
Prints one line per module: "COUNTS <json>" with the module's name and the
numbers of tests run, failed, errored and skipped, and the ids of the tests
that failed or errored.
"""
import io
import json
import sys
import unittest


def detach_host_logging():
    """Inside the host, the root logger sends its records to the host's
    logger (a TeskLogHandler, level INFO). test_logging requires the root
    logger of a fresh python3 (its setUp fails on any handler), so its run
    starts from one; in python3 this changes nothing."""
    import logging
    root = logging.getLogger()
    for handler in [h for h in root.handlers if type(h).__name__ == "TeskLogHandler"]:
        root.removeHandler(handler)
        root.setLevel(logging.WARNING)


# What a module needs of the process before its tests run, with the reason
# in each function's doc. The tests themselves all run, on both sides.
PREPARATIONS = {"test_logging": detach_host_logging}


def run_module(name):
    if name in PREPARATIONS:
        PREPARATIONS[name]()
    loader = unittest.TestLoader()
    try:
        suite = loader.loadTestsFromName("test." + name)
    except Exception as error:  # a module that cannot even be imported
        return {"module": name, "import_error": f"{type(error).__name__}: {error}"}
    stream = io.StringIO()
    result = unittest.TextTestRunner(stream=stream, verbosity=0).run(suite)
    return {
        "module": name,
        "run": result.testsRun,
        "failures": len(result.failures),
        "errors": len(result.errors),
        "skipped": len(result.skipped),
        "failed": sorted(test.id() for test, _ in result.failures + result.errors),
    }


def main(names):
    for name in names:
        counts = run_module(name)
        sys.__stdout__.write("COUNTS " + json.dumps(counts) + "\n")
        sys.__stdout__.flush()


if __name__ == "__main__":
    main(sys.argv[1:])
