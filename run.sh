#!/usr/bin/env bash
# Installs what is missing, builds in build/, prints the bundled test page to out/testpage.prn and
# writes out/testpage-1.png, the preview of what the printer would print.
set -euo pipefail
cd "$(dirname "$0")"

./scripts/install-deps.sh image

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)"

mkdir -p out
inkweave=build/cli/inkweave
"$inkweave" print examples/testpage.pdf -o out/testpage.prn
"$inkweave" decode out/testpage.prn -o out/testpage.png --stats
echo
echo "A job of two blank pages, one command per line:"
"$inkweave" print --blank-pages 2 -o out/blank.prn --quiet
"$inkweave" dump out/blank.prn
