#!/usr/bin/env bash
# Installs the build and test dependencies from Debian's packages.
set -euo pipefail
packages=(build-essential cmake ninja-build zlib1g-dev libexpat1-dev libgtest-dev libgmock-dev libbenchmark-dev clang
  libclang-rt-dev clang-format locales pkg-config
  # the Python package (python/): Debian's interpreter, pybind11 and numpy to build it,
  # pandas, Dask, distributed and matplotlib for its frames, clusters and plots, pytest
  python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pandas python3-pytest python3-dask
  python3-distributed python3-matplotlib)
# Optional: `install-deps.sh --reference-tools` also installs python3-mpmath, which
# scripts/distribution-reference.py needs to regenerate
# tests/data/distribution_reference.tsv. The tests themselves do not need it.
[ "${1:-}" = "--reference-tools" ] && packages+=(python3-mpmath)
# Optional: `install-deps.sh --graphviz` also installs graphviz, whose dot program
# `orvel draw` runs for .svg, .png and .pdf pictures; the library does not need
# it, and the tool test skips its rendering check without it.
[ "${1:-}" = "--graphviz" ] && packages+=(graphviz)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
# A locale whose decimal point is a comma, so that the tests can check that
# numbers are read and written the same whatever the caller's locale is.
if ! locale -a 2>/dev/null | grep -qix 'de_DE\.utf-\?8'; then
  grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen 2>/dev/null || echo 'de_DE.UTF-8 UTF-8' | $sudo tee -a /etc/locale.gen >/dev/null
  $sudo locale-gen >/dev/null
fi
