#!/usr/bin/env bash
# Rebuilds the table generators and rewrites every generated table source in src/data/generated/
# (src/data/generated/<name>.cpp comes from tools/gen_<name>.cpp), after the printer model's ink fit
# (decode/generated/ink_model.cpp, from tools/fit_ink_model.cpp; needs Little CMS 2), and the files made
# from locale/strings.tsv. Run after changing a generator; the table tests then pin the new contents
# (update their digests).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
# The printer model's inks first: the ink-split rows between the given ones and the colour tables are
# inverted through it.
if cmake --build "$build" --target fit-ink-model >/dev/null 2>&1; then
  "$build/tools/fit-ink-model" decode/generated/ink_model.cpp >/dev/null
  echo "wrote decode/generated/ink_model.cpp"
fi
# The ink-split tables before the colour tables: the colour tables' inversion prints through them.
split=src/data/generated/ink_split_tables.cpp
for out in "$split" $(ls src/data/generated/*.cpp | grep -vx "$split"); do
  name=$(basename "$out" .cpp)
  [ -f "tools/gen_$name.cpp" ] || continue  # english_strings.cpp comes from gen-strings below
  target="gen-${name//_/-}"
  cmake --build "$build" --target "$target" >/dev/null
  "$build/tools/$target" "$out"
  echo "wrote $out"
done
# The display strings: the resource script, the PPD fragment and the English table, from one file.
cmake --build "$build" --target gen-strings >/dev/null
"$build/tools/gen-strings" locale/strings.tsv windows/generated/strings.rc cups/generated/translations.ppd \
  src/data/generated/english_strings.cpp
echo "wrote windows/generated/strings.rc cups/generated/translations.ppd src/data/generated/english_strings.cpp"
git --no-pager diff --stat -- src/data/generated/ decode/generated/ windows/generated/ cups/generated/ || true
