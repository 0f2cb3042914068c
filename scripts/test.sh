#!/usr/bin/env bash
# The test job: set up, build with AddressSanitizer and UndefinedBehaviorSanitizer
# in a folder of its own, and run every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
# Object files of any clone of the repository on this machine are reused: ccache
# sees paths relative to the clone, not where the clone happens to be.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQVDSP_SANITIZE=ON > /dev/null
cmake --build build/sanitize -j 2
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build/sanitize --output-on-failure -j 2
