#!/usr/bin/env bash
# The main job: install what is missing, build, print the project's test page through the plug-in,
# decode the stream into a preview of what the printer would print, print and measure the colour proof,
# and show the commands of a short job (two blank pages).
set -euo pipefail
cd "$(dirname "$0")"

./scripts/install-deps.sh image

echo "== build (build/)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target inkweave_cli inkweave

inkweave=build/cli/inkweave
mkdir -p out

echo "== print examples/testpage.pdf (A4, 300 dpi, dither, plain paper) to out/testpage.prn"
"$inkweave" print examples/testpage.pdf -o out/testpage.prn

echo "== decode out/testpage.prn: out/testpage-1.png, out/testpage-2.png"
"$inkweave" decode out/testpage.prn -o out/testpage.png

echo "== colour proof (300 dpi, dither, plain paper): out/proof.png"
"$inkweave" proof -o out/proof.png | tail -n 1

echo "== dump of a job of two blank pages (out/blank.prn)"
"$inkweave" print examples/blank.png examples/blank.png --quality 150 -q -o out/blank.prn
"$inkweave" dump out/blank.prn
