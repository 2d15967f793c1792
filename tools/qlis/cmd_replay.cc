// qlis replay: recorded frames through a live session of the library, one
// line per frame and a summary (or one JSON document).
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "output_dir.h"
#include "peer_measure.h"
#include "replay_report.h"
#include "replay_run.h"
#include "report.h"
#include "subcommand.h"

namespace qlis::tool {
namespace {

using nlohmann::json;

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

std::string kept_text(const ReplayRun &run) {
  if (run.kept_index < 0) return "none";
  return "frame " + std::to_string(run.kept_index) + ", " +
         run.records[static_cast<size_t>(run.kept_index)].name;
}

void appendf(std::string &out, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string &out, const char *fmt, ...) {
  va_list args, again;
  va_start(args, fmt);
  va_copy(again, args);
  const int n = std::vsnprintf(nullptr, 0, fmt, args);
  va_end(args);
  if (n > 0) {
    const size_t at = out.size();
    out.resize(at + static_cast<size_t>(n) + 1);
    std::vsnprintf(out.data() + at, static_cast<size_t>(n) + 1, fmt, again);
    out.pop_back();
  }
  va_end(again);
}

// Some of the library's lines hold newlines of their own: every piece
// keeps the indent.
void append_log(std::string &out, const std::vector<std::string> &lines) {
  for (const std::string &l : lines) {
    size_t from = 0;
    for (size_t nl; (nl = l.find('\n', from)) != std::string::npos; from = nl + 1) {
      appendf(out, "        | %s\n", l.substr(from, nl - from).c_str());
    }
    appendf(out, "        | %s\n", l.substr(from).c_str());
  }
}

std::string peer_text(double v) {
  if (!std::isfinite(v)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", v);
  return text;
}

std::string replay_text(const ReplayRun &run, const ReplayOptions &o) {
  std::string out;
  size_t name_width = 4;
  for (const PreviewRecord &r : run.records) name_width = std::max(name_width, r.name.size());
  const int nw = static_cast<int>(name_width);
  const bool truth = std::any_of(run.truth.begin(), run.truth.end(),
                                 [](const std::optional<FrameTruth> &t) { return t.has_value(); });
  // Ranks are 1 for the sharpest by each measure: the re-blur score, the
  // Laplacian's variance (lapvar) and, for synthesised frames, the truth.
  appendf(out, "%5s  %-*s  %-10s  %-52s  %-6s  %-10s  %4s  %-10s  %10s  %4s%s\n", "frame", nw, "name",
          "intake", "verdict", "regime", "reblur", "rank", "base", "lapvar", "rank",
          truth ? "   blur  truth" : "");
  size_t handed = 0, evaluated = 0;
  for (const PreviewRecord &r : run.records) {
    const size_t i = static_cast<size_t>(r.index);
    handed += r.handed_over;
    evaluated += r.evaluated;
    std::string verdict = r.evaluated ? "-" : r.reason;
    if (r.evaluated) verdict = std::to_string(r.verdict) + " " + verdict_text(r.verdict);
    std::string known;
    if (truth && run.truth[i]) {
      char text[32];
      std::snprintf(text, sizeof text, "  %5.1f  %5d", run.truth[i]->blur_length_px,
                    run.truth[i]->sharpness_rank);
      known = text;
    } else if (truth) {
      known = "      -      -";
    }
    appendf(out, "%5d  %-*s  %-10s  %-52s  %-6s  %-10s  %4s  %-10s  %10s  %4s%s%s\n", r.index, nw,
            r.name.c_str(), intake(r), verdict.c_str(), regime(r), score_text(r.reblur).c_str(),
            rank_text(run.reblur_rank[i]).c_str(), r.evaluated ? score_text(r.base_clarity).c_str() : "-",
            peer_text(run.peer[i]).c_str(), rank_text(run.peer_rank[i]).c_str(), known.c_str(),
            r.index == run.kept_index ? "  <- kept" : (r.kept ? "  kept" : ""));
    if (o.log) append_log(out, r.log);
  }
  char pace[48] = "every frame evaluated";
  if (o.fps > 0.0) std::snprintf(pace, sizeof pace, "paced at %g fps", o.fps);
  appendf(out, "\n%zu frames: %zu handed over, %zu evaluated, %zu dropped (%s)\n",
          run.records.size(), handed, evaluated, run.records.size() - handed, pace);
  appendf(out, "best frame (bufmax): %s\n", kept_text(run).c_str());
  appendf(out, "rankings: %s\n",
          agreement_text(run.reblur_rank, run.peer_rank, truth_ranks(run)).c_str());
  if (run.capture) {
    const CaptureRecord &c = *run.capture;
    appendf(out, "capture %s: ", run.capture_input->name.c_str());
    if (c.status != 0) {
      appendf(out, "refused by the library (%d)\n", c.status);
    } else if (c.replaced) {
      appendf(out, "verdict %d (%s): replaced by %s\n", c.verdict, verdict_text(c.verdict),
              kept_preview(run).c_str());
    } else {
      appendf(out, "verdict %d (%s): the capture stands\n", c.verdict, verdict_text(c.verdict));
    }
    appendf(out, "  capture reblur %s\n", score_text(c.reblur).c_str());
    if (o.log) append_log(out, c.log);
  }
  if (run.burst) {
    const BurstRecord &b = *run.burst;
    appendf(out, "burst of %zu: ", run.burst_inputs.size());
    if (b.status != 0) {
      appendf(out, "refused by the library (%d)\n", b.status);
    } else {
      const BurstMeaning m = burst_meaning(run, b);
      appendf(out, "bestId %d, replaceId %d, result %d\n  bestId %d: %s\n  replaceId %d: %s\n"
              "  result %d: %s\n", b.best_id, b.replace_id, b.result, b.best_id, m.best.c_str(),
              b.replace_id, m.replace.c_str(), b.result, m.result.c_str());
    }
    for (size_t i = 0; i < b.reblur.size(); ++i) {
      appendf(out, "  %s reblur %s\n", burst_frame(run, static_cast<int32_t>(i)).c_str(),
              score_text(b.reblur[i]).c_str());
    }
    if (o.log) append_log(out, b.log);
  }
  appendf(out, "took %.2f s\n", run.seconds);
  return out;
}

json rank_or_null(int32_t rank) { return rank > 0 ? json(rank) : json(nullptr); }

// Shares of frame pairs that two rankings order alike (null: no pair).
json rankings_json(const ReplayRun &run) {
  const std::vector<int32_t> truth = truth_ranks(run);
  const bool known = std::any_of(truth.begin(), truth.end(), [](int32_t t) { return t > 0; });
  return {{"peer_measure", kPeerMeasureName},
          {"reblur_vs_laplacian", number_or_null(rank_agreement(run.reblur_rank, run.peer_rank))},
          {"reblur_vs_truth", known ? number_or_null(rank_agreement(run.reblur_rank, truth)) : json(nullptr)},
          {"laplacian_vs_truth", known ? number_or_null(rank_agreement(run.peer_rank, truth)) : json(nullptr)}};
}

json to_json(const ReplayRun &run, const ReplayOptions &o) {
  json frames = json::array();
  size_t handed = 0, evaluated = 0;
  for (const PreviewRecord &r : run.records) {
    const size_t i = static_cast<size_t>(r.index);
    handed += r.handed_over;
    evaluated += r.evaluated;
    json f = {{"index", r.index},
              {"name", r.name},
              {"path", run.frames[static_cast<size_t>(r.index)].path},
              {"handed_over", r.handed_over},
              {"evaluated", r.evaluated},
              {"attempts", r.attempts},
              {"verdict", r.evaluated ? json(r.verdict) : json(nullptr)},
              {"meaning", r.evaluated ? json(verdict_text(r.verdict)) : json(nullptr)},
              {"reason", r.reason.empty() ? json(nullptr) : json(r.reason)},
              {"regime", regime(r)},
              {"luminance_before", r.evaluated ? number_or_null(r.luminance_before) : json(nullptr)},
              {"luminance", r.evaluated ? number_or_null(r.luminance) : json(nullptr)},
              {"reblur", number_or_null(r.reblur)},
              {"base_clarity", r.evaluated ? number_or_null(r.base_clarity) : json(nullptr)},
              {"reblur_rank", rank_or_null(run.reblur_rank[i])},
              {"laplacian_variance", number_or_null(run.peer[i])},
              {"laplacian_rank", rank_or_null(run.peer_rank[i])},
              {"truth", run.truth[i] ? json{{"blur_length_px", run.truth[i]->blur_length_px},
                                            {"sharpness_rank", run.truth[i]->sharpness_rank}}
                                     : json(nullptr)},
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
      {"raw10_packing", run.packing.to_json()},
      {"rankings", rankings_json(run)}};
  if (run.capture) {
    const CaptureRecord &c = *run.capture;
    doc["capture"] = {{"name", run.capture_input->name},
                      {"status", c.status},
                      {"verdict", c.verdict},
                      {"meaning", verdict_text(c.verdict)},
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
  cmd->add_option("--report", o->report,
                  "Also write a self-contained report.html with its pictures into this folder "
                  "(created when missing)");
  cmd->add_flag("--force", o->force, "Write the report into a folder that already holds files");
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
      "sharper) with its rank in the stream (1: sharpest), the base image's score\n"
      "afterwards, the variance of the Laplacian of the same samples with its rank\n"
      "(a common measure, computed by the tool, to see where the library's ranking\n"
      "differs), the ground truth (blur length and rank) where a manifest.json\n"
      "written by qlis synth lies beside the frames, and a mark on the frame in\n"
      "bufmax. RAW10 frames whose byte 4 holds the low bits rather than a picture\n"
      "get one warning on standard error (raw10_packing in the JSON): the\n"
      "decisions on them are not meaningful. --report writes the demo's kind of\n"
      "page for the run: contact sheet, scores over time, both rankings, the kept\n"
      "frame and its block heatmap, the capture or burst, and every frame.\n"
      "A progress bar appears on standard error when it is a terminal and the run\n"
      "is long. Set QLIS_LOG=1 to see the library's lines as they are logged.");
  return {cmd, [o, fps]() {
            o->fps_given = fps->count() > 0;
            if (!o->report.empty()) prepare_output_dir(o->report, o->force);
            const ReplayRun run = run_replay(*o);
            const std::string text = replay_text(run, *o);
            std::string page;
            if (!o->report.empty()) {
              page = std::filesystem::absolute(write_replay_report(run, *o, text)).lexically_normal().string();
            }
            if (o->json) {
              json doc = to_json(run, *o);
              doc["report"] = page.empty() ? json(nullptr) : json(page);
              std::printf("%s\n", doc.dump(2).c_str());
            } else {
              std::fputs(text.c_str(), stdout);
              if (!page.empty()) std::printf("report: %s, open it in a browser\n", page.c_str());
            }
            run.packing.warn();
            return 0;
          }};
}

}  // namespace qlis::tool
