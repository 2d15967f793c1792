// qlis replay: recorded frames through a live session of the library, one
// line per frame and a summary (or one JSON document).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "frame_file.h"
#include "packing_check.h"
#include "replay_inputs.h"
#include "session_runner.h"
#include "subcommand.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr int32_t kBurstMin = 2;
constexpr int32_t kBurstMax = QL_IS_BURST_MAX_FRAMES;
// A run is long enough for a progress bar past either mark.
constexpr size_t kProgressFrames = 20;
constexpr auto kProgressAfter = std::chrono::seconds(2);
constexpr int kProgressWidth = 30;
constexpr auto kPacingSlice = std::chrono::milliseconds(1);

struct ReplayOptions {
  std::vector<std::string> inputs;
  GeometryOptions geometry;
  double fps = 0.0;  // 0: every frame evaluated
  bool fps_given = false;
  std::string capture;
  std::vector<std::string> burst;
  bool json = false;
  bool log = false;
};

const char *verdict_meaning(int32_t v) {
  switch (v) {
    case 2: return "sharper than the base";
    case 3: return "not better: the best stays";
    case 4: return "new base (scene change or flat frame)";
    case -1: return "unknown mode";
    case 0: return "format not supported";
    default: return "unexpected result";
  }
}

const char *intake(const PreviewRecord &r) {
  if (!r.handed_over) return "dropped";
  return r.evaluated ? "evaluated" : "not judged";
}

const char *regime(const PreviewRecord &r) {
  if (r.desc.format != kFormatRaw10 || !r.evaluated) return "-";
  return r.low_light ? "low" : "normal";
}

json number_or_null(double v) { return std::isfinite(v) ? json(v) : json(nullptr); }

std::string score_text(double v) {
  if (!std::isfinite(v)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.6f", v);
  return text;
}

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

struct ReplayRun {
  std::vector<ReplayInput> frames;
  std::vector<PreviewRecord> records;
  int32_t kept_index = -1;
  std::optional<ReplayInput> capture_input;
  std::optional<CaptureRecord> capture;
  std::vector<ReplayInput> burst_inputs;
  std::optional<BurstRecord> burst;
  double seconds = 0.0;
  PackingWatch packing;
};

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
  const auto load = [&run](const ReplayInput &in) {
    std::vector<uint8_t> bytes = load_frame(in.path, in.desc).bytes;
    run.packing.add(in.desc, bytes);
    return bytes;
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
        runner.evaluate(run.frames[i].desc, bytes, run.frames[i].name);
        progress.update(i + 1);
      }
    }
  }
  run.records = runner.records();
  run.kept_index = runner.kept_index();
  if (run.capture_input) {
    std::vector<uint8_t> bytes = load(*run.capture_input);
    run.capture = runner.capture(run.capture_input->desc, bytes);
  }
  if (!run.burst_inputs.empty()) {
    std::vector<std::vector<uint8_t>> frames;
    for (const ReplayInput &in : run.burst_inputs) frames.push_back(load(in));
    run.burst = runner.burst(run.burst_inputs.front().desc, frames);
  }
  run.seconds = std::chrono::duration<double>(Clock::now() - started).count();
  return run;
}

std::string kept_text(const ReplayRun &run) {
  if (run.kept_index < 0) return "none";
  return "frame " + std::to_string(run.kept_index) + ", " +
         run.records[static_cast<size_t>(run.kept_index)].name;
}

// Burst frames and preview frames are both numbered from 0: every mention
// says which of the two it is.
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

struct BurstMeaning {
  std::string best, replace, result;
};

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

// Some of the library's lines hold newlines of their own: every piece
// keeps the indent.
void print_log(const std::vector<std::string> &lines) {
  for (const std::string &l : lines) {
    size_t from = 0;
    for (size_t nl; (nl = l.find('\n', from)) != std::string::npos; from = nl + 1) {
      std::printf("        | %s\n", l.substr(from, nl - from).c_str());
    }
    std::printf("        | %s\n", l.substr(from).c_str());
  }
}

void print_text(const ReplayRun &run, const ReplayOptions &o) {
  size_t name_width = 4;
  for (const PreviewRecord &r : run.records) name_width = std::max(name_width, r.name.size());
  const int nw = static_cast<int>(name_width);
  std::printf("%5s  %-*s  %-10s  %-42s  %-6s  %-10s  %-10s\n", "frame", nw, "name", "intake",
              "verdict", "regime", "reblur", "base");
  size_t handed = 0, evaluated = 0;
  for (const PreviewRecord &r : run.records) {
    handed += r.handed_over;
    evaluated += r.evaluated;
    std::string verdict = r.evaluated ? "-" : r.reason;
    if (r.evaluated) verdict = std::to_string(r.verdict) + " " + verdict_meaning(r.verdict);
    std::printf("%5d  %-*s  %-10s  %-42s  %-6s  %-10s  %-10s%s\n", r.index, nw, r.name.c_str(),
                intake(r), verdict.c_str(), regime(r), score_text(r.reblur).c_str(),
                r.evaluated ? score_text(r.base_clarity).c_str() : "-",
                r.index == run.kept_index ? "  <- kept" : (r.kept ? "  kept" : ""));
    if (o.log) print_log(r.log);
  }
  char pace[48] = "every frame evaluated";
  if (o.fps > 0.0) std::snprintf(pace, sizeof pace, "paced at %g fps", o.fps);
  std::printf("\n%zu frames: %zu handed over, %zu evaluated, %zu dropped (%s)\n",
              run.records.size(), handed, evaluated, run.records.size() - handed, pace);
  std::printf("best frame (bufmax): %s\n", kept_text(run).c_str());
  if (run.capture) {
    const CaptureRecord &c = *run.capture;
    std::printf("capture %s: ", run.capture_input->name.c_str());
    if (c.status != 0) {
      std::printf("refused by the library (%d)\n", c.status);
    } else if (c.replaced) {
      std::printf("verdict %d (%s): replaced by the best frame (%s)\n", c.verdict,
                  verdict_meaning(c.verdict), kept_text(run).c_str());
    } else {
      std::printf("verdict %d (%s): the capture stands\n", c.verdict, verdict_meaning(c.verdict));
    }
    std::printf("  capture reblur %s\n", score_text(c.reblur).c_str());
    if (o.log) print_log(c.log);
  }
  if (run.burst) {
    const BurstRecord &b = *run.burst;
    std::printf("burst of %zu: ", run.burst_inputs.size());
    if (b.status != 0) {
      std::printf("refused by the library (%d)\n", b.status);
    } else {
      const BurstMeaning m = burst_meaning(run, b);
      std::printf("bestId %d, replaceId %d, result %d\n  bestId %d: %s\n  replaceId %d: %s\n"
                  "  result %d: %s\n", b.best_id, b.replace_id, b.result, b.best_id, m.best.c_str(),
                  b.replace_id, m.replace.c_str(), b.result, m.result.c_str());
    }
    for (size_t i = 0; i < b.reblur.size(); ++i) {
      std::printf("  %s reblur %s\n", burst_frame(run, static_cast<int32_t>(i)).c_str(),
                  score_text(b.reblur[i]).c_str());
    }
    if (o.log) print_log(b.log);
  }
  std::printf("took %.2f s\n", run.seconds);
}

json to_json(const ReplayRun &run, const ReplayOptions &o) {
  json frames = json::array();
  size_t handed = 0, evaluated = 0;
  for (const PreviewRecord &r : run.records) {
    handed += r.handed_over;
    evaluated += r.evaluated;
    json f = {{"index", r.index},
              {"name", r.name},
              {"path", run.frames[static_cast<size_t>(r.index)].path},
              {"handed_over", r.handed_over},
              {"evaluated", r.evaluated},
              {"attempts", r.attempts},
              {"verdict", r.evaluated ? json(r.verdict) : json(nullptr)},
              {"meaning", r.evaluated ? json(verdict_meaning(r.verdict)) : json(nullptr)},
              {"reason", r.reason.empty() ? json(nullptr) : json(r.reason)},
              {"regime", regime(r)},
              {"luminance_before", r.evaluated ? number_or_null(r.luminance_before) : json(nullptr)},
              {"luminance", r.evaluated ? number_or_null(r.luminance) : json(nullptr)},
              {"reblur", number_or_null(r.reblur)},
              {"base_clarity", r.evaluated ? number_or_null(r.base_clarity) : json(nullptr)},
              {"kept", r.kept}};
    if (o.log) f["log"] = r.log;
    frames.push_back(std::move(f));
  }
  const FrameDesc &d = run.frames.front().desc;
  json doc = {
      {"library", ql_is_get_version()},
      {"mode", o.fps > 0.0 ? "paced" : "evaluate"},
      {"fps", o.fps > 0.0 ? json(o.fps) : json(nullptr)},
      {"geometry",
       {{"format", d.format}, {"width", d.width}, {"height", d.height}, {"stride", d.stride}}},
      {"frames", frames},
      {"summary",
       {{"frames", run.records.size()},
        {"handed_over", handed},
        {"evaluated", evaluated},
        {"dropped", run.records.size() - handed},
        {"kept_index", run.kept_index},
        {"kept_name", run.kept_index >= 0
                          ? json(run.records[static_cast<size_t>(run.kept_index)].name)
                          : json(nullptr)}}},
      {"seconds", run.seconds},
      {"raw10_packing", run.packing.to_json()}};
  if (run.capture) {
    const CaptureRecord &c = *run.capture;
    doc["capture"] = {{"name", run.capture_input->name},
                      {"status", c.status},
                      {"verdict", c.verdict},
                      {"meaning", verdict_meaning(c.verdict)},
                      {"replaced", c.replaced},
                      {"reblur", number_or_null(c.reblur)}};
    if (o.log) doc["capture"]["log"] = c.log;
  }
  if (run.burst) {
    const BurstRecord &b = *run.burst;
    json names = json::array(), scores = json::array();
    for (const ReplayInput &in : run.burst_inputs) names.push_back(in.name);
    for (double s : b.reblur) scores.push_back(number_or_null(s));
    doc["burst"] = {{"names", names},     {"status", b.status},         {"result", b.result},
                    {"best_id", b.best_id}, {"replace_id", b.replace_id}, {"replaced", b.replaced},
                    {"reblur", scores}};
    if (b.status == 0) {
      const BurstMeaning m = burst_meaning(run, b);
      doc["burst"]["meaning"] = {{"best_id", m.best}, {"replace_id", m.replace}, {"result", m.result}};
    }
    if (o.log) doc["burst"]["log"] = b.log;
  }
  return doc;
}

}  // namespace

Subcommand add_replay_command(CLI::App &parent) {
  auto o = std::make_shared<ReplayOptions>();
  CLI::App *cmd = parent.add_subcommand(
      "replay", "Run recorded frames through a live session of the library, frame by frame");
  cmd->add_option("frames", o->inputs,
                  "Frame files, or directories whose dump-named files are taken")
      ->required();
  add_geometry_options(*cmd, o->geometry);
  CLI::Option *fps = cmd->add_option(
      "--fps", o->fps,
      "Pace the frames at this rate with real sleeps, so that the worker drops "
      "frames as on the phone (default: wait for every evaluation)");
  CLI::Option *capture =
      cmd->add_option("--capture", o->capture, "End with a single capture of this frame");
  CLI::Option *burst = cmd->add_option("--burst", o->burst,
                                       "End with a burst capture of these 2 to 6 frames");
  capture->excludes(burst);
  cmd->add_flag("--json", o->json, "Print one JSON document instead of the text");
  cmd->add_flag("--log", o->log, "Print the library's log lines under each frame");
  cmd->footer(
      "Files named as the library's dumps (<time>_qlas_prv_<stride>_<w>x<h>.raw,\n"
      "<w>X<h>_stride<s>_fmt<f>_index<i>.yuv, the capture dumps) carry their geometry\n"
      "and are replayed in the order of their time stamps, save_to_file dumps by\n"
      "index after them; other files follow in the order given and need --format,\n"
      "--width, --height and --stride. A file longer than its frame is refused\n"
      "unless --allow-trailing-bytes is given. A directory contributes its\n"
      "dump-named files only (a manifest beside them is skipped). All frames of one\n"
      "run, capture and burst included, must share one geometry, in a format the\n"
      "live session takes: raw10, yuv10 or yuv13.\n"
      "Each frame's line: index, name, intake (evaluated; dropped: the worker was\n"
      "busy; not judged: handed over but replaced by the next hand-over before the\n"
      "worker took it), the verdict and its meaning, the lighting regime it was\n"
      "judged in (RAW10), the frame's own re-blur score (radius 5; larger is\n"
      "sharper) and the base image's afterwards, and a mark on the frame in bufmax.\n"
      "A progress bar appears on standard error when it is a terminal and the run\n"
      "is long. Set QLIS_LOG=1 to see the library's lines as they are logged.");
  return {cmd, [o, fps]() {
            o->fps_given = fps->count() > 0;
            const ReplayRun run = run_replay(*o);
            if (o->json) {
              std::printf("%s\n", to_json(run, *o).dump(2).c_str());
            } else {
              print_text(run, *o);
            }
            run.packing.warn();
            return 0;
          }};
}

}  // namespace qlis::tool
