// qlis score: the library's measures of single frames, and the block
// heatmap.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "frame_scores.h"
#include "heatmap.h"
#include "packing_check.h"
#include "peer_measure.h"
#include "png_image.h"
#include "ql_is/ql_is.h"
#include "replay_inputs.h"
#include "subcommand.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

struct ScoreOptions {
  std::vector<std::string> files;
  GeometryOptions geometry;
  std::string heatmap;
  bool force = false;
  bool json = false;
};

bool same_geometry(const FrameDesc &a, const FrameDesc &b) {
  return a.format == b.format && a.width == b.width && a.height == b.height &&
         a.stride == b.stride;
}

// One file: the name as given; several: "<stem>_<index><ext>".
std::string heatmap_path(const std::string &path, size_t index, size_t count) {
  if (count == 1) return path;
  const fs::path p(path);
  return (p.parent_path() / (p.stem().string() + "_" + std::to_string(index) +
                             p.extension().string()))
      .string();
}

constexpr const char *kLowLightDriver = "calc_feature_quality_with_sub_low_light";

json finite_or_null(double v) { return std::isfinite(v) ? json(v) : json(nullptr); }

// The low-light driver's detail is in its difference histograms: their
// mean, and the flattest and busiest block beside it.
void print_histograms(const json &h) {
  double low = INFINITY, high = -INFINITY;
  for (const json &m : h["block_means"]) {
    if (m.is_null()) continue;
    low = std::min(low, m.get<double>());
    high = std::max(high, m.get<double>());
  }
  if (h["mean"].is_null()) {
    std::printf("   %-40s none (every block empty)\n", "low-light mean |difference|");
    return;
  }
  std::printf("   %-40s %.6f (blocks %.3f to %.3f) over %llu differences\n",
              "low-light mean |difference|", h["mean"].get<double>(), low, high,
              static_cast<unsigned long long>(h["differences"].get<uint64_t>()));
}

int run_score(const ScoreOptions &o) {
  const RawGeometry raw = raw_geometry(o.geometry);
  std::vector<ReplayInput> inputs;
  for (const std::string &f : o.files) inputs.push_back(resolve_single_input(f, raw));
  if (!o.heatmap.empty()) {
    for (const ReplayInput &in : inputs) {
      if (in.desc.format != kFormatRaw10) {
        throw ToolError("--heatmap draws RAW10 frames only, and " + in.path + " is " +
                        format_name(in.desc.format));
      }
    }
    // A heatmap never replaces a file the user already has, unless asked.
    for (size_t i = 0; i < inputs.size() && !o.force; ++i) {
      const std::string out = heatmap_path(o.heatmap, i, inputs.size());
      std::error_code ec;
      if (fs::exists(out, ec)) {
        throw ToolError(out + " already exists; give --force to overwrite it");
      }
    }
  }

  std::vector<double> reference;
  json frames = json::array();
  std::vector<std::string> written;
  PackingWatch packing;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const ReplayInput &in = inputs[i];
    const std::vector<uint8_t> bytes = load_frame(in.path, in.desc).bytes;
    packing.add(in.desc, bytes);
    const bool comparable = in.desc.format == kFormatRaw10 &&
                            same_geometry(in.desc, inputs.front().desc);
    if (i == 0 && comparable) reference = classifier_features(in.desc, bytes);
    const FrameScores s = score_frame(in.desc, bytes, comparable ? &reference : nullptr);
    json drivers = json::object();
    for (const DriverValue &d : s.drivers) drivers[d.driver] = d.value;
    json f = {{"index", i},
              {"name", in.name},
              {"path", in.path},
              {"format", format_name(in.desc.format)},
              {"width", in.desc.width},
              {"height", in.desc.height},
              {"stride", in.desc.stride},
              {"drivers", drivers},
              {"reblur", std::isfinite(s.reblur) ? json(s.reblur) : json(nullptr)},
              {"laplacian_variance", finite_or_null(laplacian_variance(in.desc, bytes))},
              {"label", s.label ? json(*s.label) : json(nullptr)},
              {"probability", s.probability ? json(*s.probability) : json(nullptr)}};
    if (s.low_light) {
      json means = json::array();
      for (double m : s.low_light->block_means) means.push_back(finite_or_null(m));
      f["low_light_histograms"] = {{"differences", s.low_light->differences},
                                   {"mean", finite_or_null(s.low_light->mean)},
                                   {"block_means", means}};
    }
    if (!o.heatmap.empty()) {
      const std::string out = heatmap_path(o.heatmap, i, inputs.size());
      const RgbImage picture = render_heatmap(in.desc, bytes);
      write_png_rgb(out, picture.width, picture.height, picture.rgb.data(),
                    static_cast<size_t>(picture.width) * 3);
      f["heatmap"] = out;
    }
    frames.push_back(std::move(f));
  }

  if (o.json) {
    std::printf("%s\n", json{{"library", ql_is_get_version()}, {"frames", frames},
                             {"raw10_packing", packing.to_json()}}.dump(2).c_str());
    packing.warn();
    return 0;
  }
  for (const json &f : frames) {
    std::printf("%d  %s  %s %dx%d, stride %d\n", f["index"].get<int>(),
                f["name"].get<std::string>().c_str(), f["format"].get<std::string>().c_str(),
                f["width"].get<int>(), f["height"].get<int>(), f["stride"].get<int>());
    for (const auto &[driver, value] : f["drivers"].items()) {
      std::printf("   %-40s %llu%s\n", driver.c_str(),
                  static_cast<unsigned long long>(value.get<uint64_t>()),
                  driver == kLowLightDriver ? " (by design: 0 unless a block is empty)" : "");
    }
    if (f.contains("low_light_histograms")) print_histograms(f["low_light_histograms"]);
    if (!f["reblur"].is_null()) std::printf("   %-40s %.6f\n", "reblur (radius 5)", f["reblur"].get<double>());
    if (!f["laplacian_variance"].is_null())
      std::printf("   %-40s %.1f\n", kPeerMeasureName, f["laplacian_variance"].get<double>());
    if (!f["label"].is_null()) {
      std::printf("   %-40s label %d", "classifier against frame 0", f["label"].get<int>());
      if (!f["probability"].is_null()) std::printf(", probability %.2f", f["probability"].get<double>());
      std::printf("\n");
    }
    if (f.contains("heatmap")) std::printf("   %-40s %s\n", "heatmap", f["heatmap"].get<std::string>().c_str());
  }
  packing.warn();
  return 0;
}

}  // namespace

Subcommand add_score_command(CLI::App &parent) {
  auto o = std::make_shared<ScoreOptions>();
  CLI::App *cmd = parent.add_subcommand(
      "score", "Measure single frames with the library's feature drivers, re-blur and classifier");
  cmd->add_option("files", o->files, "Frame files (dump-named, or described by the options)")
      ->required();
  add_geometry_options(*cmd, o->geometry);
  cmd->add_option("--heatmap", o->heatmap,
                  "Write the block heatmap of each frame to this PNG (RAW10 only); with "
                  "several files, one PNG each, named <stem>_<index><ext>");
  cmd->add_flag("--force", o->force, "Overwrite existing heatmap files");
  cmd->add_flag("--json", o->json, "Print one JSON document instead of the text");
  cmd->footer(
      "Per frame: the frame value of each feature driver that reads its format\n"
      "(RAW10: calc_feature_quality_with_sub in mode 0 and\n"
      "calc_feature_quality_with_sub_low_light in mode 0; YUV:\n"
      "calc_feature_quality_with_sub_yuv; YUYV: calc_feature_quality_with_sub_yuyv),\n"
      "for RAW10 the mean absolute neighbour difference in the low-light driver's\n"
      "64 block histograms (its frame value is 0 for any frame without an empty\n"
      "block: the difference counts are what it measures),\n"
      "the re-blur score (RAW10, radius 5, larger is sharper) and the learned\n"
      "classifier's label of the frame against the first file (RAW10 of the first\n"
      "file's geometry; 1: this frame is the sharper) with the probability the\n"
      "library logs, and beside the library's measures a common one computed by\n"
      "the tool on the same samples: the variance of the Laplacian (RAW10: byte 4\n"
      "of each group on every fourth row from row 3; YUV, YUYV: the luma plane).\n"
      "RAW10 frames whose byte 4 holds the low bits rather than a picture get one\n"
      "warning on standard error (and raw10_packing in the JSON).\n"
      "Heatmap: a grey preview from the byte the library samples (byte 4 of each\n"
      "five-byte group) on every fourth row, a quarter of the width and height,\n"
      "enlarged to at least 800 pixels wide; each of the 8x8 blocks is tinted by\n"
      "its gradient energy (the block extractor at distance 1 on the normal-light\n"
      "driver's rectangles; blue flattest, red sharpest), the value stamped into it\n"
      "with the library's watermark (K: thousands, M: millions).");
  return {cmd, [o]() { return run_score(*o); }};
}

}  // namespace qlis::tool
