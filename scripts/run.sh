#!/usr/bin/env bash
# The main job: set up, build a Release build and run the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DQVDSP_TESTS=OFF -DQVDSP_BENCHMARKS=OFF > /dev/null
cmake --build build/release --target qvdsp -j 2
build/release/cli/qvdsp demo "$@"
