// Preview, capture and lifecycle calls from several threads at once: the
// hand-over never loses a buffer, nothing deadlocks, and deinit while
// calls are in flight is safe. Run under ThreadSanitizer and AddressSanitizer.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using qlis::test::HostFrame;
using qlis::test::host_frame_of;
using qlis::test::Scene;

#ifndef QLIS_STRESS_CYCLES
#define QLIS_STRESS_CYCLES 12
#endif
constexpr int kCycles = QLIS_STRESS_CYCLES;
constexpr int kCallsPerCycle = 40;  // captures before deinit is called
constexpr auto kWatchdog = std::chrono::minutes(8);

Scene small_scene(int amplitude, bool dim) {
  Scene s;
  s.width = 256;
  s.height = 192;
  s.stride = 320;
  s.amplitude = amplitude;
  if (dim) {
    s.base_level = 10;
    s.level_step = 2;
  }
  return s;
}

Scene capture_scene(int i) { return small_scene(20 + 10 * (i % 3), i % 2 == 0); }

HostFrame raw10(const Scene &s, int32_t mode) {
  return host_frame_of(qlis::test::raw10_scene(s), 15, s.width, s.height, s.stride, 32, mode);
}

// Fails the run instead of letting CI hang when a call never returns.
class Watchdog {
 public:
  Watchdog()
      : thread_([this] {
          const auto deadline = std::chrono::steady_clock::now() + kWatchdog;
          while (!done_.load()) {
            if (std::chrono::steady_clock::now() > deadline) {
              std::fprintf(stderr, "stress test: no progress, a call is deadlocked\n");
              std::_Exit(3);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
          }
        }) {}
  ~Watchdog() {
    done_.store(true);
    thread_.join();
  }

 private:
  std::atomic<bool> done_{false};
  std::thread thread_;
};

bool pairs_hold_buffers_under_lock() {
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  const bool ok = qlis::test::pairs_hold_buffers_once();
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  return ok;
}

TEST(Stress, PreviewCaptureAndDeinitOverlapWithoutLosingBuffers) {
  Watchdog watchdog;
  std::vector<HostFrame> previews;
  previews.push_back(raw10(small_scene(30, false), 0));
  previews.push_back(raw10(small_scene(50, false), 0));
  previews.push_back(raw10(small_scene(40, false), 0));
  previews.push_back(raw10(small_scene(6, true), 0));
  for (int cycle = 0; cycle < kCycles; ++cycle) {
    ASSERT_EQ(ql_is_init(), 0);
    std::atomic<bool> stop{false};
    std::atomic<int> captures{0};
    std::atomic<int> bad_results{0};

    std::thread fast_preview([&] {
      for (size_t i = 0; !stop.load(); ++i) ql_is_process_preview(&previews[i % 4].param);
    });
    std::thread paced_preview([&] {
      for (size_t i = 0; !stop.load(); ++i) {
        ql_is_process_preview(&previews[(i + 1) % 4].param);
        std::this_thread::sleep_for(std::chrono::milliseconds(33));
      }
    });
    // What a capture may come back as: itself, or a frame that was kept as
    // best before it (a preview frame or an earlier capture that stood).
    std::vector<std::vector<uint8_t>> known;
    for (const HostFrame &p : previews) known.push_back(p.image);
    for (int i = 0; i < 6; ++i) known.push_back(raw10(capture_scene(i), 1).image);
    std::thread capturer([&] {
      for (int i = 0; !stop.load(); ++i) {
        int32_t r;
        if (i % 3 == 2) {
          std::vector<uint8_t> record(QL_IS_BURST_RECORD_SIZE, 0);
          std::vector<std::vector<uint8_t>> images = {
              qlis::test::raw10_scene(small_scene(5, true)),
              qlis::test::raw10_scene(small_scene(8, true))};
          std::vector<uint8_t> sides[2] = {std::vector<uint8_t>(32), std::vector<uint8_t>(32)};
          const Scene s = small_scene(0, true);
          for (int f = 0; f < 2; ++f) {
            ql_is_record_put_i32(record.data(), QL_IS_BURST_WIDTH(f), s.width);
            ql_is_record_put_i32(record.data(), QL_IS_BURST_HEIGHT(f), s.height);
            ql_is_record_put_i32(record.data(), QL_IS_BURST_STRIDE(f), s.stride);
            ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(f), images[f].data());
            ql_is_record_put_ptr(record.data(), QL_IS_BURST_SIDE(f), sides[f].data());
          }
          ql_is_record_put_i32(record.data(), QL_IS_BURST_IMAGE_SIZE,
                               static_cast<int32_t>(images[0].size()));
          ql_is_record_put_i32(record.data(), QL_IS_BURST_SIDE_SIZE, 32);
          ql_is_record_put_i32(record.data(), QL_IS_BURST_COUNT, 2);
          ql_is_record_put_i32(record.data(), QL_IS_BURST_MODE, 1);
          r = ql_is_process_bat_takepicture(record.data());
        } else {
          HostFrame capture = raw10(capture_scene(i), 1);
          r = ql_is_process_takepicture(&capture.param);
          bool recognised = false;
          for (const auto &k : known) recognised |= capture.image == k;
          if (!recognised) bad_results.fetch_add(1);
        }
        if (r != 0 && r != -1) bad_results.fetch_add(1);
        captures.fetch_add(1);
      }
    });

    // Let the calls overlap for a while, checking the pairs as they rotate.
    while (captures.load() < kCallsPerCycle / (cycle % 2 + 1)) {
      ASSERT_TRUE(pairs_hold_buffers_under_lock());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_TRUE(pairs_hold_buffers_under_lock());
    ql_is_deinit();  // while every thread is still calling
    EXPECT_EQ(initDone, 0);
    for (uint8_t *block : buf) EXPECT_EQ(block, nullptr);
    stop.store(true);
    fast_preview.join();
    paced_preview.join();
    capturer.join();
    EXPECT_EQ(bad_results.load(), 0);
    EXPECT_EQ(g_asIQThdInfo.preview_calls, 0);
    EXPECT_EQ(g_asIQThdInfo.capture_calls, 0);
  }
}

}  // namespace
