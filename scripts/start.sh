#!/usr/bin/env bash
# Installs what is missing, builds Quillery and starts it on the current desktop.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh build
exec ./build/quillery "$@"
