#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "dump_name.h"
#include "support/host_hooks.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int status;
  std::string out, err;
};

std::string slurp(const std::string &path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs the built qlis with `args` (shell words), capturing both streams.
Outcome qlis(const std::string &work, const std::string &args) {
  const std::string out = work + "/stdout", err = work + "/stderr";
  const std::string command = std::string("'") + QLIS_TOOL_EXE + "' " + args +
                              " >'" + out + "' 2>'" + err + "'";
  const int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

void expect_one_error_line(const Outcome &run, int status,
                           const std::string &part) {
  EXPECT_EQ(run.status, status);
  EXPECT_EQ(run.err.rfind("qlis: ", 0), 0u) << run.err;
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
  EXPECT_NE(run.err.find(part), std::string::npos) << run.err;
}

constexpr const char *kSmall = "--width 64 --height 48 --frames 3";

TEST(QlisSynth, RefusesAFolderWithFilesUnlessForced) {
  qlis::test::ScopedFsRoot work;
  const std::string out = work.path() + "/out";
  fs::create_directories(out);
  std::ofstream(out + "/keep.txt") << "mine";
  expect_one_error_line(
      qlis(work.path(), std::string("synth --out '") + out + "' " + kSmall), 1,
      "give --force");
  EXPECT_EQ(
      std::distance(fs::directory_iterator(out), fs::directory_iterator()), 1);

  const Outcome forced = qlis(
      work.path(), std::string("synth --force --out '") + out + "' " + kSmall);
  ASSERT_EQ(forced.status, 0) << forced.err;
  EXPECT_NE(forced.out.find("byte 4 = high 8 bits of pixel 3"),
            std::string::npos);
  EXPECT_EQ(slurp(out + "/keep.txt"), "mine");
  // Every frame the manifest lists is a file that replay recognises.
  const nlohmann::json manifest =
      nlohmann::json::parse(slurp(out + "/manifest.json"));
  ASSERT_EQ(manifest["frames"].size(), 3u);
  for (const auto &frame : manifest["frames"]) {
    const std::string name = frame["file"];
    SCOPED_TRACE(name);
    const auto dump = qlis::tool::parse_dump_name(name);
    ASSERT_TRUE(dump.has_value());
    EXPECT_EQ(dump->index, frame["index"]);
    EXPECT_EQ(dump->frame.width, 64);
    EXPECT_EQ(dump->frame.height, 48);
    EXPECT_EQ(dump->frame.format, 15);
    EXPECT_EQ(fs::file_size(out + "/" + name), 48u * dump->frame.stride);
  }
}

TEST(QlisSynth, BadInputIsOneLineAndAStatus) {
  qlis::test::ScopedFsRoot work;
  const std::string out = " --out '" + work.path() + "/out' ";
  expect_one_error_line(
      qlis(work.path(), "synth '" + work.path() + "/none.png'" + out + kSmall),
      1, "cannot open");
  expect_one_error_line(
      qlis(work.path(), std::string("synth '") + QLIS_TOOL_DATA_DIR +
                            "/coffee.LICENSE.md'" + out + kSmall),
      1, "is not a readable PNG file");
  expect_one_error_line(
      qlis(work.path(), "synth" + out + "--width 66 --height 48"), 1,
      "multiple of 4");
  expect_one_error_line(qlis(work.path(), "synth --frames 3"), 2, "--out");
  expect_one_error_line(qlis(work.path(), "synth" + out + "--format nv21"), 2,
                        "nv21");
  expect_one_error_line(qlis(work.path(), "synth" + out + "--width 64"), 2,
                        "--height");
  EXPECT_FALSE(fs::exists(work.path() + "/out"));
}

}  // namespace
