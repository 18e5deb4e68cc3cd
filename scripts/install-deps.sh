#!/usr/bin/env bash
# Installs what building, testing and benchmarking need on Debian 12.
set -euo pipefail
packages=(build-essential cmake ninja-build pkg-config binutils dpkg-dev file
          libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libspdlog-dev
          clang-14 libclang-rt-14-dev zlib1g-dev
          lldb-14 clang-format-14 clang-tidy-14 doxygen python3)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
