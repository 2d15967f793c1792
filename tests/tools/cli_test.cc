// qlis on the command line, and the session behind replay and score.
// Every bad input ends in one "qlis: <message>" line and a status (2 for a
// command line that does not parse) with nothing on standard output, and
// nothing is written into a folder holding files or over a file unless
// --force says so. On the built-in stream the decisions are pinned: a
// change in them is a change a tuning engineer has to hear about.
#include <random>

#include "session_runner.h"
#include "tool_test.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace qlis::test;

// In the root: frames/ (the live stream, named as save_to_file names it),
// plain.raw (its first frame under a name that describes nothing),
// full/mine.txt and taken.png.
class Cli : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root_.path() + "/frames");
    fs::create_directories(root_.path() + "/full");
    for (const auto &f : live_stream()) {
      files_.push_back(root_.path() + "/frames/" + qlis::tool::saved_dump_name(f.desc, f.truth.index));
      write_bytes(files_.back(), f.bytes);
    }
    fs::copy_file(files_[0], root_.path() + "/plain.raw");
    for (const char *file : {"/full/mine.txt", "/taken.png"}) std::ofstream(root_.path() + file) << "mine";
  }
  ToolRun run(const std::string &args) { return run_tool(root_.path(), args); }
  json run_json(const std::string &args) {
    const ToolRun r = run(args);
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out.empty() ? "{}" : r.out);
  }
  std::string file(size_t i) const { return ' ' + q(files_[i]); }
  ScopedFsRoot root_;
  std::vector<std::string> files_;
  const std::string geometry_ = " --format 15 --width 640 --height 480 --stride 800";
};

TEST_F(Cli, BadInputIsOneLineAStatusAndNoOutput) {
  for (const char *name : {"640X480_stride800_fmt15_index11.yuv", "64X48_stride80_fmt15_index12.yuv",
                           "16X4_stride0_fmt15_index 1.yuv", "16X4_stride20_fmt12_index 1.yuv",
                           "160X120_stride160_fmt13_index 1.yuv", "20240102-09-05-03-007_qlas_prv_x_1x1.raw"})
    write_bytes(root_.path() + "/" + name, std::vector<uint8_t>(20000));
  std::ofstream(root_.path() + "/6000X4000_stride6000_fmt13_index 1.yuv").put('\0');
  fs::resize_file(root_.path() + "/6000X4000_stride6000_fmt13_index 1.yuv", 36'000'000);  // sparse
  const std::string small = " --out new --width 64 --height 48 --frames 3", f = file(0), raw = "replay plain.raw";
  const struct { std::string args; int status; std::string part; } runs[] = {
      {"synth " + q(QLIS_TOOL_DATA_DIR "/coffee.LICENSE.md") + small, 1, "is not a readable PNG file"},
      {"synth --out new --width 66 --height 48", 1, "multiple of 4"}, {"synth --frames 3", 2, "--out"},
      {"synth --out new --format nv21", 2, "nv21"}, {"synth --out new --width 64", 2, "--height"},
      {"synth none.png" + small, 1, "cannot open"}, {"synth --out new --width 64 --height 49", 1, "the height even"},
      {"synth --out new --frames 2001", 1, "1 to 2000 are possible"},
      {"synth --out new --max-blur -1", 1, "the longest blur must be 0 to 64 pixels"},
      {"synth --out new --width 6000 --height 4000 --format yuv", 1, "more than the library's image buffer"},
      {"synth --out new --seed -1", 2, "not a whole number below 2^64"},
      {"synth --out full --width 64 --height 48", 1, "already holds files; give --force"},
      {"demo --frames many --out new", 2, "--frames"}, {"demo --frames 0 --out new", 1, "--frames must be 1 to 2000"},
      {"replay 640X480_stride800_fmt15_index11.yuv", 1, "holds 20000 bytes, fewer than the 384000"},
      {raw + " --format 15x --width 8 --height 8 --stride 8", 1, "unknown format \"15x\""},
      {"replay '16X4_stride20_fmt12_index 1.yuv'", 1, "unknown format code 12: use 15 (raw10), 10 or 13 (yuv)"},
      {"replay '16X4_stride0_fmt15_index 1.yuv'", 1, "width, height and stride must be positive"},
      {raw + " --format raw10 --width 16 --height 4 --stride 19", 1, "which needs 20 bytes"},
      {raw + " --format yuv --width 16 --height 4 --stride 15", 1, "needs 16 bytes"},
      {raw + " --format yuyv --width 16 --height 4 --stride 31", 1, "needs 32 bytes"},
      {raw + " --format raw10 --width 8000 --height 3201 --stride 10000", 1, "needs 32010000 bytes, more"},
      {"replay '6000X4000_stride6000_fmt13_index 1.yuv'", 1, "with its chroma is larger than the library's"},
      {"replay frames --burst" + f, 1, "a burst takes 2 to 6 frames, not 1"},
      {"replay frames --burst" + f + f + f + f + f + f + f, 1, "2 to 6 frames, not 7"},
      {"replay 20240102-09-05-03-007_qlas_prv_x_1x1.raw", 1, "looks like a dump"},
      {"replay frames '160X120_stride160_fmt13_index 1.yuv'", 1, "must share one geometry"},
      {"replay 64X48_stride80_fmt15_index12.yuv", 1, "holds 20000 bytes, more than the 3840 of a raw10"},
      {raw + " --format yuyv --width 400 --height 480 --stride 800", 1, "live session does not take"},
      {raw + " --format raw10 --width 0 --height 8 --stride 10", 1, "--width must be positive, not 0"},
      {"score plain.raw --format raw10 --width 8 --height 8 --stride 0", 1, "--stride must be positive, not 0"},
      {raw + " --format raw10 --width 6 --height 8 --stride 10", 1, "width must be a multiple of 4"},
      {raw + " --format yuv --width 4 --height 2 --stride 4", 1, "at least 16 pixels"},
      {raw + " --format raw10 --height 480 --stride 800", 1, "--width, --height and --stride"},
      {"replay frames --capture" + f + " --burst" + f + f, 2, "excludes"},
      {"replay frames --fps 0", 1, "--fps must be a positive number"}, {"replay frames --fps -5", 1, "--fps must be a"},
      {"replay none.yuv", 1, "cannot open"}, {"replay full", 1, "holds no files named like the library's dumps"},
      {"score --heatmap taken.png" + f, 1, "taken.png already exists; give --force"},
      {"synth --out new --format yuv --packing mipi", 1, "--packing mipi applies to raw10 frames only"},
      {"score --heatmap map.png '160X120_stride160_fmt13_index 1.yuv'", 1, "RAW10 frames only"},
  };
  for (const auto &r : runs) {
    const ToolRun got = run(r.args);
    EXPECT_EQ(std::make_pair(got.status, got.out), std::make_pair(r.status, std::string())) << r.args;
    EXPECT_TRUE(got.err.rfind("qlis: ", 0) == 0 && got.err.find('\n') == got.err.size() - 1 &&
                got.err.find(r.part) != std::string::npos) << r.args << "\n" << got.err;
  }
  EXPECT_FALSE(fs::exists(root_.path() + "/new"));
  EXPECT_EQ(std::distance(fs::directory_iterator(root_.path() + "/full"), fs::directory_iterator()), 1);
  // With --force the same commands write beside the user's file and over it.
  ASSERT_EQ(run("synth --force --out full --width 64 --height 48 --frames 3").status, 0);
  EXPECT_EQ(slurp(root_.path() + "/full/mine.txt"), "mine");
  EXPECT_TRUE(fs::exists(root_.path() + "/full/64X48_stride80_fmt15_index 3.yuv"));
  ASSERT_EQ(run("score --force --heatmap taken.png" + f).status, 0);
  EXPECT_EQ(qlis::tool::read_png_rgb(root_.path() + "/taken.png").width, 800);
}

TEST_F(Cli, ReplayDecidesOnTheBuiltInStream) {
  const json doc = run_json("replay --json frames --capture" + file(kBlurry));
  json verdicts;
  for (size_t i = 0; i < files_.size(); ++i) {  // replayed by index, all bright
    const json &f = doc["frames"][i];
    EXPECT_EQ(json({f["name"], f["regime"]}), json({fs::path(files_[i]).filename().string(), "normal"}));
    verdicts.push_back(f["verdict"]);
  }
  // Smears 1.8, 0.4, 2.2, 9.2, 8.3, 0.2, 0.3, 2.5 px: frame 1 beats the
  // first, frame 5 (the sharpest) beats frame 1 and is kept.
  EXPECT_EQ(verdicts, json({4, 2, 3, 3, 3, 2, 3, 3}));
  EXPECT_EQ(json({doc["summary"]["kept_index"], doc["summary"]["evaluated"], doc["fps"]}), json({5, 8, nullptr}));
  // The shaken capture gives way to the kept frame.
  EXPECT_EQ(json({doc["capture"]["verdict"], doc["capture"]["replaced"]}), json({3, true}));
  // The text says the same: the summary, and the kept mark on its frame's line.
  // With --log, a library line that holds newlines keeps the indent on each piece.
  const std::string text = run("replay --log frames").out;
  EXPECT_NE(text.find("8 frames: 8 handed over, 8 evaluated, 0 dropped"), std::string::npos) << text;
  const size_t at = text.find(fs::path(files_[5]).filename().string());
  EXPECT_LT(text.find("<- kept", at), text.find('\n', at));
  EXPECT_NE(text.find("\n        |  ######## sum_lum"), std::string::npos);
  // The burst names its sharpest frame (5) and its blurriest (3), but it holds
  // the kept frame itself: a score equal to the base's forbids the replacing.
  const json b = run_json("replay --json frames --burst" + file(2) + file(kBlurry) + file(5))["burst"];
  EXPECT_EQ(json({b["best_id"], b["replace_id"], b["result"], b["replaced"]}), json({2, 1, 2, false}));
  EXPECT_EQ(b.at("meaning").at("best_id"), "burst frame 2 of 3 (" + fs::path(files_[5]).filename().string() + ") is the sharpest of the burst");
  // Burst frames and preview frames are told apart, and each decision says why. The stream's
  // bursts do not show the base's scene to the library; noise does, and is measured against the kept frame.
  std::mt19937 noise(7);
  for (const char *n : {"/n0.raw", "/n1.raw", "/n2.raw", "/n3.raw"}) {
    std::vector<uint8_t> bytes(480 * 800);
    for (uint8_t &v : bytes) v = static_cast<uint8_t>(noise());
    write_bytes(root_.path() + n, bytes);
  }
  const struct { std::string args, part; } bursts[] = {
      {"frames --burst" + file(2) + file(kBlurry), "result 0\n  bestId 0: burst frame 0 of 2 (" + fs::path(files_[2]).filename().string() +
       ") is the sharpest of the burst\n  replaceId 1: burst frame 1 of 2 (" + fs::path(files_[kBlurry]).filename().string() +
       ") is the blurriest; not replaced: the burst does not show the scene of the kept preview frame 5"},
      {"n0.raw n1.raw --burst n2.raw n3.raw", "burst of 2: bestId -1, replaceId 1, result 0\n  bestId -1: no burst frame is "
       "sharper than the kept preview frame 1 (n1.raw)\n  replaceId 1: burst frame 1 of 2 (n3.raw), the blurriest, now "
       "holds the kept preview frame 1 (n1.raw)\n  result 0: names burst frame 0 of 2 (n2.raw): the library's answer whenever"},
      {"n0.raw n1.raw --burst n1.raw n3.raw", "(n3.raw) is the blurriest; not replaced: a burst frame scores exactly as the kept"},
  };
  for (const auto &r : bursts) {
    const std::string out = run("replay " + r.args + geometry_).out;
    EXPECT_NE(out.find(r.part), std::string::npos) << out;
  }
  // A flat frame is a new base: the capture stands.
  write_bytes(root_.path() + "/flat.raw", std::vector<uint8_t>(480 * 800, 100));
  const json flat = run_json("replay --json frames --capture flat.raw" + geometry_)["capture"];
  EXPECT_EQ(json({flat["verdict"], flat["replaced"]}), json({4, false}));
  // Paced, the worker drops frames as on a phone; every frame is accounted for, and
  // each one not judged says why. The stream starts once the worker waits: the
  // first frame is judged in every run, though a worker just started misses it often.
  for (int round = 0; round < 6; ++round) {
    const json d = run_json("replay --json --fps 2000 frames frames plain.raw" + geometry_)["frames"];
    EXPECT_EQ(json({d.size(), d[0]["evaluated"]}), json({17, true}));
    for (const json &f : d) EXPECT_NE(f["evaluated"], f["reason"].is_string()) << f;
  }
}

TEST_F(Cli, ScoreGivesTheLibrarysValuesAndOneHeatmapPerFile) {
  const json doc = run_json("score --json --heatmap map.png" + file(0) + file(kBlurry) + " plain.raw" +
                            geometry_)["frames"];
  ASSERT_EQ(doc.size(), 3u);
  // Identical frames: an all-zero difference, a logistic of the bias alone.
  EXPECT_EQ(json({doc[0]["label"], doc[0]["probability"], doc[2]["label"], doc[1]["label"]}), json({0, 0.5, 0, 0}));
  EXPECT_EQ(doc[1]["drivers"], json({{"calc_feature_quality_with_sub", 627102112},
                                     {"calc_feature_quality_with_sub_low_light", 0}}));
  // That 0 is by design: the detail the low-light driver measures is in its difference histograms.
  const json &h = doc[1].at("low_light_histograms");
  EXPECT_EQ(json({h["differences"], h["mean"], h["block_means"][1]}), json({56406, 6.872424919334822, 2.7933333333333334}));
  EXPECT_NE(run("score" + file(kBlurry)).out.find("0 (by design: 0 unless a block is empty)\n   low-light mean |difference|"
                                                  "              6.872425 (blocks 0.582 to 21.878) over 56406 differences"), std::string::npos);
  EXPECT_EQ(json({doc[0]["reblur"], doc[1]["reblur"]}), json({0.3247031289712236, 0.2916183875394465}));
  for (const char *map : {"/map_0.png", "/map_1.png", "/map_2.png"}) EXPECT_TRUE(fs::exists(root_.path() + map));
  // No label or re-blur for a frame of another geometry or format; the luma driver.
  fs::copy_file(files_[0], root_.path() + "/320X480_stride400_fmt15_index 1.yuv");
  fs::copy_file(files_[0], root_.path() + "/640X480_stride640_fmt13_index 2.yuv");
  const json others = run_json("score --json --allow-trailing-bytes" + file(0) +
                               " '320X480_stride400_fmt15_index 1.yuv' '640X480_stride640_fmt13_index 2.yuv'")["frames"];
  EXPECT_EQ(json({others[1]["label"], others[2]["label"], others[2]["reblur"]}), json({nullptr, nullptr, nullptr}));
  EXPECT_EQ(others[2]["drivers"], json({{"calc_feature_quality_with_sub_yuv", 1213853514816}}));
}

// One session per process: a second would share the library's globals.
TEST(SessionRunner, IsOneAtATime) {
  qlis::tool::SessionRunner runner;
  EXPECT_THROW(qlis::tool::SessionRunner second, qlis::tool::ToolError);
}

// A hand-over whose wake-up was lost is handed over again by settle with that
// frame's own bytes, though replay has swapped the vector holding them away.
TEST(SessionRunner, SettleHandsALostFrameOverAgainWithItsOwnBytes) {
  qlis::tool::SessionRunner runner;
  runner.evaluate(live_stream()[0].desc, live_stream()[0].bytes, "first");
  std::vector<uint8_t> current = live_stream()[1].bytes, previous = live_stream()[0].bytes;
  runner.set_intake([&, own = current](const FrameParam &p) {
    EXPECT_TRUE(std::equal(p.image.ptr, p.image.ptr + p.image_size, own.begin(), own.end()));
    // Its first hand-over is left as the intake leaves one, but without the
    // wake-up: the worker sleeps on in its wait.
    if (prevParam.side == p.side.ptr) return ql_is_process_preview(&p);
    prevParam.side = p.side.ptr, g_asIQThdInfo.pending = 1;
  });
  runner.offer(live_stream()[1].desc, current, "second");
  previous.swap(current);  // as replay does: the buffer lives on in `previous`
  runner.settle();
  EXPECT_TRUE(runner.records()[1].evaluated);
}

// The tool's own arena is sized to the comparison's need: the same score
// as with the library's full-size arena, for awkward geometries too.
TEST(SessionRunner, ReblurScoreWithATightArenaIsTheSessionArenasScore) {
  std::vector<uint8_t> arena(14'001'024), bytes(480 * 800);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 37 + (i >> 7));
  for (const qlis::tool::FrameDesc d : {qlis::tool::FrameDesc{15, 640, 480, 800}, {15, 92, 47, 120}, {15, 44, 44, 60}})
    EXPECT_EQ(qlis::tool::reblur_score(d, bytes),
              compare_reblue_with_luminance_compensation(bytes.data(), d.height, d.width, uint32_t(d.stride), 1, 5,
                                                         ScratchArena{arena.data(), uint32_t(arena.size()), 0}));
}

}  // namespace
