#!/usr/bin/env bash
# Builds the project and runs the command-line host's demo on a seeded simulated server.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
exec build/bin/hyln --data build/sample-server demo "$@"
