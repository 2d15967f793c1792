// zs_memcpy against the C library's memcpy on a frame-sized copy.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

constexpr uint32_t kCopyBytes = 15000000;  // one 4000x3000 packed RAW10 frame

struct CopyBuffers {
  std::vector<uint8_t> src = std::vector<uint8_t>(kCopyBytes, 1);
  std::vector<uint8_t> dst = std::vector<uint8_t>(kCopyBytes, 2);
};

CopyBuffers &buffers() {
  static CopyBuffers b;
  return b;
}

using qlis::bench::Cache;

void BM_Memcpy15MB(benchmark::State &state, Cache cache) {
  CopyBuffers &b = buffers();
  qlis::bench::iterate(state, cache, [&] {
    std::memcpy(b.dst.data(), b.src.data(), kCopyBytes);
    benchmark::ClobberMemory();
  });
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCopyBytes);
}

void BM_ZsMemcpy15MB(benchmark::State &state, Cache cache) {
  CopyBuffers &b = buffers();
  qlis::bench::iterate(state, cache, [&] {
    zs_memcpy(b.dst.data(), b.src.data(), kCopyBytes);
    benchmark::ClobberMemory();
  });
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCopyBytes);
}

QLIS_COLD(BM_Memcpy15MB);
QLIS_COLD(BM_ZsMemcpy15MB);
QLIS_WARM(BM_Memcpy15MB);
QLIS_WARM(BM_ZsMemcpy15MB);

[[maybe_unused]] const bool kRegistered =
    (qlis::bench::compare("BM_ZsMemcpy15MB/cold", "BM_Memcpy15MB/cold", 1.10),
     qlis::bench::compare("BM_ZsMemcpy15MB/warm", "BM_Memcpy15MB/warm", 1.10), true);

}  // namespace
