#include "replay_inputs.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "dump_name.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

namespace fs = std::filesystem;

std::string describe(const FrameDesc &d) {
  return std::string(format_name(d.format)) + " " + std::to_string(d.width) + "x" +
         std::to_string(d.height) + ", stride " + std::to_string(d.stride);
}

// What load_frame would refuse, found without reading the frame, and a
// file longer than the frame it is said to hold.
void check_file(const ReplayInput &in, bool allow_trailing_bytes) {
  std::error_code ec;
  const fs::file_status status = fs::status(in.path, ec);
  if (ec || !fs::exists(status)) {
    throw ToolError("cannot open " + in.path + ": " +
                    (ec ? ec.message() : std::string(std::strerror(ENOENT))));
  }
  if (!fs::is_regular_file(status)) throw ToolError(in.path + " is not a regular file");
  if (access(in.path.c_str(), R_OK) != 0) {
    throw ToolError("cannot open " + in.path + ": " + std::strerror(errno));
  }
  validate_frame(in.desc);
  const uint64_t size = fs::file_size(in.path, ec);
  if (ec) throw ToolError("cannot read " + in.path + ": " + ec.message());
  if (size < plane_bytes(in.desc)) {
    throw ToolError(in.path + " holds " + std::to_string(size) + " bytes, fewer than the " +
                    std::to_string(plane_bytes(in.desc)) + " (height x stride) of a " +
                    describe(in.desc) + " frame");
  }
  if (size > frame_bytes(in.desc) && !allow_trailing_bytes) {
    const bool yuv = frame_bytes(in.desc) > plane_bytes(in.desc);
    throw ToolError(in.path + " holds " + std::to_string(size) + " bytes, more than the " +
                    std::to_string(frame_bytes(in.desc)) + " of a " + describe(in.desc) +
                    " frame" + (yuv ? " with its chroma" : "") +
                    ": check the geometry, or give --allow-trailing-bytes if the file holds "
                    "more than the frame");
  }
  if (std::min(size, frame_bytes(in.desc)) > kImageBufferBytes) {
    throw ToolError(in.path + ": a " + describe(in.desc) +
                    " frame with its chroma is larger than the library's " +
                    std::to_string(kImageBufferBytes) + "-byte image buffer");
  }
}

ReplayInput from_dump(const std::string &path, const DumpName &dump, const RawGeometry &raw) {
  ReplayInput in{path, fs::path(path).filename().string(), dump.frame, true};
  if (!dump.format_in_name && raw.format) in.desc.format = *raw.format;
  return in;
}

ReplayInput from_raw(const std::string &path, const RawGeometry &raw) {
  std::error_code ec;
  if (!fs::exists(path, ec)) {
    throw ToolError("cannot open " + path + ": " + std::strerror(ENOENT));
  }
  if (!raw.format || !raw.width || !raw.height || !raw.stride) {
    throw ToolError(path +
                    " is not named like a dump of the library: describe it with --format, "
                    "--width, --height and --stride");
  }
  return {path, fs::path(path).filename().string(),
          FrameDesc{*raw.format, *raw.width, *raw.height, *raw.stride}, false};
}

}  // namespace

void add_geometry_options(CLI::App &cmd, GeometryOptions &o) {
  cmd.add_option("--format", o.format,
                 "Format of files not named like dumps: raw10 (15), yuv10 (10), yuv13 or "
                 "yuv (13), yuyv (20, which replay refuses: the live session does not take "
                 "it); for dump names without a format, overrides the one inferred");
  cmd.add_option("--width", o.width, "Width in pixels of files not named like dumps");
  cmd.add_option("--height", o.height, "Height in pixels of files not named like dumps");
  cmd.add_option("--stride", o.stride, "Bytes per row of files not named like dumps");
  cmd.add_flag("--allow-trailing-bytes", o.allow_trailing_bytes,
               "Take files longer than their frame (a YUV frame: its luma plane and "
               "chroma), reading the frame from the start; without it they are refused");
}

RawGeometry raw_geometry(const GeometryOptions &o) {
  RawGeometry raw;
  if (!o.format.empty()) raw.format = parse_format(o.format);
  const std::pair<const char *, std::optional<int32_t>> sizes[] = {
      {"--width", o.width}, {"--height", o.height}, {"--stride", o.stride}};
  for (const auto &[option, value] : sizes) {
    if (value && *value <= 0) {
      throw ToolError(std::string(option) + " must be positive, not " + std::to_string(*value));
    }
  }
  raw.width = o.width;
  raw.height = o.height;
  raw.stride = o.stride;
  raw.allow_trailing_bytes = o.allow_trailing_bytes;
  return raw;
}

ReplayInput resolve_single_input(const std::string &path, const RawGeometry &raw) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    throw ToolError(path + " is a directory; name the frame's file");
  }
  const std::optional<DumpName> dump = parse_dump_name(path);
  ReplayInput in = dump ? from_dump(path, *dump, raw) : from_raw(path, raw);
  check_file(in, raw.allow_trailing_bytes);
  return in;
}

std::vector<ReplayInput> resolve_preview_inputs(const std::vector<std::string> &paths,
                                                const RawGeometry &raw) {
  std::vector<std::pair<DumpName, ReplayInput>> dumps;
  std::vector<ReplayInput> others;
  for (const std::string &path : paths) {
    std::error_code ec;
    if (!fs::is_directory(path, ec)) {
      const std::optional<DumpName> dump = parse_dump_name(path);
      if (dump) {
        dumps.emplace_back(*dump, from_dump(path, *dump, raw));
      } else {
        others.push_back(from_raw(path, raw));
      }
      continue;
    }
    size_t found = 0;
    for (const fs::directory_entry &e : fs::directory_iterator(path, ec)) {
      if (!e.is_regular_file()) continue;
      const std::string file = e.path().string();
      const std::optional<DumpName> dump = parse_dump_name(file);
      if (!dump) continue;  // a manifest, a picture: not a frame
      dumps.emplace_back(*dump, from_dump(file, *dump, raw));
      ++found;
    }
    if (ec) throw ToolError("cannot list " + path + ": " + ec.message());
    if (found == 0) throw ToolError(path + " holds no files named like the library's dumps");
  }
  std::stable_sort(dumps.begin(), dumps.end(),
                   [](const auto &a, const auto &b) { return dump_order_less(a.first, b.first); });
  std::vector<ReplayInput> frames;
  for (auto &d : dumps) frames.push_back(std::move(d.second));
  for (auto &o : others) frames.push_back(std::move(o));
  if (frames.empty()) throw ToolError("no frames to replay");
  for (const ReplayInput &in : frames) check_file(in, raw.allow_trailing_bytes);
  return frames;
}

void require_one_geometry(const std::vector<ReplayInput> &frames) {
  for (const ReplayInput &in : frames) {
    const FrameDesc &a = frames.front().desc;
    const FrameDesc &b = in.desc;
    if (a.format != b.format || a.width != b.width || a.height != b.height ||
        a.stride != b.stride) {
      throw ToolError(in.path + " is a " + describe(b) + " frame but " + frames.front().path +
                      " is " + describe(a) + ": all frames of one run must share one geometry");
    }
  }
}

}  // namespace qlis::tool
