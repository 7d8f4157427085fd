"""Says what was tried and how it went; finish() ends the process with 1 when one of it failed."""
import sys
import traceback

_failures = []


def equal(got, expected, what=""):
    assert got == expected, f"{what}: got {got!r:.400}, expected {expected!r:.400}"


def report(name, run, *args):
    try:
        run(*args)
        print("ok      " + name, flush=True)
    except Exception:  # of whatever kind: the next one is tried all the same
        _failures.append(name)
        print("FAILED  " + name + "\n" + traceback.format_exc(), flush=True)


def finish():
    sys.exit(1 if _failures else 0)
