#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a number of seconds.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]      (targets: XmlReader LoadXml TokenReader
#                                               AudioReaders FileName ID3v2Tag TagWriting)
#
# SECONDS defaults to 60 per target. The build goes to $QVDSP_FUZZ_BUILD
# (default build/fuzz); when builds must go through a wrapper,
# $QVDSP_BUILD_COMMAND names it: it is called as `COMMAND BUILD_DIR TARGET...`
# (for example QVDSP_BUILD_COMMAND=/work/tools/qbuild). Corpora grow in the build folder, seeded
# from fuzz/corpus; inputs that crash a target land in <build>/artifacts/.
# Exits 1 when a target found a failure.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
[[ $# -gt 0 ]] && shift
targets=("$@")
[[ ${#targets[@]} -eq 0 ]] && targets=(XmlReader LoadXml TokenReader AudioReaders FileName ID3v2Tag TagWriting)
build=${QVDSP_FUZZ_BUILD:-build/fuzz}

build_targets() {
  local dir=$1
  shift
  if [[ -n ${QVDSP_BUILD_COMMAND:-} ]]; then
    $QVDSP_BUILD_COMMAND "$dir" "$@"
  else
    cmake --build "$dir" --target "$@"
  fi
}

if ! command -v clang++ > /dev/null; then
  echo "fuzz.sh: clang is needed. Install it with: apt-get install -y clang libclang-rt-14-dev" >&2
  exit 1
fi
runtime="$(clang++ -print-resource-dir)/lib/linux/libclang_rt.fuzzer-x86_64.a"
if [[ ! -f "$runtime" ]]; then
  echo "fuzz.sh: the libFuzzer runtime is missing. Install it with: apt-get install -y libclang-rt-14-dev" >&2
  exit 1
fi

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQVDSP_FUZZ=ON -DQVDSP_TESTS=OFF -DQVDSP_BENCHMARKS=OFF > /dev/null
build_targets "$build" "${targets[@]/#/fuzz_}"

failed=0
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  artifacts="$build/artifacts/$target/"
  mkdir -p "$corpus" "$artifacts"
  cp -n fuzz/corpus/"$target"/* "$corpus"/ 2> /dev/null || true
  log="$build/$target.log"
  echo "== $target: $seconds s"
  if ! "$build/fuzz/fuzz_$target" "$corpus" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
      -rss_limit_mb=2048 -artifact_prefix="$artifacts" -print_final_stats=1 > "$log" 2>&1; then
    failed=1
    echo "   FAILED, see $log; inputs in $artifacts"
  fi
  grep -E "^Done [0-9]+ runs|stat::number_of_executed_units" "$log" | sed 's/^/   /' || true
done
exit "$failed"
