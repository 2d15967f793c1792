#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "live_stream.h"
#include "run_tool.h"
#include "support/host_hooks.h"
#include "synth_output.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using qlis::test::expect_error;
using qlis::test::live_stream;
using qlis::test::shell_word;
using qlis::test::run_tool;

void write_bytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// The stream written as save_to_file dumps, in a fresh file-system root.
class ReplayCli : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = root_.path() + "/frames";
    fs::create_directories(dir_);
    for (const auto &f : live_stream()) {
      files_.push_back(dir_ + "/" + qlis::tool::saved_dump_name(f.desc, f.truth.index));
      write_bytes(files_.back(), f.bytes);
    }
    std::ofstream(dir_ + "/manifest.json") << "{}";
  }
  json replay_json(const std::string &args) {
    const auto run = run_tool(root_.path(), "replay --json " + args);
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out.empty() ? "{}" : run.out);
  }
  qlis::test::ScopedFsRoot root_;
  std::string dir_;
  std::vector<std::string> files_;
};

TEST_F(ReplayCli, VerdictsKeptFrameAndCaptureMatchTheLibraryDrivenDirectly) {
  const size_t blurry = qlis::test::blurriest_frame();
  const auto direct = qlis::test::drive_directly(static_cast<int>(blurry), {});
  const json doc = replay_json(shell_word(dir_) + " --capture " + shell_word(files_[blurry]));
  ASSERT_EQ(doc["frames"].size(), direct.verdicts.size());
  for (size_t i = 0; i < direct.verdicts.size(); ++i) {
    const json &f = doc["frames"][i];
    EXPECT_EQ(f["name"], fs::path(files_[i]).filename().string()) << "replayed by index";
    EXPECT_EQ(f["verdict"], direct.verdicts[i]) << i;
    EXPECT_EQ(f["regime"], direct.low_light[i] ? "low" : "normal") << i;
  }
  EXPECT_EQ(doc["summary"]["kept_index"], direct.kept);
  EXPECT_EQ(doc["capture"]["verdict"], direct.capture_verdict);
  EXPECT_EQ(doc["capture"]["replaced"], direct.capture_verdict == 3);

  // The text says the same, one line per frame and the summary.
  const auto text = run_tool(root_.path(), "replay " + shell_word(dir_));
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("8 frames: 8 handed over, 8 evaluated, 0 dropped"), std::string::npos);
  const std::string kept_line = fs::path(files_[static_cast<size_t>(direct.kept)]).filename().string();
  const size_t at = text.out.find(kept_line);
  ASSERT_NE(at, std::string::npos);
  EXPECT_LT(text.out.find("<- kept", at), text.out.find('\n', at));
}

TEST_F(ReplayCli, BurstIdsMatchTheLibraryDrivenDirectly) {
  const std::vector<size_t> picks = {2, qlis::test::blurriest_frame(), 5};
  const auto direct = qlis::test::drive_directly(-1, picks);
  std::string burst;
  for (size_t i : picks) burst.append(" ").append(shell_word(files_[i]));
  const json doc = replay_json(shell_word(dir_) + " --burst" + burst);
  int best = -2, replace = -2;
  ASSERT_EQ(std::sscanf(direct.burst_line.c_str(),
                        "ql_is_process_bat_takepicture, 1274, bestId:%d, replaceId:%d", &best,
                        &replace), 2);
  EXPECT_EQ(doc["burst"]["best_id"], best);
  EXPECT_EQ(doc["burst"]["replace_id"], replace);
  EXPECT_EQ(doc["burst"]["result"], direct.burst_result);
}

TEST_F(ReplayCli, PacedRunAccountsForEveryFrame) {
  const json doc = replay_json("--fps 2000 " + shell_word(dir_) + " " + shell_word(dir_));
  const json &s = doc["summary"];
  EXPECT_EQ(s["frames"], 2 * live_stream().size());
  EXPECT_EQ(s["handed_over"].get<int>() + s["dropped"].get<int>(), s["frames"].get<int>());
  EXPECT_LE(s["evaluated"].get<int>(), s["handed_over"].get<int>());
}

TEST_F(ReplayCli, RawFileTakesTheGeometryFromTheCommandLine) {
  const std::string plain = root_.path() + "/plain.raw";
  fs::copy_file(files_[0], plain);
  expect_error(run_tool(root_.path(), "replay " + shell_word(plain)), 1, "--width");
  const json doc =
      replay_json(shell_word(plain) + " --format raw10 --width 640 --height 480 --stride 800");
  EXPECT_EQ(doc["frames"][0]["verdict"], qlis::test::drive_directly(-1, {}).verdicts[0]);
}

struct BadInput {
  const char *label;
  std::string args;  // $D: the stream's folder, $F: its first file, $R: the root
  int status;
  const char *part;
};

std::string expand(const std::string &s, const std::string &d, const std::string &f,
                   const std::string &r) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    const char next = i + 1 < s.size() ? s[i + 1] : '\0';
    if (s[i] == '$' && (next == 'D' || next == 'F' || next == 'R')) {
      out += shell_word(next == 'D' ? d : next == 'F' ? f : r);
      ++i;
    } else {
      out += s[i];
    }
  }
  return out;
}

TEST_F(ReplayCli, BadInputIsOneLineAndNothingOnStandardOutput) {
  // A file shorter than its name's geometry, one of another geometry, a
  // name that looks like a dump and does not parse, an undescribed file.
  write_bytes(root_.path() + "/640X480_stride800_fmt15_index11.yuv", std::vector<uint8_t>(1000));
  write_bytes(root_.path() + "/64X48_stride80_fmt15_index12.yuv", std::vector<uint8_t>(48 * 80));
  write_bytes(root_.path() + "/20240102-09-05-03-007_qlas_prv_x_1x1.raw", {1});
  write_bytes(root_.path() + "/plain.bin", std::vector<uint8_t>(100));
  const std::string b = " --burst ";
  const std::vector<BadInput> cases = {
      {"missing", "replay $R/none.yuv", 1, "cannot open"},
      {"short", "replay $R/640X480_stride800_fmt15_index11.yuv", 1, "fewer than"},
      {"unknown format", "replay $R/plain.bin --format 99 --width 8 --height 8 --stride 8", 1,
       "unknown format"},
      {"burst of 1", "replay $D" + b + "$F", 1, "2 to 6"},
      {"burst of 7", "replay $D" + b + "$F $F $F $F $F $F $F", 1, "2 to 6"},
      {"bad dump name", "replay $R/20240102-09-05-03-007_qlas_prv_x_1x1.raw", 1, "looks like a dump"},
      {"mixed geometry", "replay $D $R/64X48_stride80_fmt15_index12.yuv", 1, "one geometry"},
      {"no width", "replay $R/plain.bin --format raw10", 1, "--width"},
      {"capture and burst", "replay $D --capture $F --burst $F $F", 2, "excludes"},
  };
  for (const BadInput &c : cases) {
    SCOPED_TRACE(c.label);
    expect_error(run_tool(root_.path(), expand(c.args, dir_, files_[0], root_.path())), c.status,
                 c.part);
  }
}

}  // namespace
