// NEON intrinsics: native on ARM, through SIMDe everywhere else, so that the
// host suite, the sanitizers and the benchmarks run the code the phone runs.
#pragma once

#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
#include <arm_neon.h>
#if defined(__aarch64__)
#define QLIS_NEON_A64 1
#else
#define QLIS_NEON_A64 0
#endif
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
// SIMDe provides the A64 instruction set on every host.
#define QLIS_NEON_A64 1
#endif
