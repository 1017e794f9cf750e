#!/usr/bin/env bash
# Installs what is missing, builds Quillery and its tests, and runs the whole suite through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh build
cd build
ctest --output-on-failure --parallel 2 --timeout 300
