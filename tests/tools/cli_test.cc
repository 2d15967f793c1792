// qlis on the command line, and the session behind replay and score.
// Every bad input ends in one "qlis: <message>" line and a status (2 for a
// command line that does not parse) with nothing on standard output;
// nothing is written into a folder holding files or over a file unless
// --force says so; and replay, score and the session runner decide as the
// library does when a host drives it directly.
#include "session_runner.h"
#include "tool_test.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace qlis::test;
using qlis::tool::FrameDesc;
using qlis::tool::SessionRunner;

// In the root: frames/ (the live stream), plain.raw (its first frame under
// a name that describes nothing), full/mine.txt and taken.png.
class Cli : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root_.path() + "/frames");
    fs::create_directories(root_.path() + "/full");
    for (const auto &f : live_stream()) {  // named as save_to_file names them
      files_.push_back(root_.path() + "/frames/" + qlis::tool::saved_dump_name(f.desc, f.truth.index));
      write_bytes(files_.back(), f.bytes);
    }
    fs::copy_file(files_[0], root_.path() + "/plain.raw");
    for (const char *file : {"/full/mine.txt", "/taken.png"}) std::ofstream(root_.path() + file) << "mine";
  }
  json run_json(const std::string &args) {
    const ToolRun run = run_tool(root_.path(), args);
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out.empty() ? "{}" : run.out);
  }
  std::string file(size_t i) const { return ' ' + q(files_[i]); }
  ScopedFsRoot root_;
  std::vector<std::string> files_;
  const std::string geometry_ = " --format 15 --width 640 --height 480 --stride 800";
};

TEST_F(Cli, BadInputIsOneLineAStatusAndNoOutput) {
  for (const char *name : {"640X480_stride800_fmt15_index11.yuv", "64X48_stride80_fmt15_index12.yuv",
                           "0X4_stride20_fmt15_index 1.yuv", "16X0_stride20_fmt15_index 1.yuv",
                           "16X4_stride0_fmt15_index 1.yuv", "16X4_stride20_fmt12_index 1.yuv",
                           "160X120_stride160_fmt13_index 1.yuv", "20240102-09-05-03-007_qlas_prv_x_1x1.raw"})
    write_bytes(root_.path() + "/" + name, std::vector<uint8_t>(20000));
  std::ofstream(root_.path() + "/6000X4000_stride6000_fmt13_index 1.yuv").put('\0');
  fs::resize_file(root_.path() + "/6000X4000_stride6000_fmt13_index 1.yuv", 36'000'000);  // sparse
  const std::string small = " --out new --width 64 --height 48 --frames 3", f = file(0);
  const struct {
    std::string args;
    int status;
    std::string part;
  } runs[] = {
      {"synth none.png" + small, 1, "cannot open"},
      {"synth " + q(QLIS_TOOL_DATA_DIR "/coffee.LICENSE.md") + small, 1, "is not a readable PNG file"},
      {"synth --out new --width 66 --height 48", 1, "multiple of 4"},
      {"synth --frames 3", 2, "--out"},
      {"synth --out new --format nv21", 2, "nv21"},
      {"synth --out new --width 64", 2, "--height"},
      {"synth --out new --width 64 --height 49", 1, "the height even"},
      {"synth --out new --frames 2001", 1, "1 to 2000 are possible"},
      {"synth --out new --max-blur -1", 1, "the longest blur must be 0 to 64 pixels"},
      {"synth --out new --width 6000 --height 4000 --format yuv", 1, "more than the library's image buffer"},
      {"synth --out new --seed -1", 2, "not a whole number below 2^64"},
      {"synth --out full --width 64 --height 48", 1, "already holds files; give --force"},
      {"demo --out full", 1, "give --force"},
      {"demo --force --frames 0 --out full", 1, "--frames must be 1 to 2000"},
      {"demo --frames many --out new", 2, "--frames"},
      {"demo --seed -1 --out new", 2, "not a whole number below 2^64"},
      {"replay none.yuv", 1, "cannot open"},
      {"replay 640X480_stride800_fmt15_index11.yuv", 1, "holds 20000 bytes, fewer than the 384000"},
      {"replay plain.raw --format 99 --width 8 --height 8 --stride 8", 1, "unknown format \"99\""},
      {"replay plain.raw --format 15x --width 8 --height 8 --stride 8", 1, "unknown format \"15x\""},
      {"replay '0X4_stride20_fmt15_index 1.yuv'", 1, "width, height and stride must be positive"},
      {"replay '16X0_stride20_fmt15_index 1.yuv'", 1, "width, height and stride must be positive"},
      {"replay '16X4_stride0_fmt15_index 1.yuv'", 1, "width, height and stride must be positive"},
      {"replay '16X4_stride20_fmt12_index 1.yuv'", 1, "unknown format code 12: use 15 (raw10), 10 or 13 (yuv)"},
      {"replay plain.raw --format raw10 --width 16 --height 4 --stride 19", 1,
       "stride 19 is too small for a raw10 row of 16 pixels, which needs 20 bytes"},
      {"replay plain.raw --format yuv --width 16 --height 4 --stride 15", 1, "needs 16 bytes"},
      {"replay plain.raw --format yuyv --width 16 --height 4 --stride 31", 1, "needs 32 bytes"},
      {"replay plain.raw --format raw10 --width 8000 --height 3201 --stride 10000", 1,
       "needs 32010000 bytes, more than the library's 32000000-byte image buffer"},
      {"replay '6000X4000_stride6000_fmt13_index 1.yuv'", 1, "with its chroma is larger than the library's"},
      {"replay frames --burst" + f, 1, "a burst takes 2 to 6 frames, not 1"},
      {"replay frames --burst" + f + f + f + f + f + f + f, 1, "2 to 6 frames, not 7"},
      {"replay 20240102-09-05-03-007_qlas_prv_x_1x1.raw", 1, "looks like a dump"},
      {"replay frames 64X48_stride80_fmt15_index12.yuv", 1, "must share one geometry"},
      {"replay plain.raw --format raw10 --height 480 --stride 800", 1, "--width, --height and --stride"},
      {"replay frames --capture" + f + " --burst" + f + f, 2, "excludes"},
      {"replay frames --fps -5", 2, "--fps"},
      {"replay full", 1, "holds no files named like the library's dumps"},
      {"score --heatmap taken.png" + f, 1, "taken.png already exists; give --force"},
      {"score --heatmap map.png '160X120_stride160_fmt13_index 1.yuv'", 1, "RAW10 frames only"},
  };
  for (const auto &run : runs) {
    SCOPED_TRACE(run.args);
    expect_error(run_tool(root_.path(), run.args), run.status, run.part);
  }
  EXPECT_FALSE(fs::exists(root_.path() + "/new"));
  EXPECT_EQ(std::distance(fs::directory_iterator(root_.path() + "/full"), fs::directory_iterator()), 1);
  EXPECT_EQ(slurp(root_.path() + "/taken.png"), "mine");
}

TEST_F(Cli, ForceWritesIntoAFolderHoldingFilesAndOverAFile) {
  const ToolRun run = run_tool(root_.path(), "synth --force --out full --width 64 --height 48 --frames 3");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find(qlis::tool::kRaw10Packing), std::string::npos) << run.out;
  EXPECT_EQ(slurp(root_.path() + "/full/mine.txt"), "mine");
  const json manifest = json::parse(slurp(root_.path() + "/full/manifest.json"));
  EXPECT_EQ(fs::file_size(root_.path() + "/full/" + manifest["frames"][2]["file"].get<std::string>()), 48u * 80);
  EXPECT_EQ(manifest["sharpness_rank"].get<std::string>().rfind("1 = shortest smear", 0), 0u);
  ASSERT_EQ(run_tool(root_.path(), "score --force --heatmap taken.png" + file(0)).status, 0);
  EXPECT_EQ(qlis::tool::read_png_rgb(root_.path() + "/taken.png").width, 800);
  // The help, where a user reads the packing before a run.
  for (const char *help : {"synth --help", "demo --help"})
    EXPECT_NE(run_tool(root_.path(), help).out.find("byte 4 = high 8 bits of pixel 3"), std::string::npos);
}

TEST_F(Cli, ReplayAgreesWithTheLibrary) {
  const DirectOutcome direct = drive_directly(static_cast<int>(kBlurry), {});
  const json doc = run_json("replay --json frames --capture" + file(kBlurry));
  ASSERT_EQ(doc["frames"].size(), direct.verdicts.size());
  for (size_t i = 0; i < direct.verdicts.size(); ++i) {
    EXPECT_EQ(doc["frames"][i]["name"], fs::path(files_[i]).filename().string()) << "replayed by index";
    EXPECT_EQ(doc["frames"][i]["verdict"], direct.verdicts[i]) << i;
    EXPECT_EQ(doc["frames"][i]["regime"], direct.low_light[i] ? "low" : "normal") << i;
  }
  const json &summary = doc["summary"];
  EXPECT_EQ(json({summary["kept_index"], summary["evaluated"], doc["fps"]}), json({direct.kept, 8, nullptr}));
  EXPECT_EQ(json({doc["capture"]["verdict"], doc["capture"]["replaced"]}),
            json({direct.capture_verdict, direct.capture_verdict == 3}));
  // The text says the same: the summary, and the kept mark on its frame's line.
  const std::string text = run_tool(root_.path(), "replay frames").out;
  EXPECT_NE(text.find("8 frames: 8 handed over, 8 evaluated, 0 dropped"), std::string::npos) << text;
  const size_t at = text.find(fs::path(files_[static_cast<size_t>(direct.kept)]).filename().string());
  EXPECT_LT(text.find("<- kept", at), text.find('\n', at));
  // With --log, a library line that holds newlines keeps the indent on each piece.
  EXPECT_NE(run_tool(root_.path(), "replay --log frames").out.find("\n        |  ######## sum_lum"), std::string::npos);

  const DirectOutcome burst = drive_directly(-1, {2, kBlurry, 5});
  const json b = run_json("replay --json frames --burst" + file(2) + file(kBlurry) + file(5))["burst"];
  EXPECT_EQ(json({b["best_id"], b["replace_id"], b["result"]}),
            json({burst.best_id, burst.replace_id, burst.burst_result}));
  // A flat frame is a new base: the capture stands.
  write_bytes(root_.path() + "/flat.raw", std::vector<uint8_t>(480 * 800, 100));
  const json flat = run_json("replay --json frames --capture flat.raw" + geometry_)["capture"];
  EXPECT_EQ(json({flat["verdict"], flat["replaced"]}), json({4, false}));
  // Paced, the worker drops frames as on a phone; every frame is accounted for.
  const json s = run_json("replay --json --fps 2000 frames frames plain.raw" + geometry_)["summary"];
  EXPECT_EQ(s["frames"], 17);
  EXPECT_EQ(s["handed_over"].get<int>() + s["dropped"].get<int>(), 17);
  EXPECT_LE(s["evaluated"].get<int>(), s["handed_over"].get<int>());
}

TEST_F(Cli, ScoreGivesTheLibrarysValuesAndOneHeatmapPerFile) {
  const auto &first = live_stream()[0].bytes, &blurry = live_stream()[kBlurry].bytes;
  const json doc = run_json("score --json --heatmap map.png" + file(0) + file(kBlurry) + " plain.raw" +
                            geometry_)["frames"];
  ASSERT_EQ(doc.size(), 3u);
  // Identical frames: an all-zero difference, a logistic of the bias alone.
  EXPECT_EQ(json({doc[0]["label"], doc[0]["probability"], doc[2]["label"]}), json({0, 0.5, 0}));
  std::vector<double> fa(320), fb(320), diff(97);
  std::vector<uint8_t> scratch(160 * 120);
  get_feature_raw_10bitX5_(blurry.data(), 480, 640, 800, 0, 0, fa.data(), scratch.data());
  get_feature_raw_10bitX5_(first.data(), 480, 640, 800, 0, 0, fb.data(), scratch.data());
  combine_feature(fa.data(), fb.data(), diff.data());
  EXPECT_EQ(doc[1]["label"], get_score_label(diff.data()));
  BlockFeatureSet features{};
  std::vector<DiffHistogram> hists(64);
  const json &drivers = doc[1]["drivers"];
  EXPECT_EQ(drivers["calc_feature_quality_with_sub"],
            calc_feature_quality_with_sub(&features, 0, blurry.data(), 480, 640, 800));
  EXPECT_EQ(drivers["calc_feature_quality_with_sub_low_light"],
            calc_feature_quality_with_sub_low_light(&features, hists.data(), 0, blurry.data(), 480, 640, 800));
  EXPECT_EQ(doc[1]["reblur"], qlis::tool::reblur_score(live_stream()[0].desc, blurry));
  for (const char *map : {"/map_0.png", "/map_1.png", "/map_2.png"}) EXPECT_TRUE(fs::exists(root_.path() + map));
  // No label for a frame of another geometry or format; the luma driver.
  fs::copy_file(files_[0], root_.path() + "/320X480_stride400_fmt15_index 1.yuv");
  fs::copy_file(files_[0], root_.path() + "/640X480_stride640_fmt13_index 2.yuv");
  const json others = run_json("score --json" + file(0) + " '320X480_stride400_fmt15_index 1.yuv' "
                               "'640X480_stride640_fmt13_index 2.yuv'")["frames"];
  EXPECT_EQ(json({others[1]["label"], others[2]["label"], others[2]["reblur"]}), json({nullptr, nullptr, nullptr}));
  EXPECT_EQ(others[2]["drivers"]["calc_feature_quality_with_sub_yuv"],
            calc_feature_quality_with_sub_yuv(&features, first.data(), 480, 640, 640));
}

// Offered as a paced host offers it, a frame is followed to its verdict.
TEST(SessionRunner, SettlesAnOfferedFrame) {
  SessionRunner runner;
  EXPECT_THROW(SessionRunner second, qlis::tool::ToolError);
  runner.offer(live_stream()[0].desc, live_stream()[0].bytes, "offered");
  runner.settle();
  EXPECT_EQ(runner.records()[0].verdict, 4);  // the first frame is a new base
}

// The tool's own arena is sized to the comparison's need: the same score
// as with the library's full-size arena, for awkward geometries too.
TEST(SessionRunner, ReblurScoreWithATightArenaIsTheSessionArenasScore) {
  std::vector<uint8_t> arena(14'001'024), bytes(480 * 800);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 37 + (i >> 7));
  for (const FrameDesc d : {FrameDesc{15, 640, 480, 800}, FrameDesc{15, 92, 47, 120}, FrameDesc{15, 44, 44, 60}}) {
    const double session = compare_reblue_with_luminance_compensation(
        bytes.data(), d.height, d.width, static_cast<uint32_t>(d.stride), 1, 5,
        ScratchArena{arena.data(), static_cast<uint32_t>(arena.size()), 0});
    EXPECT_EQ(qlis::tool::reblur_score(d, bytes), session) << d.width << "x" << d.height;
  }
}

}  // namespace
