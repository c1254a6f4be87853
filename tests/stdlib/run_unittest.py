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


def run_module(name):
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
