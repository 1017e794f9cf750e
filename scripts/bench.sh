#!/usr/bin/env bash
# Builds the benchmarks in Release and prints their figures: the renderer's and
# the overlay's frame costs (Google Benchmark), then the whole program's under
# a private X server with a compositor, on one and on two 1920x1080 screens,
# and the drawing workload of bench/pointer_workload.sh.
# Not part of the test suite; the figures vary with the machine and its load.
#   bash scripts/bench.sh [build directory, default build-bench]
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build-bench}
bash scripts/install-deps.sh
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUILLERY_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --parallel "$(nproc)" --target bench_renderer bench_overlay quillery wl-input
"$dir/bench/bench_renderer"
"$dir/bench/bench_overlay"
tests/support/with-x --compositor --screen 1920x1080 -- \
    bash bench/program_figures.sh "$dir/quillery" 1 10000
tests/support/with-x --compositor --screen 3840x1080 -- \
    bash bench/program_figures.sh "$dir/quillery" 2 0
taskset -c 0 tests/support/with-x --compositor --screen 1920x1080 -- \
    bash bench/pointer_workload.sh "$dir/quillery"
tests/support/wayland/with-sway -- \
    bash bench/wayland_workload.sh "$PWD/$dir/quillery" "$PWD/$dir/tests/support/wayland/wl-input"
