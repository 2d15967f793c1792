// `qlis demo`: the command-line face of the demo and its report.
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace qlis::tool {

// Adds the subcommand to `app`; the returned action runs it once the
// command line has been parsed (it throws ToolError on failure).
// `shipped_photo` finds the photograph the stream is made from.
std::function<int()> add_demo_command(
    CLI::App &app, std::function<std::string()> shipped_photo);

}  // namespace qlis::tool
