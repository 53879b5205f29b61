#!/usr/bin/env python3
"""Builds the site of the documents, as scripts/site does, without a warning or a dead link.

usage: check_site.py ROOT

Ends with 77, or in CI with 1, if mkdocs is missing.
"""

import os
import subprocess
import sys
import tempfile

SKIPPED = 77  # CTest knows it


def main():
    with tempfile.TemporaryDirectory() as folder:
        result = subprocess.run([f"{sys.argv[1]}/scripts/site", folder], check=False)
    is_missing = result.returncode == SKIPPED and os.environ.get("CI")
    return 1 if is_missing else result.returncode


if __name__ == "__main__":
    sys.exit(main())
