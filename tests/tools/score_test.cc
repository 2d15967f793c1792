#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "frame_scores.h"
#include "heatmap.h"
#include "live_stream.h"
#include "png_image.h"
#include "run_tool.h"
#include "session_runner.h"
#include "support/host_hooks.h"
#include "synth_output.h"
#include "tool_error.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using qlis::test::live_stream;
using qlis::test::shell_word;
using qlis::test::run_tool;
using qlis::tool::FrameDesc;

std::vector<qlis::tool::SynthFrame> small_stream(int32_t format) {
  qlis::tool::SynthParams p;
  p.width = 160;
  p.height = 120;
  p.frames = 1;
  p.format = format;
  return qlis::tool::synthesize(qlis::tool::read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png"), p);
}

TEST(FrameScores, EachDriverValueIsTheDirectCallOfThatDriver) {
  const auto &raw = live_stream()[3];
  const FrameDesc &d = raw.desc;
  BlockFeatureSet fs{};
  std::vector<DiffHistogram> hists(64);
  const auto values = qlis::tool::driver_values(d, raw.bytes);
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].value, calc_feature_quality_with_sub(&fs, 0, raw.bytes.data(), d.height,
                                                           d.width, d.stride));
  EXPECT_EQ(values[1].value, calc_feature_quality_with_sub_low_light(
                                 &fs, hists.data(), 0, raw.bytes.data(), d.height, d.width, d.stride));
  for (int32_t format : {qlis::tool::kFormatYuv13, qlis::tool::kFormatYuyv}) {
    const auto f = small_stream(format)[0];
    const auto v = qlis::tool::driver_values(f.desc, f.bytes);
    ASSERT_EQ(v.size(), 1u);
    const uint64_t direct =
        format == qlis::tool::kFormatYuyv
            ? calc_feature_quality_with_sub_yuyv(&fs, f.bytes.data(), f.desc.height, f.desc.width, f.desc.stride)
            : calc_feature_quality_with_sub_yuv(&fs, f.bytes.data(), f.desc.height, f.desc.width, f.desc.stride);
    EXPECT_EQ(v[0].value, direct) << format;
  }
}

// The classifier's verdict of a frame against a different one, computed
// here through the exported functions, with the probability it logs.
int32_t direct_label(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b, const FrameDesc &d) {
  std::vector<double> fa(320), fb(320), diff(97);
  std::vector<uint8_t> scratch(static_cast<size_t>(d.height >> 2) * (d.width >> 2));
  get_feature_raw_10bitX5_(a.data(), d.height, d.width, d.stride, 0, 0, fa.data(), scratch.data());
  get_feature_raw_10bitX5_(b.data(), d.height, d.width, d.stride, 0, 0, fb.data(), scratch.data());
  combine_feature(fa.data(), fb.data(), diff.data());
  return get_score_label(diff.data());
}

TEST(ScoreCli, JsonHoldsDirectValuesLabelsAndOneHeatmapPerFile) {
  qlis::test::ScopedFsRoot root;
  std::vector<std::string> files;
  for (size_t i : {size_t{0}, qlis::test::blurriest_frame()}) {
    const auto &f = live_stream()[i];
    files.push_back(root.path() + "/" + qlis::tool::saved_dump_name(f.desc, f.truth.index));
    std::ofstream(files.back(), std::ios::binary)
        .write(reinterpret_cast<const char *>(f.bytes.data()), static_cast<std::streamsize>(f.bytes.size()));
  }
  const std::string heatmap = root.path() + "/map.png";
  const auto run = run_tool(root.path(), "score --json --heatmap " + shell_word(heatmap) + " " +
                                             shell_word(files[0]) + " " + shell_word(files[1]));
  ASSERT_EQ(run.status, 0) << run.err;
  const json doc = json::parse(run.out);
  ASSERT_EQ(doc["frames"].size(), 2u);
  const auto &first = live_stream()[0];
  const auto &second = live_stream()[qlis::test::blurriest_frame()];
  // Identical frames: an all-zero difference, a logistic of the bias alone.
  EXPECT_EQ(doc["frames"][0]["label"], 0);
  EXPECT_EQ(doc["frames"][0]["probability"], 0.5);
  EXPECT_EQ(doc["frames"][1]["label"], direct_label(second.bytes, first.bytes, first.desc));
  BlockFeatureSet fs{};
  EXPECT_EQ(doc["frames"][1]["drivers"]["calc_feature_quality_with_sub"],
            calc_feature_quality_with_sub(&fs, 0, second.bytes.data(), 480, 640, 800));
  EXPECT_EQ(doc["frames"][1]["reblur"], qlis::tool::reblur_score(second.desc, second.bytes));
  // 640 pixels give a 160-sample preview, enlarged five times to 800.
  for (const char *name : {"/map_0.png", "/map_1.png"}) {
    const auto picture = qlis::tool::read_png_rgb(root.path() + name);
    EXPECT_EQ(picture.width, 800) << name;
    EXPECT_EQ(picture.height, 600) << name;
  }
  EXPECT_FALSE(fs::exists(heatmap));

  // A second run would replace the pictures: refused, unless forced.
  const std::string again = "score --heatmap " + shell_word(heatmap) + " " +
                            shell_word(files[0]) + " " + shell_word(files[1]);
  const auto refused = run_tool(root.path(), again);
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("map_0.png already exists"), std::string::npos) << refused.err;
  EXPECT_TRUE(refused.out.empty());
  EXPECT_EQ(run_tool(root.path(), again + " --force").status, 0);
}

TEST(Heatmap, TintsTheSharpestBlockReddestAndRefusesOtherFormats) {
  const auto &f = live_stream()[0];
  const auto energies = qlis::tool::block_energies(f.desc, f.bytes);
  const size_t top = static_cast<size_t>(std::max_element(energies.begin(), energies.end()) - energies.begin());
  const size_t low = static_cast<size_t>(std::min_element(energies.begin(), energies.end()) - energies.begin());
  const auto picture = qlis::tool::render_heatmap(f.desc, f.bytes);
  // Red minus blue summed over each block's pixels (text and edges too).
  auto redness = [&](size_t block) {
    const int32_t bw = picture.width / 8, bh = picture.height / 8;
    long long sum = 0;
    for (int32_t y = 0; y < bh; ++y) {
      for (int32_t x = 0; x < bw; ++x) {
        const size_t at = ((static_cast<size_t>(block / 8) * bh + y) * picture.width +
                           (block % 8) * bw + x) * 3;
        sum += picture.rgb[at] - picture.rgb[at + 2];
      }
    }
    return sum;
  };
  EXPECT_GT(redness(top), redness(low));
  const auto yuv = small_stream(qlis::tool::kFormatYuv13)[0];
  EXPECT_THROW(qlis::tool::render_heatmap(yuv.desc, yuv.bytes), qlis::tool::ToolError);
}

}  // namespace
