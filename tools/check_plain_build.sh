#!/bin/sh
# Checks that the library's sources compile with the language's standard and an include directory,
# and nothing else, as they do for someone who drops them into another tree.
# usage: check_plain_build.sh ROOT [COMPILER]
set -eu

cd "$1"
find qkmem support -name '*.cpp' -print0 |
  xargs -0 -r -n 4 -P "$(nproc)" "${2:-g++}" -std=c++20 -I. -fsyntax-only
