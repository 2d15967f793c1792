#!/usr/bin/env bash
# The main job: installs what the build needs, builds the library and its
# host tool qlis, and runs `qlis demo`, which sends a synthetic hand-held
# preview stream, a shaken capture and a burst through a live session and
# writes a visual report of the decisions.
# Usage: demo.sh [report folder]   (default: build/demo/report)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DQLIS_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo --target qlis >/dev/null
report="${1:-build/demo/report}"
./build/demo/tools/qlis demo --out "${report}" --force
echo "Open ${report}/report.html in a browser (it works offline)."
