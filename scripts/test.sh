#!/usr/bin/env bash
# Builds and runs every test suite: the host suite (NEON kernels through
# SIMDe), AddressSanitizer + UndefinedBehaviorSanitizer, ThreadSanitizer on
# the suites that run threads (session, worker, captures, threaded metric), the portable
# kernels only, the Android log, property and file backends against Debian's
# Android libraries, and the 32- and 64-bit ARM suites under qemu-user.
# Usage: test.sh [preset ...]   (default: all of them)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh --tests

presets=("$@")
[[ ${#presets[@]} -eq 0 ]] && presets=(host-release host-asan host-tsan host-portable host-android-platform armhf aarch64)

jobs=$(nproc)
for preset in "${presets[@]}"; do
  echo "=== ${preset}"
  cmake --preset "${preset}" >/dev/null
  if [[ "${preset}" == host-tsan ]]; then
    # The pixel kernels run on one thread; ThreadSanitizer is for the
    # suites where threads meet: the session and its worker, captures, and
    # the metric that measures on four threads of its own.
    cmake --build --preset "${preset}" -j "${jobs}" --target qlis_api_tests qlis_worker_tests qlis_metrics_tests
    ctest --preset "${preset}" -j "${jobs}" -L '^(api|worker|metrics)$'
  else
    cmake --build --preset "${preset}" -j "${jobs}"
    ctest --preset "${preset}" -j "${jobs}"
  fi
done
echo "=== all suites passed: ${presets[*]}"
