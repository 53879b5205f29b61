"""What the checks of this folder share: running programs, and comparing."""

import os
import subprocess
import sys

SKIPPED = 77  # CTest knows it


def missing(what):
    """Ends the check because a tool is missing, which only CI takes for a failure."""
    print(f"{what} not found; scripts/setup viewers installs it")
    sys.exit(1 if os.environ.get("CI") else SKIPPED)


def run(*command, given=b""):
    """Returns the standard output of a command, which must succeed."""
    result = subprocess.run(command, input=given, capture_output=True, check=False)
    if result.returncode != 0:
        printed = (result.stdout + result.stderr).decode("utf-8", "replace")
        sys.exit(f"{' '.join(command)} returned {result.returncode}:\n{printed}")
    return result.stdout


def expect_equal(what, found, expected):
    if found != expected:
        sys.exit(f"{what}: found\n{found}\nexpected\n{expected}")
