// The live path allocates only where it is documented to: a 64 KiB block
// per low-light judgement and per burst; nothing else per frame. Counted
// by interposing the C allocator, which the sanitizers already do, so the
// test exists in plain builds only.
#include <gtest/gtest.h>

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

#include <atomic>
#include <cstring>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/scenes.h"
#include "support/session.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
}

namespace {

std::atomic<bool> counting{false};
std::atomic<int> allocations{0};
std::atomic<size_t> last_size{0};

void note(size_t bytes) {
  if (!counting.load(std::memory_order_relaxed)) return;
  allocations.fetch_add(1);
  last_size.store(bytes);
}

}  // namespace

extern "C" void *malloc(size_t n) {
  note(n);
  return __libc_malloc(n);
}
extern "C" void *calloc(size_t count, size_t n) {
  note(count * n);
  return __libc_calloc(count, n);
}
extern "C" void *realloc(void *p, size_t n) {
  note(n);
  return __libc_realloc(p, n);
}

namespace {

using qlis::test::Scene;

// Puts a frame into bufproc as the intake would and evaluates it on this
// thread, counting the allocations of the evaluation alone.
int evaluate_counting(const std::vector<uint8_t> &image, int32_t format, const Scene &s) {
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  std::memcpy(bufproc.image, image.data(), image.size());
  PrevParam job = {};
  job.format = format;
  job.height = s.height;
  job.width = s.width;
  job.stride = s.stride;
  allocations.store(0);
  counting.store(true);
  PreviewThread(&job);
  counting.store(false);
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  return allocations.load();
}

TEST(LivePathAllocations, NormalLightAndYuvEvaluationsAllocateNothing) {
  qlis::test::ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  const auto raw = qlis::test::raw10_scene(scene);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(evaluate_counting(raw, 15, scene), 0) << i;
  Scene plane;
  plane.width = 320;
  plane.height = 240;
  plane.stride = 320;
  const auto yuv = qlis::test::yuv_scene(plane);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(evaluate_counting(yuv, 13, plane), 0) << i;
}

TEST(LivePathAllocations, LowLightEvaluationAllocatesOneWorkingBlock) {
  qlis::test::ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene dim;
  dim.base_level = 10;
  dim.level_step = 2;
  dim.amplitude = 6;
  const auto raw = qlis::test::raw10_scene(dim);
  evaluate_counting(raw, 15, dim);  // the first dim frame flips the regime
  ASSERT_LT(last_luminance, 46.5);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(evaluate_counting(raw, 15, dim), 1) << i;
    EXPECT_EQ(last_size.load(), 65536u);
  }
}

}  // namespace

#endif
