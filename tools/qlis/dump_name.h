// Recognises the file names of the library's frame dumps and reads the
// frame geometry, format, time stamp and index out of them, so that dumped
// frames can be replayed without being described by hand.
//
//   <time>_qlas_prv_<stride>_<w>x<h>.raw               preview frame
//   <w>X<h>_stride<s>_fmt<f>_index<%2d>.yuv            evaluated frame
//   (save_to_file) <time>_qlas_cap_inbase_<stride>_<w>x<h>.raw        best
//   frame before a capture <time>_qlas_cap_input_<stride>_<w>x<h>.raw single
//   capture <time>_qlas_cap_input<%2d>_<stride>_<w>x<h>.raw    burst frame i
//   <time>_qlas_cap_output<result>_<stride>_<w>x<h>.raw        single capture
//   after <time>_qlas_cap_output<%2d><%2d>_<stride>_<w>x<h>.raw      burst:
//   bestId, replaceId
//
// <time> is "YYYYMMDD-hh-mm-ss-mmm". "%2d" fields are exactly as printf
// prints them: one-digit values have a leading blank ("index 7").
//
// Only the save_to_file names carry the format. For the others it is
// inferred from the geometry: RAW10 when the stride holds a packed row of
// the width (5 * (width / 4) bytes), else a luma plane (13). The dump holds
// height * stride bytes for either, so the file size cannot tell them
// apart; a caller that knows better overrides the format. The worker dumps
// format 10 frames with the stride in place of the width, and the name
// reports that width as it stands.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "frame_file.h"

namespace qlis::tool {

enum class DumpKind {
  kPreview,
  kSaved,
  kCaptureBase,
  kCaptureInput,
  kBurstInput,
  kCaptureOutput,
  kBurstOutput,
};

struct DumpName {
  std::string file;  // the basename that was parsed
  DumpKind kind = DumpKind::kPreview;
  FrameDesc frame;
  bool format_in_name = false;  // false: inferred from the geometry
  std::string time;             // "YYYYMMDD-hh-mm-ss-mmm"; empty for kSaved
  int64_t time_key = -1;  // the time's digits as one number; -1 without a time
  int32_t index = -1;     // kSaved: the dump counter; kBurstInput: the frame
  int32_t result = 0;     // kCaptureOutput: the verdict; kBurstOutput: bestId
  int32_t replace_id = -1;  // kBurstOutput
};

// The name's basename is parsed. Returns nullopt for a name that is none of
// the library's dumps; throws ToolError for one that looks like a dump (it
// contains "_qlas_" or starts like "<w>X<h>_stride") but does not parse.
// Only the syntax is checked here: load_frame validates the geometry.
std::optional<DumpName> parse_dump_name(std::string_view path);

// Replay order: time-stamped dumps by time, then in the order the capture
// writes them (base, input, output), then by burst index; save_to_file dumps
// by index, after all time-stamped ones; file name last.
bool dump_order_less(const DumpName &a, const DumpName &b);

}  // namespace qlis::tool
