#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and fuzzing need.
# Does nothing when every package is already present; otherwise runs
# `apt-get update` once and installs only the missing ones.
set -euo pipefail

PACKAGES=(
  cmake ninja-build g++ clang-14 libclang-rt-14-dev pkg-config
  libprotobuf-dev protobuf-compiler
  libgrpc++-dev protobuf-compiler-grpc
  libcli11-dev
  libfmt-dev libboost-dev libabsl-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libyang2-dev libyang2-tools libyuma-base
  libssl-dev libcrypt-dev openssl
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "installing: ${missing[*]}"
$SUDO apt-get update
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
