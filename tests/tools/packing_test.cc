// What the tool measures on the sampled bytes. The packing check tells a
// picture in the sampled byte from the low bits there, and on a flat or
// dark frame, where neither packing shows a picture, it declines to judge
// instead of raising a false alarm. The peer measure reads the same bytes.
#include "packing_check.h"
#include "peer_measure.h"
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

// The peer measure reads the samples the re-blur score reads: byte 4 of
// each group on rows 3, 7, 11, ... Every other byte holds 200, so reading
// any of them shows. Interior Laplacians 40 and -10: variance 850 - 15^2.
TEST(SamplePlane, LaplacianVarianceAndRankings) {
  const FrameDesc raw{kFormatRaw10, 16, 12, 20}, luma{kFormatYuv13, 4, 3, 4};
  std::vector<uint8_t> frame(240, 200), plane(12, 0);
  for (int y = 3; y < 12; y += 4)
    for (int g = 0; g < 4; ++g) frame[y * 20 + g * 5 + 4] = 0;
  frame[7 * 20 + 5 + 4] = plane[5] = 10;
  EXPECT_EQ(laplacian_variance(raw, frame), 625.0);
  EXPECT_EQ(laplacian_variance(luma, plane), 625.0);
  EXPECT_TRUE(std::isnan(laplacian_variance({kFormatYuv13, 2, 3, 2}, plane)));
  EXPECT_EQ(rank_descending({1.0, NAN, 3.0, 1.0}), (std::vector<int32_t>{2, 0, 1, 3}));
  EXPECT_NEAR(rank_agreement({1, 2, 3, 0}, {1, 3, 2, 4}), 2.0 / 3.0, 1e-12);  // frame 3 unranked by one
}

}  // namespace
