#!/usr/bin/env bash
# Builds the Windows x64 plug-in with MinGW-w64: build-win/inkweave.dll (exports DllGetClassObject and
# DllCanUnloadNow, string and version resources, the C and C++ runtimes linked in) and
# build-win/inkweave-hosttest.exe (our host driving the DLL; run under Wine by the tests). Installs the
# Debian packages it needs first. Options: --clean (start from an empty build-win/).
set -euo pipefail
cd "$(dirname "$0")"

if [ "${1:-}" = "--clean" ]; then
  rm -rf build-win
fi

./scripts/install-deps.sh windows

jobs=$(nproc 2>/dev/null || echo 2)

echo "== Windows x64 build (build-win/)"
cmake -S windows -B build-win -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" >/dev/null
cmake --build build-win -j "$jobs"
echo "build-win/inkweave.dll, build-win/driver/ (the driver package)"
echo "build-win/inkweave-hosttest.exe"
