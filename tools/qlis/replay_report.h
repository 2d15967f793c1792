// The report of a replay: the demo's page for any recording.
#pragma once

#include <string>

#include "replay_run.h"

namespace qlis::tool {

// Writes report.html and its pictures into `dir` (prepared by the caller)
// from a run made with options.report set; `account` is the text the
// command printed. Returns the page's path. Throws ToolError.
std::string write_replay_report(const ReplayRun &run, const ReplayOptions &options,
                                const std::string &account);

}  // namespace qlis::tool
