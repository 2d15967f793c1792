#include "replay_run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <thread>

#include "frame_file.h"
#include "heatmap.h"
#include "peer_measure.h"
#include "report.h"
#include "synth_output.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t kBurstMin = 2;
constexpr int32_t kBurstMax = QL_IS_BURST_MAX_FRAMES;
// A run is long enough for a progress bar past either mark.
constexpr size_t kProgressFrames = 20;
constexpr auto kProgressAfter = std::chrono::seconds(2);
constexpr int kProgressWidth = 30;
constexpr auto kPacingSlice = std::chrono::milliseconds(1);

// A bar on standard error, only on a terminal and only for a long run.
class Progress {
 public:
  explicit Progress(size_t total) : total_(total), tty_(isatty(STDERR_FILENO) == 1) {}
  void update(size_t done) {
    if (!tty_) return;
    if (!shown_ && total_ <= kProgressFrames && Clock::now() - start_ < kProgressAfter) return;
    shown_ = true;
    const int filled = static_cast<int>(kProgressWidth * done / std::max<size_t>(total_, 1));
    std::fprintf(stderr, "\rqlis replay [%s%s] %zu/%zu", std::string(filled, '#').c_str(),
                 std::string(kProgressWidth - filled, ' ').c_str(), done, total_);
    std::fflush(stderr);
  }
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", kProgressWidth + 40, "");
  }

 private:
  size_t total_;
  bool tty_;
  bool shown_ = false;
  Clock::time_point start_ = Clock::now();
};


// The truth synth wrote beside the frames, one manifest per folder.
class TruthLookup {
 public:
  std::optional<FrameTruth> operator()(const ReplayInput &in) {
    const std::string dir = std::filesystem::path(in.path).parent_path().string();
    auto found = folders_.find(dir);
    if (found == folders_.end()) found = folders_.emplace(dir, read_manifest_truth(dir.empty() ? "." : dir)).first;
    const auto t = found->second.find(in.name);
    if (t == found->second.end()) return std::nullopt;
    return t->second;
  }

 private:
  std::map<std::string, std::map<std::string, FrameTruth>> folders_;
};


}  // namespace

ReplayRun run_replay(const ReplayOptions &o) {
  if (!o.burst.empty() && (static_cast<int32_t>(o.burst.size()) < kBurstMin ||
                           static_cast<int32_t>(o.burst.size()) > kBurstMax)) {
    throw ToolError("a burst takes 2 to 6 frames, not " + std::to_string(o.burst.size()));
  }
  if (o.fps_given && !(o.fps > 0.0 && std::isfinite(o.fps))) {
    throw ToolError("--fps must be a positive number");
  }
  const RawGeometry raw = raw_geometry(o.geometry);

  ReplayRun run;
  const bool pictures = !o.report.empty();
  const auto load = [&run](const ReplayInput &in) {
    std::vector<uint8_t> bytes = load_frame(in.path, in.desc).bytes;
    run.packing.add(in.desc, bytes);
    return bytes;
  };
  // What the tool measures of a preview frame, while it is in memory.
  const auto measure = [&run, pictures](const std::vector<uint8_t> &bytes, const FrameDesc &desc) {
    run.peer.push_back(laplacian_variance(desc, bytes));
    if (pictures) run.pictures.thumbs.push_back(develop_preview(desc, bytes, kReportThumbWidth));
  };
  run.frames = resolve_preview_inputs(o.inputs, raw);
  std::vector<ReplayInput> all = run.frames;
  if (!o.capture.empty()) {
    run.capture_input = resolve_single_input(o.capture, raw);
    all.push_back(*run.capture_input);
  }
  for (const std::string &path : o.burst) {
    run.burst_inputs.push_back(resolve_single_input(path, raw));
    all.push_back(run.burst_inputs.back());
  }
  require_one_geometry(all);
  TruthLookup truth;
  for (const ReplayInput &in : run.frames) run.truth.push_back(truth(in));
  // Only the library's YUYV feature driver reads format 20; the session
  // would answer every frame "format not supported".
  if (all.front().desc.format == kFormatYuyv) {
    throw ToolError(all.front().path + " is a yuyv frame, which the library's live session "
                    "does not take (qlis score measures it): replay raw10, yuv10 or yuv13 frames");
  }
  if (!run.burst_inputs.empty()) {
    // The library copies image_size bytes of each: one size for all.
    std::vector<uint64_t> sizes;
    for (const ReplayInput &in : run.burst_inputs) {
      sizes.push_back(std::min<uint64_t>(std::filesystem::file_size(in.path), frame_bytes(in.desc)));
    }
    if (std::adjacent_find(sizes.begin(), sizes.end(), std::not_equal_to<>()) != sizes.end()) {
      throw ToolError("the burst's files hold frames of different sizes (with and without chroma)");
    }
  }

  const auto started = Clock::now();
  SessionRunner runner;
  // The stream starts once the session is up: init's allocations would
  // otherwise make the first frames late and hand them over back to back.
  auto start = Clock::now();
  {
    Progress progress(run.frames.size());
    if (o.fps > 0.0) {
      const auto interval = std::chrono::duration<double>(1.0 / o.fps);
      std::vector<uint8_t> previous, current;
      for (size_t i = 0; i < run.frames.size(); ++i) {
        current = load(run.frames[i]);
        measure(current, run.frames[i].desc);
        const auto due = start + std::chrono::duration_cast<Clock::duration>(interval * i);
        while (Clock::now() < due) {
          runner.poll();
          std::this_thread::sleep_for(std::min<Clock::duration>(kPacingSlice, due - Clock::now()));
        }
        runner.offer(run.frames[i].desc, current, run.frames[i].name);
        if (i == 0) start = Clock::now();  // the worker has taken the first frame
        // The runner may read the frame it last handed over until the next offer.
        previous.swap(current);
        progress.update(i + 1);
      }
      runner.settle();
    } else {
      for (size_t i = 0; i < run.frames.size(); ++i) {
        const std::vector<uint8_t> bytes = load(run.frames[i]);
        measure(bytes, run.frames[i].desc);
        runner.evaluate(run.frames[i].desc, bytes, run.frames[i].name);
        progress.update(i + 1);
      }
    }
  }
  run.records = runner.records();
  run.kept_index = runner.kept_index();
  ReplayPictures &p = run.pictures;
  if (pictures && run.kept_index >= 0) p.kept_bytes = runner.kept_frame();
  if (run.capture_input) {
    std::vector<uint8_t> bytes = load(*run.capture_input);
    if (pictures) p.capture_before = develop_preview(run.capture_input->desc, bytes, kReportPreviewWidth);
    run.capture = runner.capture(run.capture_input->desc, bytes);
    if (pictures) p.capture_after = develop_preview(run.capture_input->desc, bytes, kReportPreviewWidth);
  }
  if (!run.burst_inputs.empty()) {
    const FrameDesc &desc = run.burst_inputs.front().desc;
    std::vector<std::vector<uint8_t>> frames;
    for (const ReplayInput &in : run.burst_inputs) frames.push_back(load(in));
    for (size_t i = 0; pictures && i < frames.size(); ++i)
      p.burst_before.push_back(develop_preview(desc, frames[i], kReportThumbWidth));
    run.burst = runner.burst(desc, frames);
    for (size_t i = 0; pictures && i < frames.size(); ++i)
      p.burst_after.push_back(develop_preview(desc, frames[i], kReportThumbWidth));
  }
  run.seconds = std::chrono::duration<double>(Clock::now() - started).count();
  std::vector<double> reblur;
  for (const PreviewRecord &r : run.records) reblur.push_back(r.reblur);
  run.reblur_rank = rank_descending(reblur);
  run.peer_rank = rank_descending(run.peer);
  return run;
}

std::vector<int32_t> truth_ranks(const ReplayRun &run) {
  std::vector<int32_t> ranks;
  for (const std::optional<FrameTruth> &t : run.truth) ranks.push_back(t ? t->sharpness_rank : 0);
  return ranks;
}

std::string burst_frame(const ReplayRun &run, int32_t id) {
  std::string text = "burst frame " + std::to_string(id) + " of " +
                     std::to_string(run.burst_inputs.size());
  if (id < 0 || static_cast<size_t>(id) >= run.burst_inputs.size()) return text;
  return text + " (" + run.burst_inputs[static_cast<size_t>(id)].name + ")";
}

std::string kept_preview(const ReplayRun &run) {
  if (run.kept_index < 0) return "the kept preview frame (none kept)";
  return "the kept preview frame " + std::to_string(run.kept_index) + " (" +
         run.records[static_cast<size_t>(run.kept_index)].name + ")";
}

// A burst showing the kept preview frame's scene is measured against that
// frame's clarity: bestId is then a burst frame sharper than it (or -1) and
// replaceId one blurrier (or -1), which takes the kept frame's bytes unless
// a burst frame scores exactly as the kept frame does. Any other burst is
// measured from its frame 0: both name burst frames and nothing is replaced.
BurstMeaning burst_meaning(const ReplayRun &run, const BurstRecord &b) {
  BurstMeaning m;
  const std::string kept = kept_preview(run);
  m.best = b.best_id < 0 ? "no burst frame is sharper than " + kept
                         : burst_frame(run, b.best_id) + " is the sharpest of the burst";
  double clarity = NAN;  // what the library measured the burst against
  for (const PreviewRecord &r : run.records) clarity = r.evaluated ? r.base_clarity : clarity;
  const bool tie = std::find(b.reblur.begin(), b.reblur.end(), clarity) != b.reblur.end();
  if (b.replace_id < 0) {
    m.replace = "no burst frame is blurrier than " + kept + "; nothing replaced";
  } else if (b.replaced) {
    m.replace = burst_frame(run, b.replace_id) + ", the blurriest, now holds " + kept;
  } else {
    m.replace = burst_frame(run, b.replace_id) + " is the blurriest; not replaced: " +
                (tie ? "a burst frame scores exactly as " + kept
                     : "the burst does not show the scene of " + kept);
  }
  if (b.result < 0) {
    m.result = "names no burst frame";
  } else {
    m.result = "names " + burst_frame(run, b.result) +
               (b.best_id < 0 ? ": the library's answer whenever no burst frame is sharper "
                                "than the kept preview frame but one is blurrier"
                              : "");
  }
  return m;
}


}  // namespace qlis::tool
