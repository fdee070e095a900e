#!/usr/bin/env bash
# Installs what the build needs when it is missing (Debian 12), then configures and builds.
# Usage: scripts/setup.sh BUILD_DIR [extra cmake arguments...]
# HYLN_TARGETS="a b" builds only those targets (and what they need) instead of all.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake g++ make pkg-config python3 libicu-dev libsqlite3-dev
          libcli11-dev nlohmann-json3-dev libgtest-dev libbenchmark-dev libxml2-dev)
if [ -n "${HYLN_EXTRA_PACKAGES:-}" ]; then
  read -r -a extra <<<"$HYLN_EXTRA_PACKAGES"
  packages+=("${extra[@]}")
fi
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
targets=()
if [ -n "${HYLN_TARGETS:-}" ]; then
  read -r -a names <<<"$HYLN_TARGETS"
  targets=(--target "${names[@]}")
fi
cmake --build "$build_dir" -j2 "${targets[@]}"
