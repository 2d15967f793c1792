#include "dump_name.h"

#include <charconv>
#include <cstdio>
#include <tuple>

#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr std::string_view kQlasMarker = "_qlas_";
// getNowTime's "%04d%02d%02d-%02d-%02d-%02d-%03d"; 'd' stands for a digit.
constexpr std::string_view kTimeShape = "dddddddd-dd-dd-dd-ddd";

[[noreturn]] void malformed(std::string_view file, const std::string &why) {
  throw ToolError("\"" + std::string(file) +
                  "\" looks like a dump of the library but " + why);
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The value that printf's "%d" (or "%2d" when `two_wide`) prints as exactly
// `text`: no '+', no leading zeros, no blanks beyond the padding, and within
// 32 bits (from_chars reports larger values instead of overflowing).
std::optional<int32_t> printed_int(std::string_view text, bool two_wide) {
  const size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return std::nullopt;
  int32_t value = 0;
  const char *end = text.data() + text.size();
  const auto [stop, ec] = std::from_chars(text.data() + start, end, value);
  if (ec != std::errc() || stop != end) return std::nullopt;
  char printed[16];
  std::snprintf(printed, sizeof printed, two_wide ? "%2d" : "%d", value);
  if (text != printed) return std::nullopt;
  return value;
}

int32_t number(std::string_view file, std::string_view text, const char *what,
               bool two_wide = false) {
  const std::optional<int32_t> value = printed_int(text, two_wide);
  if (!value) {
    malformed(file, std::string("its ") + what + " \"" + std::string(text) +
                        "\" is not " + (two_wide ? "a %2d-printed" : "a") +
                        " 32-bit whole number");
  }
  return *value;
}

// The time's 17 digits as one number, which orders like the time itself.
int64_t parse_time(std::string_view file, std::string_view time) {
  bool shaped = time.size() == kTimeShape.size();
  int64_t key = 0;
  for (size_t i = 0; shaped && i < time.size(); ++i) {
    if (kTimeShape[i] == 'd') {
      shaped = is_digit(time[i]);
      key = key * 10 + (time[i] - '0');
    } else {
      shaped = time[i] == kTimeShape[i];
    }
  }
  auto field = [&](size_t pos, size_t len) {
    int value = 0;
    for (size_t i = pos; i < pos + len; ++i)
      value = value * 10 + (time[i] - '0');
    return value;
  };
  if (!shaped || field(4, 2) < 1 || field(4, 2) > 12 || field(6, 2) < 1 ||
      field(6, 2) > 31 || field(9, 2) > 23 || field(12, 2) > 59 ||
      field(15, 2) > 60) {
    malformed(file, "its time stamp \"" + std::string(time) +
                        "\" is not YYYYMMDD-hh-mm-ss-mmm");
  }
  return key;
}

// "<stride>_<w>x<h>.raw", the common end of every time-stamped dump.
void parse_geometry_tail(std::string_view file, std::string_view tail,
                         DumpName &out) {
  constexpr std::string_view kExtension = ".raw";
  const size_t under = tail.find('_');
  const size_t cross =
      tail.find('x', under == std::string_view::npos ? 0 : under);
  if (!tail.ends_with(kExtension) || under == std::string_view::npos ||
      cross == std::string_view::npos) {
    malformed(file, "does not end in <stride>_<width>x<height>.raw");
  }
  out.frame.stride = number(file, tail.substr(0, under), "stride");
  out.frame.width =
      number(file, tail.substr(under + 1, cross - under - 1), "width");
  out.frame.height = number(
      file, tail.substr(cross + 1, tail.size() - kExtension.size() - cross - 1),
      "height");
  const int64_t packed_row = 5 * static_cast<int64_t>(out.frame.width / 4);
  out.frame.format =
      out.frame.stride >= packed_row ? kFormatRaw10 : kFormatYuv13;
}

// Splits "<field>_<rest>" after a prefix; the field may be empty.
std::pair<std::string_view, std::string_view> field_then_tail(
    std::string_view file, std::string_view text) {
  const size_t under = text.find('_');
  if (under == std::string_view::npos)
    malformed(file, "has no stride, width and height");
  return {text.substr(0, under), text.substr(under + 1)};
}

DumpName parse_qlas(std::string_view file, size_t marker) {
  DumpName out;
  out.file = std::string(file);
  out.time = std::string(file.substr(0, marker));
  out.time_key = parse_time(file, out.time);
  std::string_view rest = file.substr(marker + kQlasMarker.size());
  constexpr std::string_view kPreview = "prv_", kBase = "cap_inbase_",
                             kInput = "cap_input", kOutput = "cap_output";
  if (rest.starts_with(kPreview)) {
    out.kind = DumpKind::kPreview;
    parse_geometry_tail(file, rest.substr(kPreview.size()), out);
  } else if (rest.starts_with(kBase)) {
    out.kind = DumpKind::kCaptureBase;
    parse_geometry_tail(file, rest.substr(kBase.size()), out);
  } else if (rest.starts_with(kInput)) {
    const auto [field, tail] =
        field_then_tail(file, rest.substr(kInput.size()));
    out.kind = field.empty() ? DumpKind::kCaptureInput : DumpKind::kBurstInput;
    if (!field.empty()) out.index = number(file, field, "burst index", true);
    parse_geometry_tail(file, tail, out);
  } else if (rest.starts_with(kOutput)) {
    const auto [field, tail] =
        field_then_tail(file, rest.substr(kOutput.size()));
    // A burst prints bestId and replaceId as "%2d%2d"; both are small, so
    // the pair always holds a blank, which a single "%d" result never does.
    if (field.find(' ') != std::string_view::npos) {
      if (field.size() != 4)
        malformed(file, "its burst ids \"" + std::string(field) +
                            "\" are not two %2d fields");
      out.kind = DumpKind::kBurstOutput;
      out.result = number(file, field.substr(0, 2), "best id", true);
      out.replace_id = number(file, field.substr(2, 2), "replace id", true);
    } else {
      out.kind = DumpKind::kCaptureOutput;
      out.result = number(file, field, "result");
    }
    parse_geometry_tail(file, tail, out);
  } else {
    malformed(file,
              "its kind is none of prv, cap_inbase, cap_input and cap_output");
  }
  return out;
}

// "<w>X<h>_stride" at the start of the name.
bool looks_saved(std::string_view file) {
  size_t i = 0;
  while (i < file.size() && is_digit(file[i])) ++i;
  if (i == 0 || i >= file.size() || file[i] != 'X') return false;
  size_t j = i + 1;
  while (j < file.size() && is_digit(file[j])) ++j;
  return j > i + 1 && file.substr(j).starts_with("_stride");
}

DumpName parse_saved(std::string_view file) {
  constexpr std::string_view kStride = "_stride", kFormat = "_fmt",
                             kIndex = "_index", kExtension = ".yuv";
  const size_t cross = file.find('X');
  const size_t stride = file.find(kStride);
  const size_t format = file.find(kFormat, stride);
  const size_t index =
      file.find(kIndex, format == std::string_view::npos ? stride : format);
  if (format == std::string_view::npos || index == std::string_view::npos ||
      !file.ends_with(kExtension)) {
    malformed(file, "is not <w>X<h>_stride<s>_fmt<f>_index<%2d>.yuv");
  }
  auto between = [&](size_t from, size_t to) {
    return file.substr(from, to - from);
  };
  DumpName out;
  out.file = std::string(file);
  out.kind = DumpKind::kSaved;
  out.format_in_name = true;
  out.frame.width = number(file, between(0, cross), "width");
  out.frame.height = number(file, between(cross + 1, stride), "height");
  out.frame.stride =
      number(file, between(stride + kStride.size(), format), "stride");
  out.frame.format =
      number(file, between(format + kFormat.size(), index), "format");
  out.index = number(
      file, between(index + kIndex.size(), file.size() - kExtension.size()),
      "index", true);
  return out;
}

int kind_rank(DumpKind kind) {
  switch (kind) {
    case DumpKind::kCaptureBase:
      return 1;
    case DumpKind::kCaptureInput:
    case DumpKind::kBurstInput:
      return 2;
    case DumpKind::kCaptureOutput:
    case DumpKind::kBurstOutput:
      return 3;
    default:
      return 0;
  }
}

}  // namespace

std::optional<DumpName> parse_dump_name(std::string_view path) {
  const size_t slash = path.find_last_of('/');
  const std::string_view file =
      slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t marker = file.find(kQlasMarker);
  if (marker != std::string_view::npos) return parse_qlas(file, marker);
  if (looks_saved(file)) return parse_saved(file);
  return std::nullopt;
}

bool dump_order_less(const DumpName &a, const DumpName &b) {
  auto key = [](const DumpName &d) {
    return std::make_tuple(d.time_key < 0, d.time_key, kind_rank(d.kind),
                           d.index, std::string_view(d.file));
  };
  return key(a) < key(b);
}

}  // namespace qlis::tool
