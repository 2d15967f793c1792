// The library's entry points over whole sessions: set-up and tear-down, the
// preview intake and its block copies, single and burst captures against the
// preview history with their dumps, the wait for an evaluation in progress,
// and the session under load.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <regex>
#include <thread>

#include "api/session_state.h"
#include "api/zs_copy.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/host_hooks.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using namespace qlis::test;

bool all_zero(const void *p, size_t n) {
  const auto *b = static_cast<const uint8_t *>(p);
  return std::all_of(b, b + n, [](uint8_t v) { return v == 0; });
}

// Fails the allocation of an image buffer once the count runs out.
int images_left = 0;
void *fail_image_buffer(size_t bytes) {
  if (bytes == qlis::kImageBufferBytes && images_left-- == 0) return nullptr;
  return std::malloc(bytes);
}

// A failed buffer allocation cleans up only what it documents: the
// histogram block is freed but its pointer is left in place (the next init
// must not free it again); the raw-feature block and the arena stay. Init
// then sets up every block, deinit restores the start values.
TEST(Session, FailedInitCleansUpInitSetsUpEveryBlockAndDeinitRestoresTheStartValues) {
  EXPECT_STREQ(ql_is_get_version(), "QELARN-AS-V2.0.6");
  images_left = 2;
  qlis::session_allocator = fail_image_buffer;
  EXPECT_EQ(ql_is_init(), -1);
  qlis::session_allocator = std::malloc;
  EXPECT_TRUE(initDone == 0 && std::count(buf, buf + 6, nullptr) == 6 &&
              g_asIQThdInfo.thread == pthread_t{});
  EXPECT_TRUE(base_diff_hist != nullptr && alg_buf.base != nullptr);
  uint8_t *const left_behind = base_raw_fea;
  ASSERT_NE(left_behind, nullptr);
  dump_count = 17;
  ASSERT_EQ(ql_is_init(), 0);
  std::free(left_behind);  // init does not free an earlier raw-feature block
  uint8_t *const first = buf[0];
  EXPECT_TRUE(ql_is_init() == -1 && buf[0] == first);  // one session at a time, left alone
  EXPECT_TRUE(size[0] == 32000000 && size[1] == 400000 && dump_count == 0);
  // With every side right after its image, two images fix the pairs.
  EXPECT_TRUE(pairs_hold_buffers_once() && buftemp.image == buf[0] && bufmax.image == buf[2]);
  for (int i = 0; i < 6; ++i) EXPECT_TRUE(all_zero(buf[i], size[i % 2])) << i;
  EXPECT_TRUE(all_zero(base_diff_hist, 65536) && all_zero(base_raw_fea, 2560));
  EXPECT_TRUE(alg_buf.total == 14001024 && alg_buf.used == 0 && g_asIQThdInfo.idle == 1);
  dump_count = 17;
  last_luminance = 30.0;
  base_clarity = 0.5;
  ql_is_deinit();
  ql_is_deinit();  // without a session: nothing to do
  EXPECT_TRUE(initDone == 0 && dump_count == 0 && last_luminance == 255.0 && base_clarity == 0);
  EXPECT_TRUE(base_diff_hist == nullptr && base_raw_fea == nullptr && alg_buf.base == nullptr &&
              alg_buf.total == 14001024);  // the total is kept
  EXPECT_TRUE(std::count(buf, buf + 6, nullptr) == 6 && buftemp.image == nullptr &&
              g_asIQThdInfo.thread == pthread_t{});
}

// Without a session, not a preview frame, no image, copy mode 2, or the
// worker's lock busy: the frame is dropped untouched.
TEST(PreviewIntake, RefusedAndDroppedFramesChangeNothing) {
  HostFrame frame = make_host_frame(12, 64, 16, 80, 32, 0, 1);
  ql_is_process_preview(&frame.param);
  EXPECT_EQ(prevParam.width, 0);
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  ql_is_process_preview(nullptr);
  FrameParam capture = frame.param, no_image = frame.param;
  capture.mode = 1;
  no_image.image.ptr = nullptr;
  for (const FrameParam *p : {&capture, &no_image}) ql_is_process_preview(p);
  pthread_mutex_lock(&g_asIQThdInfo.mutex);  // as the worker holds it while evaluating
  ql_is_process_preview(&frame.param);
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  ScopedProperty drop("debug.camera.qlas.mcpy", "2");
  ql_is_process_preview(&frame.param);
  EXPECT_TRUE(all_zero(&prevParam, sizeof prevParam) && g_asIQThdInfo.pending == 0);
  EXPECT_TRUE(all_zero(buftemp.image, frame.image.size()) && g_asIQThdInfo.preview_calls == 0);
}

// Either copy routine hands over the same bytes; the job record describes
// the frame with the host's pointers and the central half as region.
TEST(PreviewIntake, HandsTheFrameToTheWorkerWithEitherCopy) {
  for (const char *copy_mode : {"0", "1"}) {
    ScopedSession session;
    ASSERT_TRUE(session.ok());
    ScopedProperty mode("debug.camera.qlas.mcpy", copy_mode);
    const uint32_t side_size = copy_mode[0] == '0' ? 77 : 0;  // no side: a null pointer
    HostFrame frame = make_host_frame(12, 66, 18, 90, side_size, 0, 3);
    ASSERT_TRUE(preview_until_evaluated(&frame.param));
    EXPECT_TRUE(!std::memcmp(bufproc.image, frame.image.data(), frame.image.size()) &&
                std::equal(frame.side.begin(), frame.side.end(), bufproc.side));
    // Region 66 >> 2 = 16 and 18 >> 2 = 4 with inclusive far bounds; the
    // unsupported format's verdict is 0.
    const PrevParam job = {frame.image.data(), frame.param.side.ptr, 0, 0, 18, 66, 1, 90, 12, 16,
                           4, 49, 13, 0, 18 * 90, side_size, 0, 0};
    EXPECT_EQ(0, std::memcmp(&prevParam, &job, sizeof job));
  }
}

// zs_memset fills whole 64-byte blocks with the low byte of the value and
// zeroes the tail rather than filling it: 134 bytes are two blocks of 0xCD
// and six zeros, and nothing past them is written. (Random lengths against
// memcpy and the portable fill: Fuzz.copy.)
TEST(ZsCopy, FillsTheTailWithZeros) {
  std::vector<uint8_t> b(140, 0x11);
  zs_memset(b.data(), 0x1CD, 134);
  EXPECT_TRUE(std::count(&b[0], &b[128], 0xCD) == 128 && std::count(b.begin(), b.end(), 0) == 6 &&
              b[139] == 0x11);
}

constexpr uint32_t kSideBytes = Burst::kSideBytes;
const Scene kSmall{256, 192, 320};

HostFrame raw10(const Scene &s, int32_t mode) {  // format 15
  return host_frame_of(raw10_scene(s), 15, s.width, s.height, s.stride, kSideBytes, mode);
}

// Bursts are taken in low light, where the base holds block means that the
// burst frames are compared with.
Scene dim(int sharpness, bool mirror = false) { return {640, 480, 800, 10, 2, sharpness, mirror}; }

constexpr const char *kBurstLine = "ql_is_process_bat_takepicture, 1274, bestId:";

// Against a low-light base of amplitude 6: a burst of the base's scene has
// its blurriest frame replaced unless a frame is exactly as sharp as the
// base; a frame of another scene (mirrored) forbids any replacement.
TEST(BurstCapture, NamesSharpestAndBlurriestAndReplacesOnlyInAConsistentBurst) {
  struct Case { std::vector<Scene> frames; int32_t best, replace, result; bool replaced; };
  const Case cases[] = {
      {{dim(8), dim(4), dim(10), dim(5), dim(7), dim(9)}, 2, 1, 2, true},  // six: the most
      {{dim(9), dim(7), dim(8)}, 0, -1, 0, false},  // every frame sharper than the base
      {{dim(4), dim(5)}, -1, 0, 0, true},           // none sharper: result 0, not -1
      {{dim(4), dim(8), dim(6)}, 1, 0, 1, false},   // the base itself among them
      {{dim(6), dim(6)}, -1, -1, -1, false},        // nothing but the base: result -1
      {{dim(5), dim(9), dim(3, true), dim(4)}, 1, 2, 1, false},
  };
  for (const Case &c : cases) {
    ScopedSession session;
    ASSERT_TRUE(session.ok());
    // The first dim frame flips the session to low light, the second is the base.
    const HostFrame base = raw10(dim(6), 0);
    for (int i = 0; i < 2; ++i) ASSERT_EQ(preview_verdict(base), 4);
    Frames frames;
    for (const Scene &s : c.frames) frames.push_back(raw10_scene(s));
    Burst burst(frames, dim(0));
    LogCapture log;
    ASSERT_EQ(burst.run(), 0);
    EXPECT_EQ(burst.result(), c.result);
    EXPECT_EQ(log.texts("QLIS-E").back(), kBurstLine + std::to_string(c.best) +
                                              ", replaceId:" + std::to_string(c.replace));
    Frames sides(frames.size(), std::vector<uint8_t>(kSideBytes, 0xEE));
    if (c.replaced) std::tie(frames[c.replace], sides[c.replace]) = std::tie(base.image, base.side);
    EXPECT_TRUE(burst.images == frames && burst.sides == sides);
  }
}

// The consistency limits are strict. The frame is flat at level 20 with a
// texture of `left` over the left half of the block grid and 3 over the
// right half, so a block of 20 five-byte groups has a variation of
// exactly texture / 20 (the last column, a group short, a little less);
// the base's features are the frame's own. A variation of exactly 0.15 is
// not varied; 32 varied blocks of 64 are enough; a base block whose texture
// is exactly the limit 50000 is not textured, and four such blocks are
// tolerated as disagreements, five are not. Consistent, the frames are measured against a
// clarity of 0 and none is the blurriest; inconsistent, the first is both.
TEST(BurstCapture, ConsistencyLimitsAreStrict) {
  for (auto [left, flat_base_blocks, replace] :
       {std::tuple{3, 0, "0"}, {6, 0, "-1"}, {6, 4, "-1"}, {6, 5, "0"}}) {
    ScopedSession session;
    ASSERT_TRUE(session.ok());
    std::vector<uint8_t> frame(480 * 800);
    for (size_t i = 0; i < frame.size(); ++i) {
      const size_t g = i % 800 / 5;  // the group along the row: 160 of them fill it
      frame[i] = static_cast<uint8_t>(20 + (g % 2 ? -1 : 1) * (g < 80 ? left : 3));
    }
    calc_feature_quality_with_sub_low_light(&base_feature, base_diff_hist, 1, frame.data(), 480,
                                            640, 800);
    for (int b = 0; b < flat_base_blocks; ++b) base_feature.block[9 * b].deviation_sum = 50000;
    Burst burst({frame, frame}, Scene{});
    LogCapture log;
    ASSERT_EQ(burst.run(), 0);
    EXPECT_EQ(log.texts("QLIS-E").back(), kBurstLine + std::string("0, replaceId:") + replace);
  }
}

// Refused calls return -1 before touching anything, the burst's result
// field included. A preview frame handed over whose signal the worker has
// not yet taken up is pending: a capture waits for the worker's report
// before it goes on.
TEST(Captures, RefuseBadArgumentsAndWaitWhileAPreviewEvaluationIsPending) {
  HostFrame capture = raw10(Scene{}, 1);
  Burst burst({capture.image, capture.image}, Scene{});
  EXPECT_EQ(ql_is_process_takepicture(&capture.param) + burst.run(), -2);  // no session
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  EXPECT_EQ(ql_is_process_takepicture(nullptr) + ql_is_process_bat_takepicture(nullptr), -2);
  FrameParam preview = capture.param, no_image = capture.param;
  preview.mode = 0;
  no_image.image.ptr = nullptr;
  EXPECT_EQ(ql_is_process_takepicture(&preview) + ql_is_process_takepicture(&no_image), -2);
  // A burst needs 2 to 6 frames, none of them null (frame 2 is), and mode 1.
  for (auto [count, mode] : {std::pair{1, 1}, {7, 1}, {3, 1}, {2, 0}}) {
    burst.put(QL_IS_BURST_COUNT, count);
    burst.put(QL_IS_BURST_MODE, mode);
    EXPECT_TRUE(burst.run() == -1 && burst.result() == -77) << count;
  }
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  g_asIQThdInfo.pending = 1;
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  std::atomic<int32_t> rc{-2};
  std::thread capturer([&] { rc.store(ql_is_process_takepicture(&capture.param)); });
  for (int poll = 0; poll < 100 && rc.load() == -2; ++poll) usleep(1000);
  EXPECT_EQ(rc.load(), -2);  // still waiting
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  g_asIQThdInfo.pending = 0;
  pthread_cond_signal(&g_asIQThdInfo.done);
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  capturer.join();
  EXPECT_EQ(rc.load(), 0);
}

// A capture blurrier than the best preview frame is replaced by it
// (result 3); either way the base image is cleared afterwards, its clarity
// kept. Every dump is named, after its time stamp, by its role: base, input
// and output (with the result) of a single capture; base, inputs by index
// and the output by best and replaced index of a burst, each frame's name
// with its own geometry.
TEST(Captures, AreReplacedByTheBestPreviewFrameAndDumpedByRole) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard");
  ScopedProperty dump("debug.camera.dump_qlas_cap", "1");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  const HostFrame preview = raw10(Scene{}, 0);
  ASSERT_EQ(preview_verdict(preview), 4);
  const double clarity = base_clarity;
  HostFrame capture = raw10(Scene{640, 480, 800, 60, 10, 20}, 1);
  capture.side.assign(kSideBytes, 0xEE);
  LogCapture log;
  ASSERT_EQ(ql_is_process_takepicture(&capture.param), 0);
  EXPECT_EQ(prevParam.capture, 1);
  EXPECT_EQ(log.texts("QLIS-E").back(), "ql_is_process_takepicture, 881, result:3");
  EXPECT_TRUE(capture.image == preview.image && capture.side == preview.side);
  EXPECT_TRUE(base_quality == 0.0 && base_clarity == clarity && all_zero(base_diff_hist, 65536) &&
              all_zero(&base_feature, sizeof base_feature));
  Burst burst({raw10_scene(kSmall), raw10_scene(Scene{256, 192, 320, 60, 10, 20})}, kSmall);
  burst.put(QL_IS_BURST_STRIDE(1), 330);  // only names: frame 0's geometry is used
  ASSERT_EQ(burst.run(), 0);  // inconsistent with the cleared base
  std::vector<std::string> dumps;
  const std::regex stamped(R"(^/sdcard/\d{8}-\d\d-\d\d-\d\d-\d{3}_qlas_cap_(.*)\.raw$)");
  for (const std::string &f : root.files()) dumps.push_back(std::regex_replace(f, stamped, "$1"));
  std::sort(dumps.begin(), dumps.end());
  EXPECT_EQ(dumps, (std::vector<std::string>{
                       "inbase_320_256x192", "inbase_800_640x480", "input 0_320_256x192",
                       "input 1_330_256x192", "input_800_640x480", "output 0 1_330_256x192",
                       "output3_800_640x480"}));
}

#ifndef QLIS_STRESS_CYCLES
#define QLIS_STRESS_CYCLES 12  // fewer where every thread is emulated
#endif

// Previews and captures keep coming while the session comes and goes: the
// pairs never lose a buffer, deinit waits for the calls in flight, and
// nothing deadlocks. Run under ThreadSanitizer and AddressSanitizer.
TEST(Stress, PreviewsAndCapturesOverlapWithInitAndDeinit) {
  const HostFrame previews[] = {raw10(kSmall, 0), raw10(Scene{256, 192, 320, 10, 2, 6}, 0)};
  for (int cycle = 0; cycle < QLIS_STRESS_CYCLES; ++cycle) {
    ASSERT_EQ(ql_is_init(), 0);
    std::atomic<bool> stop{false};
    std::atomic<int> captures{0};
    std::thread previewer([&] {
      for (size_t i = 0; !stop.load(); ++i) ql_is_process_preview(&previews[i % 2].param);
    });
    std::thread capturer([&] {
      for (size_t i = 0; !stop.load(); ++i, captures.fetch_add(1)) {
        HostFrame capture = raw10(kSmall, 1);
        Burst burst({previews[0].image, previews[1].image}, kSmall);
        EXPECT_LE(i % 2 ? burst.run() : ql_is_process_takepicture(&capture.param), 0);
      }
    });
    while (captures.load() < 30 / (cycle % 2 + 1)) usleep(1000);
    pthread_mutex_lock(&g_asIQThdInfo.mutex);
    EXPECT_TRUE(pairs_hold_buffers_once());
    pthread_mutex_unlock(&g_asIQThdInfo.mutex);
    ql_is_deinit();  // while every thread is still calling
    stop.store(true);
    previewer.join();
    capturer.join();
  }
}

}  // namespace
