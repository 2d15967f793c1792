#!/usr/bin/env bash
# Installs what the builds need from Debian's packages.
#   install-deps.sh          compilers and CMake for the host library and demo,
#                            and CLI11, libpng and nlohmann-json for the qlis tool
#   install-deps.sh --tests  also GoogleTest, Google Benchmark, SIMDe, the ARM
#                            cross compilers and qemu-user for the ARM suites,
#                            Debian's Android liblog and libcutils for the
#                            Android backends built on the host, clang with
#                            libFuzzer for the fuzz targets, and Chromium,
#                            which renders the demo's report in its browser test
set -euo pipefail

packages=(cmake ninja-build g++ make libcli11-dev libpng-dev nlohmann-json3-dev)
if [[ "${1:-}" == "--tests" ]]; then
  packages+=(googletest libgtest-dev libbenchmark-dev libsimde-dev
             g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user pkg-config
             android-liblog-dev android-libcutils-dev clang libclang-rt-dev chromium)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=""
[[ $(id -u) -ne 0 ]] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
