#!/usr/bin/env bash
# Fails when a tracked C++ source is not formatted as .clang-format says (the generated files under
# */generated/ excepted): clang-format names every line it would change. Fix with
#   clang-format -i <file>...
set -euo pipefail
cd "$(dirname "$0")/.."

if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  mapfile -t files < <(git ls-files -- '*.cpp' '*.h' ':!:*/generated/*')
else  # an unpacked tree without git
  mapfile -t files < <(find . -path ./build\* -prune -o \( -name '*.cpp' -o -name '*.h' \) -not -path '*/generated/*' -print)
fi
if ! clang-format --dry-run --Werror "${files[@]}"; then
  echo "check-format: the files above are not formatted; run clang-format -i on them" >&2
  exit 1
fi
echo "check-format: ${#files[@]} C++ files formatted"
