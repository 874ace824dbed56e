#!/usr/bin/env bash
# Installs what is missing, builds the library and runs the demo with traces on.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/configure.sh release
cmake --build build -j"$(nproc)" --target PathDemo
ZOLT_TRACE="${ZOLT_TRACE:-Demo=0x2,OstrelPath=0x200}" ./build/examples/PathDemo
