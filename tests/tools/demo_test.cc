#include "demo.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "png_image.h"
#include "support/host_hooks.h"

namespace {

using namespace qlis::tool;
namespace fs = std::filesystem;

const RgbImage &coffee() {
  static const RgbImage photo = read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png");
  return photo;
}

size_t least(const std::vector<FrameTruth> &t, bool most) {
  const auto by_blur = [](const FrameTruth &a, const FrameTruth &b) {
    return a.blur_length_px < b.blur_length_px;
  };
  const auto at = most ? std::max_element(t.begin(), t.end(), by_blur)
                       : std::min_element(t.begin(), t.end(), by_blur);
  return static_cast<size_t>(at - t.begin());
}

// What the library should get right on a hand-held stream, checked over
// several streams: it keeps one of the least blurred preview frames, it
// replaces a capture shaken far more than that, and it names the burst's
// least and most blurred frames (their smears lie several pixels apart).
class DemoDecisions : public testing::TestWithParam<uint64_t> {};

TEST_P(DemoDecisions, AgreeWithTheGroundTruth) {
  DemoOptions options;
  options.seed = GetParam();
  options.width = 640;
  options.height = 480;
  options.frames = 12;
  const DemoReport r = run_demo(coffee(), "coffee.png", options);

  ASSERT_EQ(r.frames.size(), 12u);
  for (const ReportFrame &f : r.frames) EXPECT_TRUE(f.record.evaluated);
  ASSERT_GE(r.kept_index, 0);
  const ReportFrame &kept = r.frames[static_cast<size_t>(r.kept_index)];
  EXPECT_TRUE(kept.record.kept);
  EXPECT_LE(kept.truth.sharpness_rank, 3);

  EXPECT_EQ(r.capture.record.status, 0);
  EXPECT_GE(r.capture.truth.blur_length_px, 9.0);
  EXPECT_EQ(r.capture.record.verdict, 3);
  EXPECT_TRUE(r.capture.record.replaced);
  // The host got the kept frame back in place of its capture.
  EXPECT_EQ(r.capture.after.pixels, r.kept_preview.pixels);
  EXPECT_NE(r.capture.before.pixels, r.capture.after.pixels);

  ASSERT_EQ(r.burst.truth.size(), static_cast<size_t>(kDemoBurstFrames));
  EXPECT_EQ(r.burst.record.status, 0);
  EXPECT_EQ(r.burst.record.best_id,
            static_cast<int32_t>(least(r.burst.truth, false)));
  EXPECT_EQ(r.burst.record.replace_id,
            static_cast<int32_t>(least(r.burst.truth, true)));

  EXPECT_GT(r.kept_heatmap.width, 0);
  const std::string account = [&] {
    std::string all;
    for (const std::string &line : r.account) all += line + "\n";
    return all;
  }();
  EXPECT_NE(account.find("byte 4 = high 8 bits of pixel 3"), std::string::npos);
  EXPECT_NE(
      account.find("kept in bufmax: frame " + std::to_string(r.kept_index)),
      std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DemoDecisions, testing::Values(1, 2, 3));

struct Outcome {
  int status;
  std::string err;
};

Outcome qlis(const std::string &work, const std::string &args) {
  const std::string err = work + "/stderr";
  const int raw = std::system((std::string("'") + QLIS_TOOL_EXE + "' " + args +
                               " >/dev/null 2>'" + err + "'")
                                  .c_str());
  std::ifstream in(err);
  std::stringstream text;
  text << in.rdbuf();
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, text.str()};
}

TEST(QlisDemo, RefusesBadInputWithOneLineAndWritesNothing) {
  qlis::test::ScopedFsRoot work;
  const std::string out = work.path() + "/out";
  fs::create_directories(out);
  std::ofstream(out + "/mine.txt") << "mine";
  const std::pair<std::string, int> cases[] = {
      {"demo --out '" + out + "'", 1},  // holds a file, no --force
      {"demo --force --frames 0 --out '" + out + "'", 1},
      {"demo --frames many --out '" + out + "/new'", 2},
      {"demo --seed -1 --out '" + out + "/new'", 2},
  };
  for (const auto &[args, status] : cases) {
    SCOPED_TRACE(args);
    const Outcome run = qlis(work.path(), args);
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.err.rfind("qlis: ", 0), 0u) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
  EXPECT_EQ(
      std::distance(fs::directory_iterator(out), fs::directory_iterator()), 1);
}

}  // namespace
