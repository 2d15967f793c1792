#!/usr/bin/env bash
# Builds and runs every test suite: the host suite (NEON kernels through
# SIMDe), AddressSanitizer + UndefinedBehaviorSanitizer, ThreadSanitizer on
# the suites that run threads (session, worker, captures, threaded metric), the portable
# kernels only, the Android log, property and file backends against Debian's
# Android libraries, the fuzz targets as libFuzzer programs for a few seconds
# each ($QLIS_FUZZ_SECONDS, 10 by default), and the 32- and 64-bit ARM
# suites under qemu-user.
# Usage: test.sh [preset ...]   (default: all of them)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh --tests

presets=("$@")
[[ ${#presets[@]} -eq 0 ]] && presets=(host-release host-asan host-tsan host-portable host-android-platform fuzz armhf aarch64)

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
  elif [[ "${preset}" == fuzz ]]; then
    # Each program for a few seconds from its seed corpus; what it finds new
    # goes to a scratch folder, not into the tree.
    cmake --build --preset "${preset}" -j "${jobs}"
    for fuzzer in build/fuzz/fuzz/qlis_fuzz_*; do
      family=${fuzzer##*/qlis_fuzz_}
      scratch=$(mktemp -d)
      if ! "${fuzzer}" -max_total_time="${QLIS_FUZZ_SECONDS:-10}" "${scratch}" "fuzz/corpus/${family}" \
           >"build/fuzz/${family}.log" 2>&1; then
        tail -n 40 "build/fuzz/${family}.log"
        exit 1
      fi
      echo "fuzz ${family}: $(grep -o 'Done [0-9]* runs' "build/fuzz/${family}.log")"
      rm -rf "${scratch}"
    done
  else
    cmake --build --preset "${preset}" -j "${jobs}"
    ctest --preset "${preset}" -j "${jobs}"
  fi
done
echo "=== all suites passed: ${presets[*]}"
