#!/usr/bin/env bash
# Rebuilds the table generators and rewrites every generated table source in src/data/generated/
# (src/data/generated/<name>.cpp comes from tools/gen_<name>.cpp). Run after changing a generator; the
# table tests then pin the new contents (update their digests).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
for out in src/data/generated/*.cpp; do
  name=$(basename "$out" .cpp)
  target="gen-${name//_/-}"
  cmake --build "$build" --target "$target" >/dev/null
  "$build/tools/$target" "$out"
  echo "wrote $out"
done
git --no-pager diff --stat -- src/data/generated/ || true
