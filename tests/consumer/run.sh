#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then configures, builds and
# runs the consumer project against it with find_package(VekTypeDecoder).
set -euo pipefail
build=$1 src=$2 work=$3
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work.install.log" 2>&1 || {
  cat "$work.install.log"; exit 1; }
cmake -S "$src" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix"
cmake --build "$work/build"
out=$("$work/build/consumer")
echo "$out"
test "$out" = "/interfaces/interface[name=eth0]/state/mtu"
