#!/usr/bin/env bash
# Rewrites tests/golden/streams.sha256 from the current code and lists the cases whose stream changed.
# Only for intended changes of the printer stream: review the listed cases before committing.
#   tests/golden/update.sh [build-dir]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/../.."
build="${1:-build}"
cmake --build "$build" --target golden_test >/dev/null
"$build/tests/golden/golden_test" --update
git --no-pager diff -U0 tests/golden/streams.sha256 | grep '^[-+][0-9a-f]' || echo "no stream changed"
