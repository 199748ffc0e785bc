#!/usr/bin/env python3
"""Runs the workplace's mutate.py over tests/mutants.txt, reading test output leniently.

A failing test may print bytes that are not UTF-8 (an escaped record, say); mutate.py decodes
test output strictly and would stop there. This wrapper makes the decoding lenient and passes
every argument on unchanged:

    python3 tools/run_mutants.py tests/mutants.txt --build build [--only LABEL] [--json OUT]

Run from the project root on a clean working tree, with the named test binaries built.
"""
import os
import runpy
import subprocess
import sys

MUTATE = os.environ.get("QZ_MUTATE", os.path.join(os.path.dirname(__file__), "..", "..", "shared",
                                                  "tools", "mutate.py"))
_run = subprocess.run


def lenient_run(*args, **kwargs):
    if kwargs.get("text"):
        kwargs.setdefault("errors", "replace")
    return _run(*args, **kwargs)


subprocess.run = lenient_run
sys.argv = ["mutate.py"] + sys.argv[1:]
runpy.run_path(MUTATE, run_name="__main__")
