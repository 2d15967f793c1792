#include "session_runner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "live_stream.h"
#include "tool_error.h"

namespace {

using qlis::test::drive_directly;
using qlis::test::live_stream;
using qlis::tool::FrameDesc;
using qlis::tool::SessionRunner;

void evaluate_all(SessionRunner &runner) {
  for (const auto &f : live_stream()) {
    runner.evaluate(f.desc, f.bytes, "frame " + std::to_string(f.truth.index));
  }
}

TEST(SessionRunner, EvaluatesEveryFrameAsTheLibraryDoesWhenDrivenDirectly) {
  const auto direct = drive_directly(-1, {});
  SessionRunner runner;
  evaluate_all(runner);
  const auto &records = runner.records();
  ASSERT_EQ(records.size(), direct.verdicts.size());
  for (size_t i = 0; i < records.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(records[i].handed_over && records[i].evaluated);
    EXPECT_EQ(records[i].verdict, direct.verdicts[i]);
    EXPECT_EQ(records[i].low_light, direct.low_light[i]);
    EXPECT_EQ(records[i].kept, direct.verdicts[i] == 2 || direct.verdicts[i] == 4);
  }
  EXPECT_EQ(runner.kept_index(), direct.kept);
  EXPECT_EQ(runner.kept_frame(), direct.best);
}

TEST(SessionRunner, CaptureAndBurstDecideAsDirectCalls) {
  const size_t blurry = qlis::test::blurriest_frame();
  const std::vector<size_t> burst_frames = {1, blurry, 6};
  {
    const auto direct = drive_directly(static_cast<int>(blurry), {});
    SessionRunner runner;
    evaluate_all(runner);
    std::vector<uint8_t> bytes = live_stream()[blurry].bytes;
    const auto c = runner.capture(live_stream()[blurry].desc, bytes);
    EXPECT_EQ(c.status, 0);
    EXPECT_EQ(c.verdict, direct.capture_verdict);
    EXPECT_EQ(c.replaced, direct.capture_verdict == 3);
    EXPECT_EQ(bytes, direct.capture_after);
    const std::string line =
        "QLIS-E: ql_is_process_takepicture, 881, result:" + std::to_string(c.verdict);
    EXPECT_NE(std::find(c.log.begin(), c.log.end(), line), c.log.end());
  }
  {
    const auto direct = drive_directly(-1, burst_frames);
    SessionRunner runner;
    evaluate_all(runner);
    std::vector<std::vector<uint8_t>> frames;
    for (size_t i : burst_frames) frames.push_back(live_stream()[i].bytes);
    const auto b = runner.burst(live_stream()[0].desc, frames);
    EXPECT_EQ(b.status, 0);
    EXPECT_EQ(b.result, direct.burst_result);
    char line[128];
    std::snprintf(line, sizeof line, "ql_is_process_bat_takepicture, 1274, bestId:%d, replaceId:%d",
                  b.best_id, b.replace_id);
    EXPECT_EQ(direct.burst_line, line);
    EXPECT_EQ(frames, direct.burst_after);
    for (size_t i = 0; i < frames.size(); ++i) {
      EXPECT_EQ(b.replaced && static_cast<int32_t>(i) == b.replace_id,
                frames[i] != live_stream()[burst_frames[i]].bytes);
    }
  }
}

TEST(SessionRunner, PacedOffersAccountForEveryFrame) {
  SessionRunner runner;
  // Offered back to back, faster than the worker judges a frame.
  for (int round = 0; round < 3; ++round) {
    for (const auto &f : live_stream()) runner.offer(f.desc, f.bytes, "paced");
  }
  runner.settle();
  int handed = 0, evaluated = 0;
  for (const auto &r : runner.records()) {
    handed += r.handed_over;
    evaluated += r.evaluated;
    EXPECT_TRUE(r.handed_over || !r.evaluated);
    EXPECT_TRUE(!r.evaluated || r.verdict != 0);
  }
  EXPECT_EQ(runner.records().size(), 3u * live_stream().size());
  EXPECT_LE(evaluated, handed);
  // Settled: a capture afterwards neither waits forever nor is refused.
  std::vector<uint8_t> bytes = live_stream()[0].bytes;
  EXPECT_EQ(runner.capture(live_stream()[0].desc, bytes).status, 0);
}

TEST(SessionRunner, RefusesASecondSessionAndBurstsOfTheWrongSize) {
  SessionRunner runner;
  EXPECT_THROW(SessionRunner second, qlis::tool::ToolError);
  const auto &f = live_stream()[0];
  for (size_t n : {1u, 7u}) {
    std::vector<std::vector<uint8_t>> frames(n, f.bytes);
    EXPECT_THROW(runner.burst(f.desc, frames), qlis::tool::ToolError) << n;
  }
}

// The tool's own arena is sized to the comparison's need: the same score
// as with the library's full-size arena, for awkward geometries too.
TEST(ReblurScore, TightArenaScoresAsTheSessionArena) {
  std::vector<uint8_t> arena_block(14'001'024);
  const ScratchArena big{arena_block.data(), static_cast<uint32_t>(arena_block.size()), 0};
  for (const FrameDesc d : {FrameDesc{15, 640, 480, 800}, FrameDesc{15, 92, 47, 120},
                            FrameDesc{15, 44, 44, 60}}) {
    std::vector<uint8_t> bytes(static_cast<size_t>(d.height) * d.stride);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 37 + (i >> 7));
    const double expected = compare_reblue_with_luminance_compensation(
        bytes.data(), d.height, d.width, static_cast<uint32_t>(d.stride), 1, 5, big);
    const double got = qlis::tool::reblur_score(d, bytes);
    EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << d.width << "x" << d.height;
  }
  EXPECT_TRUE(std::isnan(qlis::tool::reblur_score(FrameDesc{13, 640, 480, 640},
                                                  std::vector<uint8_t>(640 * 480))));
}

}  // namespace
