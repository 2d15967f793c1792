// The demo's report: one self-contained HTML page (pictures embedded as
// data URIs, style inline, no script, nothing fetched) and, beside it, the
// PNG files it embeds. It shows what the session decided frame by frame and
// how that compares with the synthetic ground truth.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame_file.h"
#include "png_image.h"
#include "report_image.h"
#include "session_runner.h"
#include "synth.h"

namespace qlis::tool {

inline constexpr const char *kReportPage = "report.html";

// One preview frame as the report shows it.
struct ReportFrame {
  PreviewRecord record;
  FrameTruth truth;
  GreyImage thumb;  // developed preview, unstamped
};

struct CaptureView {
  FrameTruth truth;
  CaptureRecord record;
  GreyImage before, after;  // the capture handed in, and what came back
};

struct BurstView {
  std::vector<FrameTruth> truth;
  BurstRecord record;
  std::vector<GreyImage> before, after;
};

struct DemoReport {
  std::string photo;  // the photograph the stream was made from
  uint64_t seed = 0;
  FrameDesc desc;
  std::string packing;  // the RAW10 packing, in words
  std::vector<ReportFrame> frames;
  int32_t kept_index = -1;  // the frame in bufmax when the capture came
  GreyImage kept_preview;
  RgbImage kept_heatmap;  // block features of the kept frame
  CaptureView capture;
  BurstView burst;
  std::vector<std::string> account;  // what the demo printed
};

// Meaning of a preview verdict in a few words ("sharper than the base").
const char *verdict_text(int32_t verdict);

// Pictures of the report.
RgbImage render_contact_sheet(const std::vector<ReportFrame> &frames,
                              int32_t kept_index, int32_t columns);
RgbImage render_score_chart(const std::vector<ReportFrame> &frames,
                            int32_t kept_index, int32_t width, int32_t height);
// Frames side by side, each with a short caption stamped in.
RgbImage render_strip(const std::vector<GreyImage> &images,
                      const std::vector<std::string> &captions,
                      int32_t highlight);

// The colours the pictures use for the frame kept in bufmax and for frames
// that became the best on the way.
inline constexpr Rgb kKeptColour{255, 140, 0};
inline constexpr Rgb kBestColour{40, 110, 220};

// Writes report.html and its PNG files into `dir` (prepared by the caller);
// returns the page's path. Throws ToolError.
std::string write_report(const DemoReport &report, const std::string &dir);

// Standard base64 with padding, as data URIs need it.
std::string base64(const std::vector<uint8_t> &bytes);

}  // namespace qlis::tool
