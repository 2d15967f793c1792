// The frames a replay runs over, resolved and checked before the library
// sees any of them: dump-named files describe themselves, other raw files
// take the geometry given on the command line, directories contribute
// their dump-named files, and every frame of one run shares one geometry.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame_file.h"

namespace qlis::tool {

// The command line's description of files that are not named like dumps;
// for dump names without a format (all but save_to_file's), `format`
// overrides the one inferred from the geometry. Sizes left out are empty,
// so that a 0 given is refused as such rather than taken as missing.
struct RawGeometry {
  std::optional<int32_t> format;
  std::optional<int32_t> width, height, stride;
  // A file longer than its frame is refused unless the user expects it
  // (a side buffer or padding after the image): a longer file is more often
  // a wrong geometry than a frame.
  bool allow_trailing_bytes = false;
};

// The options that fill a RawGeometry, shared by every subcommand so that
// a format name means one code everywhere.
struct GeometryOptions {
  std::string format;
  std::optional<int32_t> width, height, stride;
  bool allow_trailing_bytes = false;
};
void add_geometry_options(CLI::App &cmd, GeometryOptions &o);
// Throws ToolError for an unknown format name or a size that is not
// positive, naming the option.
RawGeometry raw_geometry(const GeometryOptions &o);

struct ReplayInput {
  std::string path;
  std::string name;  // the file's basename
  FrameDesc desc;
  bool dump_named = false;
};

// Preview frames in replay order: dump-named files by their time stamp or
// index (dump_order_less), then the other files in the order given.
// Throws ToolError for a missing or unreadable path, a short file, a
// dump-like name that does not parse, a file without a geometry, a
// directory without dumps and an empty list; and, without
// allow_trailing_bytes, a file longer than its frame (for YUV, the luma
// plane with all its chroma: dumps of the luma plane alone and partial
// chroma are taken).
std::vector<ReplayInput> resolve_preview_inputs(const std::vector<std::string> &paths,
                                                const RawGeometry &raw);
// One capture or burst frame (a file, not a directory).
ReplayInput resolve_single_input(const std::string &path, const RawGeometry &raw);
// Throws ToolError naming the first frame whose geometry differs from the
// first one's.
void require_one_geometry(const std::vector<ReplayInput> &frames);

}  // namespace qlis::tool
