#!/usr/bin/env bash
# Builds the fuzzers with clang (build-fuzz/), writes their seed corpora and runs each for SECONDS
# (default 60), one after the other, keeping what each finds in build-fuzz/corpus/NAME. A crash stops
# the run with the fuzzer's report; its input is left in build-fuzz/crash-NAME-*.
#   fuzz/run.sh [SECONDS] [NAME...]     NAME: decoder plugin filter
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
names=("${@:2}")
[ ${#names[@]} -eq 0 ] && names=(decoder plugin filter)

CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DINKWEAVE_FUZZ=ON \
  -DINKWEAVE_TESTS=OFF -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" >/dev/null
cmake --build build-fuzz -j "$(nproc 2>/dev/null || echo 2)" --target make-fuzz-seeds $(printf 'fuzz-%s ' "${names[@]}")
rm -rf build-fuzz/seeds
build-fuzz/fuzz/make-fuzz-seeds build-fuzz/seeds

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for name in "${names[@]}"; do
  mkdir -p "build-fuzz/corpus/$name"
  extra=()
  # The filter: its own messages (one set per input) off, and any allocation over 1 GiB a finding (the
  # filter's largest row is 108 KB; libcups sets up a row of a header's size before the filter sees it,
  # so the filter must refuse a hostile header before libcups reads it).
  [ "$name" = filter ] && extra=(-close_fd_mask=2 -malloc_limit_mb=1024)
  log="build-fuzz/fuzz-$name.log"
  if ! build-fuzz/fuzz/fuzz-"$name" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=4096 -print_final_stats=1 \
      -artifact_prefix="build-fuzz/crash-$name-" "${extra[@]}" "build-fuzz/corpus/$name" "build-fuzz/seeds/$name" \
      >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz-$name: FAILED (input in build-fuzz/crash-$name-*, log $log)" >&2
    exit 1
  fi
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo "?")
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1 || echo "cov: ?")
  echo "fuzz-$name: ${seconds}s, $runs runs, $cov edges, corpus $(ls "build-fuzz/corpus/$name" | wc -l) inputs, no finding"
done
