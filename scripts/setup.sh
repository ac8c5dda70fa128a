#!/usr/bin/env bash
# Installs what halvexd needs on a Debian machine, only what is missing. Run
# as root (or with sudo available).
#   bash scripts/setup.sh           what building and running the daemon and
#                                   its tools needs
#   bash scripts/setup.sh --tests   that, and what the tests, the fuzzers and
#                                   the benchmarks need as well
#   bash scripts/setup.sh PKG...    those packages; a name like "libfoo:arm64"
#                                   first enables that foreign architecture
set -euo pipefail

run_packages=(build-essential cmake pkg-config libcjson-dev)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev procps clang libclang-rt-14-dev python3)

if [ $# -eq 0 ]; then
  packages=("${run_packages[@]}")
elif [ "$1" = "--tests" ]; then
  packages=("${run_packages[@]}" "${test_packages[@]}")
else
  packages=("$@")
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "Installing: ${missing[*]}"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
for package in "${missing[@]}"; do
  case "$package" in
    *:*)
      arch="${package##*:}"
      if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
        "${as_root[@]}" dpkg --add-architecture "$arch"
      fi
      ;;
  esac
done
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
