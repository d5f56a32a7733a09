#!/usr/bin/env bash
# Installs what a fresh machine lacks to build and test the project manager,
# and to make its Debian package and check it (dpkg-dev for CPack's
# dpkg-shlibdeps, binutils for stripping, file and lintian).
# A no-op when everything is there.
set -euo pipefail

packages=(cmake ninja-build g++ clang libcxxopts-dev libgtest-dev python3
          dpkg-dev binutils file gzip lintian)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
fi
