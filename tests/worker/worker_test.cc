#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using qlis::test::make_host_frame;
using qlis::test::ScopedFsRoot;
using qlis::test::ScopedProperty;
using qlis::test::ScopedSession;

constexpr int32_t kUnsupported = 12;

TEST(PreviewWorker, DumpsEveryEvaluatedFrameBeforeEvaluatingIt) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard");
  ScopedProperty dump("debug.camera.dump_qlas_prv", "1");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  for (uint8_t seed = 1; seed <= 3; ++seed) {
    auto frame = make_host_frame(kUnsupported, 64, 16, 80, 0, 0, seed);
    ASSERT_TRUE(qlis::test::preview_until_evaluated(&frame.param));
    // Names carry the time to the millisecond: let it move on so that the
    // next dump gets a name of its own.
    char evaluated[32];
    char now[32];
    getNowTime(evaluated);
    do {
      usleep(500);
      getNowTime(now);
    } while (std::strcmp(now, evaluated) == 0);
  }
  const auto files = root.files();
  ASSERT_EQ(files.size(), 3u);
  const std::regex name(R"(/sdcard/\d{8}-\d\d-\d\d-\d\d-\d{3}_qlas_prv_80_64x16\.raw)");
  for (const auto &f : files) {
    EXPECT_TRUE(std::regex_match(f, name)) << f;
    EXPECT_EQ(std::filesystem::file_size(root.path() + f), 80u * 16u);
  }
}

TEST(PreviewWorker, UnsupportedFormatIsNeverKeptAsBestFrame) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  const BufPair best = bufmax;
  auto frame = make_host_frame(kUnsupported, 64, 16, 80, 8, 0, 9);
  ASSERT_TRUE(qlis::test::preview_until_evaluated(&frame.param));
  EXPECT_EQ(bufmax.image, best.image);
  EXPECT_EQ(prevParam.result, 0);
}

TEST(PreviewWorker, FrameDumpCountStopsAtLimitAndResetsWithPropertyZero) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  qlis::test::LogCapture log;
  PrevParam job = {};
  job.format = kUnsupported;  // counted and logged, nothing written
  {
    ScopedProperty dump("debug.camera.dump_qlfd", "1");
    PreviewThread(&job);
    EXPECT_EQ(dump_count, 1);
    EXPECT_TRUE(std::filesystem::is_directory(root.path() + "/sdcard/DCIM/qlfd"));
    dump_count = 1999;
    PreviewThread(&job);
    EXPECT_EQ(dump_count, 2000);
    PreviewThread(&job);
    EXPECT_EQ(dump_count, 2000);
  }
  {
    ScopedProperty other("debug.camera.dump_qlfd", "3");
    PreviewThread(&job);
    EXPECT_EQ(dump_count, 2000);
  }
  PreviewThread(&job);  // unset reads as 0
  EXPECT_EQ(dump_count, 0);
  const std::vector<std::string> expected = {
      "qlas PrevTh format not support 12", "qlas PrevTh format not support 12\n",
      "qlas PrevTh format not support 12", "qlas PrevTh format not support 12\n",
      "qlas PrevTh format not support 12\n", "qlas PrevTh format not support 12\n",
      "qlas PrevTh format not support 12\n"};
  EXPECT_EQ(log.texts("QLIS-E"), expected);
  EXPECT_TRUE(root.files().empty());
}

// Puts a frame into bufproc as the intake would and evaluates it.
void evaluate(const std::vector<uint8_t> &image, const PrevParam &job) {
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  std::memcpy(bufproc.image, image.data(), image.size());
  PrevParam copy = job;
  PreviewThread(&copy);
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
}

TEST(PreviewWorker, FrameDumpsCarryGeometryIndexAndStopAtTheLimit) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM");
  root.make_dirs("/data/misc/camera/qlas");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  const qlis::test::Scene scene;
  const std::vector<uint8_t> image = qlis::test::raw10_scene(scene);
  PrevParam job = {};
  job.format = 15;
  job.height = scene.height;
  job.width = scene.width;
  job.stride = scene.stride;
  const std::string first = "/sdcard/DCIM/qlfd/640X480_stride800_fmt15_index 1.yuv";
  {
    ScopedProperty dump("debug.camera.dump_qlfd", "1");
    evaluate(image, job);
    std::ifstream in(root.path() + first, std::ios::binary);
    const std::vector<uint8_t> written{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(written, image);  // height x stride bytes, dumped before judging
    dump_count = 1999;
    evaluate(image, job);
    evaluate(image, job);  // the limit: nothing more
    job.format = 10;       // dumped unpadded, its stride standing for the width
    evaluate(image, job);
  }
  EXPECT_EQ(dump_count, 2000);
  EXPECT_EQ(root.files(), (std::vector<std::string>{
                              first, "/sdcard/DCIM/qlfd/640X480_stride800_fmt15_index2000.yuv"}));
  evaluate(image, job);  // property unset: the count starts again
  {
    ScopedProperty dump("debug.camera.dump_qlfd", "1");
    evaluate(image, job);
  }
  const std::string nv = "/data/misc/camera/qlas/800X480_stride800_fmt10_index 1.yuv";
  ASSERT_EQ(root.files().size(), 3u);
  EXPECT_EQ(root.files()[0], nv);
  EXPECT_EQ(std::filesystem::file_size(root.path() + nv), 480u * 800u);
}

}  // namespace
