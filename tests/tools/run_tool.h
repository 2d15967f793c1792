// Runs the built qlis with shell-quoted arguments and captures its streams.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace qlis::test {

struct ToolRun {
  int status = -1;
  std::string out, err;
};

inline std::string read_text(const std::string &path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::string shell_word(const std::string &word) { return "'" + word + "'"; }

inline ToolRun run_tool(const std::string &work, const std::string &args) {
  const std::string out = work + "/tool.out", err = work + "/tool.err";
  const std::string command =
      shell_word(QLIS_TOOL_EXE) + " " + args + " >" + shell_word(out) + " 2>" + shell_word(err);
  const int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, read_text(out), read_text(err)};
}

// One "qlis: ..." line on standard error naming `part`, nothing on
// standard output.
inline void expect_error(const ToolRun &run, int status, const std::string &part) {
  EXPECT_EQ(run.status, status);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("qlis: ", 0), 0u) << run.err;
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
  EXPECT_NE(run.err.find(part), std::string::npos) << run.err;
}

}  // namespace qlis::test
