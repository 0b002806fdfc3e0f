#!/usr/bin/env bash
# Installs the build and test dependencies from Debian's packages.
set -euo pipefail
packages=(build-essential cmake ninja-build zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev clang
  libclang-rt-dev clang-format)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
