#!/usr/bin/env bash
# Builds the library and runs the demo on its built-in burst of frames.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DQLIS_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo --target qlis_demo >/dev/null
./build/demo/tools/qlis_demo
