#include "replay_report.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "heatmap.h"
#include "report.h"

namespace qlis::tool {
namespace {

// Where the frames came from: their folder when they share one.
std::string source(const ReplayRun &run) {
  const std::filesystem::path first = std::filesystem::path(run.frames.front().path).parent_path();
  for (const ReplayInput &in : run.frames)
    if (std::filesystem::path(in.path).parent_path() != first) return "several folders";
  return first.empty() ? "the working folder" : first.string();
}

std::string fps_text(double fps) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", fps);
  return text;
}

std::string capture_summary(const ReplayRun &run) {
  const CaptureRecord &c = *run.capture;
  std::string text = "The capture " + run.capture_input->name;
  if (c.status != 0) return text + " was refused by the library (" + std::to_string(c.status) + ").";
  text += ": verdict " + std::to_string(c.verdict) + " (" + verdict_text(c.verdict) + "), ";
  return text + (c.replaced ? "replaced by " + kept_preview(run) : std::string("the capture stands")) + ".";
}

std::string burst_summary(const ReplayRun &run) {
  const BurstRecord &b = *run.burst;
  std::string text = "A burst of " + std::to_string(run.burst_inputs.size()) + " frames";
  if (b.status != 0) return text + " was refused by the library (" + std::to_string(b.status) + ").";
  const BurstMeaning m = burst_meaning(run, b);
  return text + ": bestId " + std::to_string(b.best_id) + ": " + m.best + "; replaceId " +
         std::to_string(b.replace_id) + ": " + m.replace + "; result " + std::to_string(b.result) +
         ": " + m.result + ".";
}

}  // namespace

std::string write_replay_report(const ReplayRun &run, const ReplayOptions &o,
                                const std::string &account) {
  SessionReport r;
  const FrameDesc &d = run.frames.front().desc;
  r.title = "qlis replay: " + std::to_string(run.frames.size()) + " frames, " +
            std::to_string(d.width) + "x" + std::to_string(d.height) + " " + format_name(d.format);
  std::ostringstream intro;
  intro << "Frames from " << source(run) << ", handed to the library's preview intake "
        << (o.fps > 0.0 ? "at " + fps_text(o.fps) + " frames a second, as a camera would"
                        : std::string("one at a time, each judged by its worker before the next"))
        << (run.capture ? ", then a single capture" : "") << (run.burst ? ", then a burst" : "") << ".";
  if (std::any_of(run.truth.begin(), run.truth.end(), [](const auto &t) { return t.has_value(); }))
    intro << " The ground truth comes from the manifest synth wrote beside them.";
  r.intro = intro.str();
  r.packing = run.packing.summary();
  r.show_names = true;
  for (const PreviewRecord &rec : run.records) {
    const size_t i = static_cast<size_t>(rec.index);
    ReportFrame f;
    f.record = rec;
    f.truth = run.truth[i];
    f.thumb = run.pictures.thumbs[i];
    f.peer = run.peer[i];
    f.reblur_rank = run.reblur_rank[i];
    f.peer_rank = run.peer_rank[i];
    r.frames.push_back(std::move(f));
  }
  r.kept_index = run.kept_index;
  const std::vector<uint8_t> &kept = run.pictures.kept_bytes;
  if (!kept.empty()) {
    r.kept_preview = develop_preview(d, kept, kReportPreviewWidth);
    // The heatmap reads RAW10 blocks, and needs room for them.
    if (d.format == kFormatRaw10 && d.width >= 32 && d.height >= 32) r.kept_heatmap = render_heatmap(d, kept);
  }
  const ReplayPictures &p = run.pictures;
  if (run.capture) r.capture = CaptureView{capture_summary(run), *run.capture, p.capture_before, p.capture_after};
  if (run.burst) r.burst = BurstView{burst_summary(run), *run.burst, p.burst_before, p.burst_after};
  std::istringstream lines(account);
  for (std::string line; std::getline(lines, line);) r.account.push_back(line);
  return write_report(r, o.report);
}

}  // namespace qlis::tool
