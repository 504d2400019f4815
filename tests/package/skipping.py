"""How a test that not every machine can run ends."""

import os
import subprocess
import sys

SKIPPED = 77


def skip(what, reason):
    print(f"SKIPPED, {what} NOT TESTED: {reason}", flush=True)
    sys.exit(SKIPPED)


def run_tests(files, **environment):
    """Ends with the status of the tests in the files."""
    command = [sys.executable, "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", *files]
    sys.exit(subprocess.run(command, env={**os.environ, **environment}, check=False).returncode)
