// One fuzz target per family of exported functions, built two ways: by the
// fuzz preset as a libFuzzer program (clang, -fsanitize=fuzzer), and in
// every other test build as a case of its family's suite that runs the
// target over its seed corpus and a fixed set of pseudo-random inputs. The
// second way holds the NEON kernels to the portable ones on real ARM too,
// in the suites that run under qemu.
//
// A target derives geometry, modes and distances from its input and keeps
// them inside the preconditions the header documents: a call outside them
// is not a finding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis::fuzz {

// The fuzzer's bytes read as the parameters of one call.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

  // An integer in [lo, hi] from the next four bytes; lo once they run out.
  int32_t range(int32_t lo, int32_t hi) {
    uint32_t v = 0;
    for (int k = 0; k < 4 && used_ < size_; ++k) v = v << 8 | data_[used_++];
    const uint64_t span = static_cast<uint64_t>(static_cast<int64_t>(hi) - lo) + 1;
    return static_cast<int32_t>(lo + static_cast<int64_t>(v % span));
  }
  bool flag() { return range(0, 1) == 1; }
  // `n` bytes from what is left, repeated as often as needed; zeros when
  // nothing is left. Whatever follows the parameters becomes the pixels.
  void fill(uint8_t *out, size_t n) const {
    const size_t left = size_ - used_;
    for (size_t i = 0; i < n; ++i) out[i] = left ? data_[used_ + i % left] : 0;
  }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t used_ = 0;
};

// Reports a failed check and aborts: libFuzzer saves the input itself; the
// suites save it beside the test as fuzz-failure-<target>, for the fuzz
// program to rerun.
[[noreturn]] void fail(const char *file, int line, const char *what);

}  // namespace qlis::fuzz

#define QLIS_FUZZ_CHECK(condition) \
  ((condition) ? (void)0 : qlis::fuzz::fail(__FILE__, __LINE__, #condition))

#ifdef QLIS_LIBFUZZER
#define QLIS_FUZZ_TARGET(name)                                              \
  static void qlis_fuzz_##name(const uint8_t *data, size_t size);           \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { \
    qlis_fuzz_##name(data, size);                                           \
    return 0;                                                               \
  }                                                                         \
  static void qlis_fuzz_##name(const uint8_t *data, size_t size)
#else
#include <gtest/gtest.h>
namespace qlis::fuzz {
using Target = void (*)(const uint8_t *data, size_t size);
// Runs `target` over fuzz/corpus/<name>/* and then over pseudo-random
// inputs of up to 4 KiB, the same ones on every run ($QLIS_FUZZ_RUNS of
// them, 300 by default).
void replay(const char *name, Target target);
}  // namespace qlis::fuzz
#define QLIS_FUZZ_TARGET(name)                                      \
  static void qlis_fuzz_##name(const uint8_t *data, size_t size);   \
  TEST(Fuzz, name) { qlis::fuzz::replay(#name, qlis_fuzz_##name); } \
  static void qlis_fuzz_##name(const uint8_t *data, size_t size)
#endif
