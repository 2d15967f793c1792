// The folder a command writes into.
#pragma once

#include <string>

namespace qlis::tool {

// Creates `dir` with its parents, or accepts it as it is when it holds
// nothing. A folder that already holds files is refused unless `force`:
// the tool never mixes its output with files it did not write by accident.
// Throws ToolError.
void prepare_output_dir(const std::string &dir, bool force);

// Writes `size` bytes to `path`, replacing the file. Throws ToolError.
void write_file(const std::string &path, const void *data, size_t size);

}  // namespace qlis::tool
