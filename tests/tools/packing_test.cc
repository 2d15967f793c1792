// The packing check: it tells a picture in the sampled byte from the low
// bits there, and on a flat or dark frame, where neither packing shows a
// picture, it declines to judge instead of raising a false alarm.
#include "packing_check.h"
#include "tool_test.h"

namespace {

using namespace qlis::tool;
using namespace qlis::test;
using P = Raw10Packing;
using F = PackingFinding;

TEST(Packing, FindingsOnSynthesisedFrames) {
  const RgbImage photo = read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png"), grey{64, 48, std::vector<uint8_t>(64 * 48 * 3, 118)},
                 dark{64, 48, std::vector<uint8_t>(64 * 48 * 3, 0)};
  // Clipped: 40% of each row at 1023, where even the low bits agree.
  const struct { const RgbImage *image; P packing; bool clipped; F finding; } rows[] = {
      {&photo, P::kTool, false, F::kPicture}, {&photo, P::kMipi, false, F::kLowBits},
      {&photo, P::kTool, true, F::kPicture}, {&photo, P::kMipi, true, F::kLowBits},
      {&grey, P::kTool, false, F::kCannotTell}, {&grey, P::kMipi, false, F::kCannotTell},
      {&dark, P::kTool, false, F::kCannotTell}, {&dark, P::kMipi, false, F::kCannotTell}};
  for (const auto &r : rows) {
    SynthParams p;
    p.width = 320, p.height = 240, p.frames = 3, p.packing = r.packing;
    for (SynthFrame &f : synthesize(*r.image, p)) {
      for (size_t y = 0; y < 240 && r.clipped; ++y) std::fill_n(f.bytes.begin() + y * 400, 160, 0xFF);
      EXPECT_EQ(finding_name(check_raw10_packing(f.desc, f.bytes)), std::string(finding_name(r.finding)))
          << (r.image == &photo ? "photo " : r.image == &grey ? "grey " : "dark ") << int(r.packing) << r.clipped;
    }
  }
}

// Told once on standard error and in the JSON, and the run goes on.
TEST(Packing, ReplayOfMipiFramesSaysSoOnceAndDecides) {
  ScopedFsRoot root;
  ASSERT_EQ(run_tool(root.path(), "synth --packing mipi --width 320 --height 240 --frames 3 --out m").status, 0);
  const ToolRun r = run_tool(root.path(), "replay --json m");
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(r.err.rfind("qlis: warning: in 3 of 3 RAW10 frames", 0) == 0 && r.err.find('\n') == r.err.size() - 1 &&
              r.err.find("the sampled byte holds the low bits; repack") != std::string::npos) << r.err;
  const nlohmann::json doc = nlohmann::json::parse(r.out);
  EXPECT_EQ(doc["raw10_packing"]["finding"], "low bits");
  EXPECT_EQ(doc["summary"]["evaluated"], 3);
}

}  // namespace
