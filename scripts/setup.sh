#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test and benchmark.
# Idempotent: packages already installed are skipped, and apt is not touched
# at all when nothing is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache g++ clang clang-format clang-tidy
  libclang-rt-14-dev libfmt-dev libgtest-dev libgmock-dev googletest libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

echo "setup: installing ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
