// The report of a session, the demo's or a replay's: one self-contained
// HTML page (pictures embedded as data URIs, style inline, no script,
// nothing fetched) and, beside it, the PNG files it embeds. It shows what
// the session decided frame by frame, how the library's re-blur ranking
// compares with a common sharpness measure's, and with the ground truth
// where the frames were synthesised.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "frame_file.h"
#include "png_image.h"
#include "report_image.h"
#include "session_runner.h"
#include "synth.h"

namespace qlis::tool {

inline constexpr const char *kReportPage = "report.html";
// Pixels across of the thumbnails (contact sheet, burst) and of the larger
// previews (kept frame, capture).
inline constexpr int32_t kReportThumbWidth = 200;
inline constexpr int32_t kReportPreviewWidth = 600;

// One preview frame as the report shows it.
struct ReportFrame {
  PreviewRecord record;
  std::optional<FrameTruth> truth;  // known for synthesised frames
  GreyImage thumb;                  // developed preview, unstamped
  double peer = std::numeric_limits<double>::quiet_NaN();  // laplacian_variance
  int32_t reblur_rank = 0;          // 1 for the largest re-blur score; 0: none
  int32_t peer_rank = 0;
};

struct CaptureView {
  std::string summary;  // the decision in a sentence
  CaptureRecord record;
  GreyImage before, after;  // the capture handed in, and what came back
};

struct BurstView {
  std::string summary;
  BurstRecord record;
  std::vector<GreyImage> before, after;
};

struct SessionReport {
  std::string title;  // "qlis demo: ..." or "qlis replay: ..."
  std::string intro;  // where the frames came from and how they were run
  std::string packing;  // the packing check's finding, in words
  bool show_names = false;  // file names in the table
  std::vector<ReportFrame> frames;
  int32_t kept_index = -1;  // the frame in bufmax when the stream ended
  GreyImage kept_preview;
  RgbImage kept_heatmap;  // block features of the kept frame
  std::optional<CaptureView> capture;
  std::optional<BurstView> burst;
  std::vector<std::string> account;  // what the command printed
};

// Fills each frame's reblur_rank and peer_rank from its scores.
void rank_frames(std::vector<ReportFrame> &frames);

// Meaning of a preview verdict in a few words ("sharper than the base").
const char *verdict_text(int32_t verdict);

// Pictures of the report.
RgbImage render_contact_sheet(const std::vector<ReportFrame> &frames,
                              int32_t kept_index, int32_t columns);
RgbImage render_score_chart(const std::vector<ReportFrame> &frames,
                            int32_t kept_index, int32_t width, int32_t height);
// Each frame at (re-blur rank, peer rank): frames off the diagonal are
// where the two measures disagree. A square of `side` pixels.
RgbImage render_rank_chart(const std::vector<ReportFrame> &frames,
                           int32_t kept_index, int32_t side);
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
std::string write_report(const SessionReport &report, const std::string &dir);

// Standard base64 with padding, as data URIs need it.
std::string base64(const std::vector<uint8_t> &bytes);

}  // namespace qlis::tool
