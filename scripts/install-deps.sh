#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the tools need.
# Idempotent: when all packages are present it only checks and returns.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang clang-format
  libmxml-dev
  libegl-dev libgles-dev libegl-mesa0 libgl1-mesa-dri
  libjpeg62-turbo-dev libpng-dev
  libhwy-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
