#include "synth_output.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "output_dir.h"
#include "raw10_pack.h"

namespace qlis::tool {

std::string saved_dump_name(const FrameDesc &d, int32_t index) {
  char name[128];
  std::snprintf(name, sizeof name, "%dX%d_stride%d_fmt%d_index%2d.yuv", d.width,
                d.height, d.stride, d.format, index);
  return name;
}

std::string layout_text(int32_t format, Raw10Packing packing) {
  switch (format) {
    case kFormatRaw10:
      return std::string("RGGB Bayer mosaic, 10 bits, packing: ") +
             (packing == Raw10Packing::kMipi ? kRaw10MipiPacking
                                             : kRaw10Packing);
    case kFormatYuv10:
    case kFormatYuv13:
      return "full-range BT.601 4:2:0: luma plane of height x stride "
             "bytes, then (height + 1) / 2 rows of stride bytes of "
             "interleaved Cb Cr";
    case kFormatYuyv:
      return "full-range BT.601 4:2:2: Y0 Cb Y1 Cr per pixel pair, stride "
             "bytes per row";
    default:
      return "unknown";
  }
}

nlohmann::json synth_manifest(const SynthParams &p,
                              const std::string &photo_path,
                              const std::vector<FrameTruth> &frames) {
  const FrameDesc d = synth_frame_desc(p);
  nlohmann::json frame_list = nlohmann::json::array();
  for (const FrameTruth &t : frames) {
    frame_list.push_back({
        {"file", saved_dump_name(d, t.index)},
        {"index", t.index},
        {"blur_length_px", t.blur_length_px},
        {"blur_angle_deg", t.blur_angle_deg},
        {"shift_px", {t.shift_x, t.shift_y}},
        {"noise_sigma_dn_at_18pct_grey", t.noise_sigma_dn},
        {"sharpness_rank", t.sharpness_rank},
    });
  }
  return {
      {"generator", "qlis synth"},
      {"photograph", photo_path},
      {"seed", p.seed},
      {"width", d.width},
      {"height", d.height},
      {"stride", d.stride},
      {"format", d.format},
      {"format_name", format_name(d.format)},
      {"layout", layout_text(d.format, p.packing)},
      {"image_bytes", frame_bytes(d)},
      {"max_blur_px", p.max_blur_px},
      {"max_shift_px", p.max_shift_px},
      {"blur",
       "straight smear of blur_length_px at blur_angle_deg (y down), in linear "
       "light"},
      {"sharpness_rank", "1 = shortest smear; ties by index"},
      {"sensor",
       {{"black_level", p.sensor.black_level},
        {"white_level", p.sensor.white_level},
        {"full_well_electrons", p.sensor.full_well_electrons},
        {"read_noise_dn", p.sensor.read_noise_dn}}},
      {"frames", frame_list},
  };
}

std::map<std::string, FrameTruth> read_manifest_truth(const std::string &dir) {
  std::map<std::string, FrameTruth> truth;
  std::ifstream in(std::filesystem::path(dir) / kManifestName);
  if (!in) return truth;
  const nlohmann::json doc = nlohmann::json::parse(in, nullptr, false);
  if (!doc.is_object() || doc.value("generator", "") != "qlis synth" || !doc.contains("frames"))
    return truth;
  try {
    for (const nlohmann::json &f : doc.at("frames")) {
      FrameTruth t;
      t.index = f.at("index").get<int32_t>();
      t.blur_length_px = f.at("blur_length_px").get<double>();
      t.blur_angle_deg = f.at("blur_angle_deg").get<double>();
      t.shift_x = f.at("shift_px").at(0).get<int32_t>();
      t.shift_y = f.at("shift_px").at(1).get<int32_t>();
      t.noise_sigma_dn = f.at("noise_sigma_dn_at_18pct_grey").get<double>();
      t.sharpness_rank = f.at("sharpness_rank").get<int32_t>();
      truth[f.at("file").get<std::string>()] = t;
    }
  } catch (const nlohmann::json::exception &) {
    truth.clear();  // edited by hand past recognition: no truth rather than a wrong one
  }
  return truth;
}

SynthReport write_synth(const RgbImage &photo, const std::string &photo_path,
                        const SynthParams &p, const std::string &dir) {
  const std::filesystem::path folder(dir);
  SynthReport report;
  std::vector<FrameTruth> truths;
  generate_frames(photo, p, [&](SynthFrame &&frame) {
    const std::string path =
        (folder / saved_dump_name(frame.desc, frame.truth.index)).string();
    write_file(path, frame.bytes.data(), frame.bytes.size());
    report.files.push_back(path);
    report.bytes += frame.bytes.size();
    truths.push_back(frame.truth);
  });
  const std::string text = synth_manifest(p, photo_path, truths).dump(2) + "\n";
  report.manifest = (folder / kManifestName).string();
  write_file(report.manifest, text.data(), text.size());
  return report;
}

}  // namespace qlis::tool
