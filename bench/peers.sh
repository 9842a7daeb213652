#!/usr/bin/env bash
# Side by side with Debian's peers on one page: page 1 of examples/testpage.pdf, rasterised once by
# Ghostscript at 600 x 600 dpi (8-bit RGB CUPS raster), then
#   - our CUPS filter (rastertoinkweave) with dither and with error diffusion;
#   - Gutenprint's CUPS filter (rastertogutenprint) for a 600 x 600 dpi colour inkjet with its
#     default dither and with EvenTone; the model is the first of the driver's PCL models whose PPD
#     offers 600 x 600 dpi, RGB and EvenTone (chosen by capability, so the choice is reproducible);
# and, from the PDF itself,
#   - Ghostscript's stcolor device (it takes page descriptions, not CUPS raster) with its ordered
#     (gscmyk) and Floyd-Steinberg (fscmyk) dithering, against `inkweave print` of the same page.
# Runs are interleaved: ROUNDS rounds (default 5), each running every command RUNS times (default 2)
# under hyperfine, so the machine's load drifts over all commands alike. Prints medians of wall and
# CPU (user + system) seconds and the ratios to our filter, as Markdown.
#   bench/peers.sh BUILD_DIR     (a release build with the CUPS filter and the inkweave command)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build-bench}"
rounds="${ROUNDS:-5}"
runs="${RUNS:-2}"
work="$build/peers"
mkdir -p "$work"

need() { command -v "$1" >/dev/null || { echo "peers: $1 is missing (./scripts/install-deps.sh bench)" >&2; exit 2; }; }
need hyperfine
need gs
driver=/usr/lib/cups/driver/gutenprint.5.3
gutenprint=/usr/lib/cups/filter/rastertogutenprint.5.3
[ -x "$driver" ] && [ -x "$gutenprint" ] || { echo "peers: Gutenprint's CUPS driver is missing (./scripts/install-deps.sh bench)" >&2; exit 2; }
filter="$build/cups/rastertoinkweave"
ppd="$build/cups/inkweave-en.ppd"
plugin="$build/src/libinkweave.so"
cli="$build/cli/inkweave"
for f in "$filter" "$ppd" "$plugin"; do [ -e "$f" ] || { echo "peers: $f is missing (build $build first)" >&2; exit 2; }; done

# The page, rasterised once. cupsCompression 5 is how Gutenprint's PPDs mark their 600 x 600 dpi mode.
pdf=examples/testpage.pdf
raster="$work/page.ras"
if [ ! -s "$raster" ] || [ "$raster" -ot "$pdf" ]; then
  gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=cups -r600 -dcupsColorSpace=1 -dcupsBitsPerColor=8 -dcupsColorOrder=0 \
    -dcupsCompression=5 -dFirstPage=1 -dLastPage=1 -sOutputFile="$raster" "$pdf"
fi

# Gutenprint's PPD for the first PCL model with 600 x 600 dpi, RGB and EvenTone.
peerppd="$work/gutenprint.ppd"
if [ ! -s "$peerppd" ]; then
  for uri in $("$driver" list 2>/dev/null | grep -o '"gutenprint.5.3://pcl-[^"]*/expert"' | tr -d '"'); do
    "$driver" cat "$uri" >"$peerppd" 2>/dev/null || continue
    grep -q '^\*Resolution 600dpi/' "$peerppd" && grep -q '^\*ColorModel RGB/' "$peerppd" &&
      grep -q '^\*StpDitherAlgorithm EvenTone/' "$peerppd" && break
    rm -f "$peerppd"
  done
  [ -s "$peerppd" ] || { echo "peers: no Gutenprint model with 600 x 600 dpi colour" >&2; exit 2; }
fi

ours() { echo "env PPD=$ppd INKWEAVE_PLUGIN=$plugin $filter 1 bench page 1 'PageSize=A4 Resolution=600dpi ColorModel=RGB InkweaveHalftone=$1' $raster"; }
theirs() { echo "env PPD=$peerppd $gutenprint 1 bench page 1 'PageSize=A4 Resolution=600dpi ColorModel=RGB StpDitherAlgorithm=$1' $raster"; }
stcolor() { echo "gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=stcolor -sDithering=$1 -r600 -sPAPERSIZE=a4 -dFIXEDMEDIA -dFirstPage=1 -dLastPage=1 -sOutputFile=/dev/null $pdf"; }
print() { echo "$cli print $pdf --pages 1 --quality 600 $1 -q -o $work/print.prn"; }

names=("our filter, dither" "our filter, diffusion" "Gutenprint, default dither" "Gutenprint, EvenTone"
  "Ghostscript stcolor from the PDF, gscmyk" "Ghostscript stcolor from the PDF, fscmyk")
commands=("$(ours Dither)" "$(ours Diffusion)" "$(theirs None)" "$(theirs EvenTone)" "$(stcolor gscmyk)"
  "$(stcolor fscmyk)")
if [ -x "$cli" ]; then
  names+=("inkweave print from the PDF, dither" "inkweave print from the PDF, diffusion")
  commands+=("$(print "")" "$(print "--halftone diffusion")")
fi

args=()
for i in "${!commands[@]}"; do args+=(-n "${names[$i]}" "${commands[$i]} >/dev/null 2>&1"); done
for round in $(seq "$rounds"); do
  hyperfine --style none --warmup 0 --runs "$runs" --export-json "$work/round$round.json" "${args[@]}" >/dev/null
done

python3 - "$work" "$rounds" <<'PY'
import json, statistics, sys
work, rounds = sys.argv[1], int(sys.argv[2])
wall, cpu, order = {}, {}, []
for r in range(1, rounds + 1):
    for res in json.load(open(f"{work}/round{r}.json"))["results"]:
        name = res["command"]
        if name not in order:
            order.append(name)
        wall.setdefault(name, []).extend(res["times"])
        # hyperfine keeps the mean user and system time of the runs
        cpu.setdefault(name, []).extend([res["user"] + res["system"]] * len(res["times"]))
# Each peer against ours in the same kind of halftone and from the same input.
against = {"Gutenprint, default dither": "our filter, dither", "Gutenprint, EvenTone": "our filter, diffusion",
           "Ghostscript stcolor from the PDF, gscmyk": "inkweave print from the PDF, dither",
           "Ghostscript stcolor from the PDF, fscmyk": "inkweave print from the PDF, diffusion"}
med = statistics.median
print("| program | wall s | CPU s | against | wall ratio | CPU ratio |")
print("|---|---:|---:|---|---:|---:|")
for name in order:
    ours = against.get(name)
    if ours in wall:
        ratio = f"{ours} | {med(wall[name]) / med(wall[ours]):.2f} x | {med(cpu[name]) / med(cpu[ours]):.2f} x"
    else:
        ratio = " | | "
    print(f"| {name} | {med(wall[name]):.3f} | {med(cpu[name]):.3f} | {ratio} |")
print(f"\n(medians over {rounds} interleaved rounds; a ratio is the peer's time over ours: above 1, ours is faster)")
PY
