// Internal view of the session globals: sizes, the atomic accesses that
// let entry points overlap with deinit without data races, and the
// in-flight guard of the entry points.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

inline constexpr uint32_t kImageBufferBytes = 32000000;
inline constexpr uint32_t kSideBufferBytes = 400000;
inline constexpr size_t kDiffHistBytes = 65536;
inline constexpr size_t kRawFeatureBytes = 2560;
inline constexpr uint32_t kArenaBytes = 14001024;
inline constexpr useconds_t kPollMicros = 1000;

// Allocation of the session's blocks; tests replace it to make init fail.
using SessionAllocator = void *(*)(size_t);
extern SessionAllocator session_allocator;

// initDone and the quit flag are read by entry points on host threads
// while deinit may write them; the counters are changed by those entry
// points while deinit drains them. Sequentially consistent order makes
// "count the call, then test quit" in an entry point and "raise quit, then
// read the counters" in deinit exclude each other: a call that deinit did
// not see counted always sees quit raised.
inline std::atomic_ref<int32_t> init_done_flag() {
  return std::atomic_ref<int32_t>(initDone);
}
inline std::atomic_ref<uint8_t> quit_flag() {
  return std::atomic_ref<uint8_t>(g_asIQThdInfo.quit);
}

// True when a session exists and the worker has not been told to quit.
inline bool session_accepts_calls() {
  return init_done_flag().load() != 0 && quit_flag().load() == 0;
}

// Counts an entry-point call for deinit's drain loop from construction to
// the end of its scope, on every return path.
class InFlightCall {
 public:
  explicit InFlightCall(int32_t &counter) : counter_(counter) {
    std::atomic_ref<int32_t>(counter_).fetch_add(1);
  }
  ~InFlightCall() { std::atomic_ref<int32_t>(counter_).fetch_sub(1); }
  InFlightCall(const InFlightCall &) = delete;
  InFlightCall &operator=(const InFlightCall &) = delete;

 private:
  int32_t &counter_;
};

// Clears the base image after a capture: features, quality and histogram.
// The raw-feature block, the clarity and the luminance stay as they are.
void clear_base_after_capture();

// The judgements write the base quality as a signed 64-bit integer into
// the 8 bytes of the double global; these move those bytes without
// reinterpreting the object's type.
int64_t load_base_quality_bits();
void store_base_quality_bits(int64_t bits);

}  // namespace qlis
