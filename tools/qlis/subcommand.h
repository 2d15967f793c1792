// A subcommand of qlis: its command-line setup is done when it is added,
// and `run` performs it once the command line has been parsed (its options
// live in run's closure). `run` returns the exit status and throws
// ToolError for bad input.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace qlis::tool {

struct Subcommand {
  CLI::App *app = nullptr;
  std::function<int()> run;
};

Subcommand add_replay_command(CLI::App &parent);
Subcommand add_score_command(CLI::App &parent);

}  // namespace qlis::tool
