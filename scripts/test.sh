#!/usr/bin/env bash
# Builds and runs every test suite: the host suite (NEON kernels through
# SIMDe), AddressSanitizer + UndefinedBehaviorSanitizer, the portable
# kernels only, and the 32- and 64-bit ARM suites under qemu-user.
# Usage: test.sh [preset ...]   (default: all of them)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh --tests

presets=("$@")
[[ ${#presets[@]} -eq 0 ]] && presets=(host-release host-asan host-portable armhf aarch64)

jobs=$(nproc)
for preset in "${presets[@]}"; do
  echo "=== ${preset}"
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "${jobs}"
  ctest --preset "${preset}" -j "${jobs}"
done
echo "=== all suites passed: ${presets[*]}"
