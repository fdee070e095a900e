#!/usr/bin/env bash
# Installs what the build needs when it is missing (Debian), then configures and builds.
# Usage: scripts/setup.sh BUILD_DIR [extra cmake arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake g++ make pkg-config libicu-dev libsqlite3-dev libxml2-dev libgtest-dev libgmock-dev libbenchmark-dev)
missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi

build_dir="$1"
shift
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$build_dir" -j2
