#!/usr/bin/env bash
# Installs what building and testing halvexd needs on a Debian machine, only
# what is missing. Run as root (or with sudo available).
set -euo pipefail

packages=(build-essential cmake pkg-config libcjson-dev libgtest-dev libgmock-dev libbenchmark-dev
          clang libclang-rt-14-dev)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${as_root[@]}" apt-get update -q
  "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
