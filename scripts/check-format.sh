#!/usr/bin/env bash
# Fails when any C++ file of the repository differs from what clang-format makes
# of it under the repository's .clang-format, and lists those files.
set -euo pipefail
cd "$(dirname "$0")/.."
formatter=${CLANG_FORMAT:-clang-format}
mapfile -t files < <(git ls-files '*.cpp' '*.h' 2>/dev/null || find src include cli tests bench fuzz -name '*.cpp' -o -name '*.h')
unformatted=()
for file in "${files[@]}"; do
  [[ -f "$file" ]] || continue
  if ! "$formatter" --dry-run --Werror "$file" > /dev/null 2>&1; then
    unformatted+=("$file")
  fi
done
if [[ ${#unformatted[@]} -gt 0 ]]; then
  echo "Not formatted (run: clang-format -i FILE):" >&2
  printf '  %s\n' "${unformatted[@]}" >&2
  exit 1
fi
echo "${#files[@]} files formatted"
