#include "demo.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "heatmap.h"
#include "packing_check.h"
#include "peer_measure.h"
#include "raw10_pack.h"
#include "session_runner.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

// The shaken capture draws a smear of at least this share of the longest.
constexpr double kShakenShare = 0.8;
// The burst's frames: one smear from each of these bands (shares of the
// longest), handed over in an order the seed chooses.
constexpr std::pair<double, double> kBurstBands[kDemoBurstFrames] = {
    {0.0, 0.15}, {0.25, 0.45}, {0.55, 0.7}, {0.8, 1.0}};
constexpr int kSeedTries = 100000;

std::string format(const char *fmt, ...) {
  char text[512];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  return text;
}

// A frame of the same scene whose smear falls within [low, high] pixels:
// the first seed after `seed` in the stream `purpose` whose plan draws one.
// Only the plan is searched, so the search costs no rendering.
SynthFrame shaken_frame(const RgbImage &photo, SynthParams params,
                        uint64_t purpose, double low, double high) {
  params.frames = 1;
  const uint64_t start = params.seed;
  for (int k = 0; k < kSeedTries; ++k) {
    params.seed =
        start ^ (0x9E3779B97F4A7C15ull *
                 (purpose * kSeedTries + static_cast<uint64_t>(k) + 1));
    const double blur = plan_frames(params).front().blur_length_px;
    if (blur >= low && blur <= high) {
      std::vector<SynthFrame> frames = synthesize(photo, params);
      return std::move(frames.front());
    }
  }
  throw ToolError("no shaken frame found for this seed");
}

std::string blur_list(const std::vector<FrameTruth> &truth) {
  std::string text;
  for (const FrameTruth &t : truth)
    text += (text.empty() ? "" : ", ") + format("%.1f", t.blur_length_px);
  return text + " px";
}

size_t least_blurred(const std::vector<FrameTruth> &truth) {
  return static_cast<size_t>(
      std::min_element(truth.begin(), truth.end(),
                       [](const FrameTruth &a, const FrameTruth &b) {
                         return a.blur_length_px < b.blur_length_px;
                       }) -
      truth.begin());
}

size_t most_blurred(const std::vector<FrameTruth> &truth) {
  return static_cast<size_t>(
      std::max_element(truth.begin(), truth.end(),
                       [](const FrameTruth &a, const FrameTruth &b) {
                         return a.blur_length_px < b.blur_length_px;
                       }) -
      truth.begin());
}

const char *regime(const PreviewRecord &r) {
  return r.low_light ? "low light" : "normal light";
}

void account_preview(SessionReport &report) {
  std::vector<std::string> &out = report.account;
  size_t evaluated = 0, became_best = 0;
  for (const ReportFrame &f : report.frames) {
    evaluated += f.record.evaluated ? 1 : 0;
    became_best += f.record.kept ? 1 : 0;
  }
  out.push_back(format(
      "preview: %zu frames handed over one at a time, %zu evaluated by the "
      "worker; %zu became the best:",
      report.frames.size(), evaluated, became_best));
  bool have_base = false;
  double base_before = 0.0;
  for (const ReportFrame &f : report.frames) {
    const PreviewRecord &r = f.record;
    if (r.kept) {
      const std::string against =
          have_base ? format("against the base's %.4f", base_before)
                    : std::string("(no base yet)");
      out.push_back(format(
          "  frame %2d: verdict %d (%s), re-blur %.4f %s, %s; truth: blur "
          "%.1f px, rank %d",
          r.index, r.verdict, verdict_text(r.verdict), r.reblur,
          against.c_str(), regime(r), f.truth->blur_length_px,
          f.truth->sharpness_rank));
    }
    if (r.evaluated) {
      have_base = true;
      base_before = r.base_clarity;
    }
  }
  const auto sharpest = std::find_if(
      report.frames.begin(), report.frames.end(),
      [](const ReportFrame &f) { return f.truth->sharpness_rank == 1; });
  if (report.kept_index < 0) {
    out.push_back("kept in bufmax: no frame");
    return;
  }
  const ReportFrame &kept =
      report.frames[static_cast<size_t>(report.kept_index)];
  out.push_back(
      format("kept in bufmax: frame %d, blur %.1f px, sharpness rank %d of %zu "
             "(the least blurred is frame %d, %.1f px)",
             report.kept_index, kept.truth->blur_length_px,
             kept.truth->sharpness_rank, report.frames.size(),
             sharpest->record.index, sharpest->truth->blur_length_px));
}

std::string capture_summary(const SessionReport &report, const FrameTruth &truth) {
  const CaptureRecord &c = report.capture->record;
  std::string line = format("capture: blur %.1f px, re-blur %.4f: verdict %d, ",
                            truth.blur_length_px, c.reblur, c.verdict);
  if (!c.replaced) return line + "kept as taken";
  line += format("replaced by the kept frame %d", report.kept_index);
  if (report.kept_index < 0) return line;
  const FrameTruth &k = *report.frames[static_cast<size_t>(report.kept_index)].truth;
  return line + format(" (%.1f px: %s)", k.blur_length_px,
                       k.blur_length_px < truth.blur_length_px ? "sharper, as the truth has it"
                                                               : "not sharper by the truth");
}

std::string burst_summary(const BurstRecord &b, const std::vector<FrameTruth> &truth) {
  return format(
      "burst of %zu (blur %s): bestId %d, replaceId %d, %s; truth: least "
      "blurred %zu, most blurred %zu",
      truth.size(), blur_list(truth).c_str(), b.best_id, b.replace_id,
      b.replaced ? "the blurriest was overwritten by the kept frame" : "no frame overwritten",
      least_blurred(truth), most_blurred(truth));
}

}  // namespace

SessionReport run_demo(const RgbImage &photo, const std::string &photo_path,
                    const DemoOptions &options) {
  SynthParams params;
  params.width = options.width;
  params.height = options.height;
  params.frames = options.frames;
  params.seed = options.seed;
  validate_synth(params);

  SessionReport report;
  const std::string photo_name = std::filesystem::path(photo_path).filename().string();
  const FrameDesc desc = synth_frame_desc(params);
  report.title = format("qlis demo: %d hand-held frames, %dx%d RAW10", params.frames,
                        desc.width, desc.height);
  report.intro = format(
      "Synthesised from %s (seed %llu). Every frame went through the library's preview "
      "intake and was judged by its worker; then came a shaken single capture and a burst.",
      photo_name.c_str(), static_cast<unsigned long long>(options.seed));
  report.account.push_back(format(
      "qlis demo: %d RAW10 frames %dx%d (stride %d) synthesised from %s, "
      "seed %llu",
      params.frames, desc.width, desc.height, desc.stride, photo_name.c_str(),
      static_cast<unsigned long long>(options.seed)));
  report.account.push_back(
      std::string("packing: ") + kRaw10Packing +
      " (the byte the library samples carries image content)");

  const double longest = params.max_blur_px;
  SynthFrame shaken =
      shaken_frame(photo, params, 1, kShakenShare * longest, longest);
  std::vector<SynthFrame> burst;
  for (size_t i = 0; i < kDemoBurstFrames; ++i) {
    const auto [low, high] = kBurstBands[i];
    burst.push_back(
        shaken_frame(photo, params, 2 + i, low * longest, high * longest));
  }
  std::rotate(
      burst.begin(),
      burst.begin() + static_cast<ptrdiff_t>(options.seed % burst.size()),
      burst.end());

  std::vector<uint8_t> kept_bytes;
  std::vector<FrameTruth> burst_truth;
  FrameTruth capture_truth;
  PackingWatch packing;
  {
    SessionRunner runner;
    generate_frames(photo, params, [&](SynthFrame &&f) {
      ReportFrame frame;
      frame.truth = f.truth;
      frame.record = runner.evaluate(f.desc, f.bytes,
                                     format("frame %d", f.truth.index - 1));
      frame.thumb = develop_preview(f.desc, f.bytes, kReportThumbWidth);
      frame.peer = laplacian_variance(f.desc, f.bytes);
      packing.add(f.desc, f.bytes);
      report.frames.push_back(std::move(frame));
    });
    report.kept_index = runner.kept_index();
    if (report.kept_index >= 0) kept_bytes = runner.kept_frame();

    CaptureView &cap = report.capture.emplace();
    capture_truth = shaken.truth;
    cap.before = develop_preview(shaken.desc, shaken.bytes, kReportPreviewWidth);
    cap.record = runner.capture(shaken.desc, shaken.bytes);
    cap.after = develop_preview(shaken.desc, shaken.bytes, kReportPreviewWidth);

    BurstView &b = report.burst.emplace();
    std::vector<std::vector<uint8_t>> frames;
    for (SynthFrame &f : burst) {
      burst_truth.push_back(f.truth);
      b.before.push_back(develop_preview(f.desc, f.bytes, kReportThumbWidth));
      frames.push_back(std::move(f.bytes));
    }
    b.record = runner.burst(desc, frames);
    for (size_t i = 0; i < frames.size(); ++i)
      b.after.push_back(develop_preview(burst[i].desc, frames[i], kReportThumbWidth));
  }
  // Drawn after the session so that the watermark's log lines stay out of
  // the session's records.
  if (!kept_bytes.empty()) {
    report.kept_preview = develop_preview(desc, kept_bytes, kReportPreviewWidth);
    report.kept_heatmap = render_heatmap(desc, kept_bytes);
  }
  rank_frames(report.frames);
  report.packing = packing.summary();
  account_preview(report);
  report.capture->summary = capture_summary(report, capture_truth);
  report.burst->summary = burst_summary(report.burst->record, burst_truth);
  report.account.push_back(report.capture->summary);
  report.account.push_back(report.burst->summary);
  return report;
}

}  // namespace qlis::tool
