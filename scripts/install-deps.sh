#!/usr/bin/env bash
# Installs, with apt, whatever the project needs and the machine lacks (Debian 12). Safe to re-run.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git clang-format
  libgtest-dev libgmock-dev libbenchmark-dev libgnutls28-dev  # GnuTLS: the tests' SHA-256 digests
)
# Extra groups, asked for by name: ./scripts/install-deps.sh [image] [cups] [pappl] [windows] [bench] [clang]
for group in "$@"; do
  case "$group" in
    image) packages+=(libvips-dev libcli11-dev libpoppler-glib-dev libcairo2-dev poppler-utils liblcms2-dev help2man) ;;
    cups) packages+=(libcups2-dev cups cups-filters cups-bsd ghostscript) ;;
    pappl) packages+=(libpappl-dev cups-ipp-utils) ;;  # the printer application; ipptool for its tests
    windows) packages+=(g++-mingw-w64-x86-64 wine64) ;;
    # the benchmarks and their peers: Gutenprint's CUPS filter, Ghostscript, hyperfine
    bench) packages+=(libbenchmark-dev hyperfine printer-driver-gutenprint ghostscript) ;;
    # the clang sanitizer run and the libFuzzer harnesses: the runtimes are only recommended by clang
    clang) packages+=(clang libclang-rt-14-dev) ;;
    *) echo "install-deps: unknown group '$group' (known: image, cups, pappl, windows, bench, clang)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
