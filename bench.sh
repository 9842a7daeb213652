#!/usr/bin/env bash
# Builds the benchmarks in release mode (build-bench/) and runs them: every micro-benchmark of bench/,
# then the whole-page benchmark one configuration per process (so each peak memory is its own), and
# `inkweave print` of a 600 dpi A4 page under /usr/bin/time, and the side-by-side run against Debian's
# peers on the same page (bench/peers.sh). Prints the tables in Markdown.
#   ./bench.sh            everything
#   ./bench.sh pages      only the page table, the print measurement and the peers
#   ./bench.sh peers      only the peers
set -euo pipefail
cd "$(dirname "$0")"
only="${1:-all}"
./scripts/install-deps.sh image cups bench

cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DINKWEAVE_BENCH=ON -DINKWEAVE_TESTS=OFF >/dev/null
log=build-bench/build.log
mkdir -p build-bench
cmake --build build-bench -j "${JOBS:-2}" >"$log" 2>&1 || { grep -E "error|FAILED" -A3 "$log" | head -30; exit 1; }

if [ "$only" = all ]; then
  for b in build-bench/bench/*_bench; do
    [ "$(basename "$b")" = page_bench ] && continue
    echo "== $(basename "$b")"
    "$b" --benchmark_min_time=0.2
  done
fi

if [ "$only" = peers ]; then
  echo "== against the peers, page 1 of examples/testpage.pdf at 600 dpi"
  bench/peers.sh build-bench
  exit 0
fi

echo "== whole A4 pages through the entry points (CPU time of one core)"
json=$(mktemp)
trap 'rm -f "$json" "$json".*' EXIT
for dpi in 300 600 1200; do
  for diffusion in 0 1; do
    for mono in 0 1; do
      build-bench/bench/page_bench --benchmark_filter="BM_A4Page/dpi:$dpi/diffusion:$diffusion/mono:$mono/" \
        --benchmark_format=json >"$json.$dpi.$diffusion.$mono" 2>/dev/null
    done
  done
done
python3 - "$json" <<'PY'
import glob, json, sys
rows = []
for path in sorted(glob.glob(sys.argv[1] + ".*")):
    for b in json.load(open(path))["benchmarks"]:
        args = dict(part.split(":") for part in b["name"].split("/")[1:4])
        mode = {"300": "300 dpi", "600": "600 dpi", "1200": "600 dpi high-res"}[args["dpi"]]
        cpu_s = b["cpu_time"] / 1000.0
        rows.append((int(args["dpi"]), int(args["diffusion"]), int(args["mono"]), mode,
                     "diffusion" if args["diffusion"] == "1" else "dither",
                     "mono" if args["mono"] == "1" else "colour", cpu_s, 60.0 / cpu_s,
                     b["Mpx/s"], b["stream_MB"], b["peak_MiB"]))
print("| mode | halftone | colour | s/page | pages/min | Mpx/s | stream MB/page | peak MiB |")
print("|---|---|---|---:|---:|---:|---:|---:|")
for r in sorted(rows):
    print(f"| {r[3]} | {r[4]} | {r[5]} | {r[6]:.3f} | {r[7]:.1f} | {r[8]:.1f} | {r[9]:.2f} | {r[10]:.1f} |")
PY

echo
echo "== inkweave print, A4 page 1 of the test page at 600 dpi"
mkdir -p out
for extra in "" "--halftone diffusion" "--high-res"; do
  /usr/bin/time -f "%e s elapsed, %U s user, %M KiB peak" build-bench/cli/inkweave print examples/testpage.pdf \
    --pages 1 --quality 600 $extra -q -o out/bench.prn 2>&1 | sed "s/^/  600 dpi ${extra:-dither}: /"
done
rm -f out/bench.prn

echo
echo "== against the peers, page 1 of examples/testpage.pdf at 600 dpi"
bench/peers.sh build-bench
