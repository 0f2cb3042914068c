#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests and the benchmarks
# need. A second run finds nothing missing and does nothing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  libfftw3-dev libsndfile1-dev libsoxr-dev libsoundtouch-dev zlib1g-dev
  clang-format
  clang libclang-rt-14-dev  # the libFuzzer targets (scripts/fuzz.sh)
  hyperfine ffmpeg soundstretch  # speed compared side by side with peer tools
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

[[ ${#missing[@]} -eq 0 ]] && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "Missing packages. Install them as root with:" >&2
  echo "  apt-get install -y ${missing[*]}" >&2
  exit 1
fi

echo "Installing: ${missing[*]}"
apt-get update -qq
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
