#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "output_dir.h"
#include "peer_measure.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr int32_t kSheetColumns = 6;
constexpr int32_t kChartWidth = 1200;
constexpr int32_t kChartHeight = 320;
constexpr int32_t kRankChartSide = 520;

std::string escape(const std::string &text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string number(double value, int decimals) {
  if (std::isnan(value)) return "n/a";
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::vector<uint8_t> read_bytes(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError("cannot read back " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Writes the picture beside the page and returns an <img> that embeds it.
class Pictures {
 public:
  explicit Pictures(std::string dir) : dir_(std::move(dir)) {}

  std::string img(const std::string &file, const RgbImage &image,
                  const std::string &id, const std::string &alt) {
    const std::string path = dir_ + "/" + file;
    write_png_rgb(path, image.width, image.height, image.rgb.data(),
                  static_cast<size_t>(image.width) * 3);
    return "<img id=\"" + id + "\" src=\"data:image/png;base64," +
           base64(read_bytes(path)) + "\" width=\"" +
           std::to_string(image.width) + "\" height=\"" +
           std::to_string(image.height) + "\" alt=\"" + escape(alt) + "\">";
  }

 private:
  std::string dir_;
};

// A picture that was never made (no frame was kept) shows as a grey tile.
RgbImage or_tile(const RgbImage &image) {
  return image.width > 0 ? image : blank_rgb(160, 120, {220, 220, 220});
}

constexpr const char *kStyle = R"(
body{font:15px/1.45 system-ui,sans-serif;color:#222;background:#fafafa;
margin:0 auto;max-width:1240px;padding:16px 20px}
h1{font-size:24px;margin:4px 0}h2{font-size:19px;margin:26px 0 8px;
border-bottom:1px solid #ddd;padding-bottom:3px}
img{max-width:100%;height:auto;display:block;border:1px solid #ccc}
figure{margin:8px 0}figcaption{font-size:13px;color:#555;margin-top:4px}
.row{display:flex;gap:18px;flex-wrap:wrap;align-items:flex-start}
.row figure{flex:1 1 300px}
pre{background:#fff;border:1px solid #ddd;padding:10px;font-size:13px;
overflow-x:auto}
.key{display:inline-block;width:12px;height:12px;vertical-align:-1px;
margin:0 4px 0 12px;border:1px solid #444}
table{border-collapse:collapse;font-size:13px;background:#fff}
th,td{border:1px solid #ddd;padding:3px 8px;text-align:right}
th{background:#eee}td.l{text-align:left}tr.kept td{background:#ffe6c7}
tr.best td{background:#e3edfb}tr.low td.regime{background:#fff1c4}
)";

std::string key(const char *css_colour, const std::string &text) {
  return std::string("<span class=\"key\" style=\"background:") + css_colour +
         "\"></span>" + text;
}

std::string frames_table(const SessionReport &r) {
  const bool truth = std::any_of(r.frames.begin(), r.frames.end(),
                                 [](const ReportFrame &f) { return f.truth.has_value(); });
  std::ostringstream t;
  t << "<table id=\"frames\"><thead><tr><th>frame</th>" << (r.show_names ? "<th>name</th>" : "")
    << (truth ? "<th>blur px</th><th>truth rank</th>" : "")
    << "<th>verdict</th><th>regime</th><th>luminance</th><th>re-blur</th><th>re-blur rank</th>"
       "<th>Laplacian var.</th><th>its rank</th><th>base clarity</th><th>kept</th></tr></thead>"
       "<tbody>\n";
  for (const ReportFrame &f : r.frames) {
    const PreviewRecord &p = f.record;
    const char *cls = p.index == r.kept_index ? "kept"
                      : p.kept                ? "best"
                      : p.low_light           ? "low"
                                              : "";
    t << "<tr class=\"" << cls << "\"><td>" << p.index << "</td>";
    if (r.show_names) t << "<td class=\"l\">" << escape(p.name) << "</td>";
    if (truth) {
      t << "<td>" << (f.truth ? number(f.truth->blur_length_px, 1) : "-") << "</td><td>"
        << rank_text(f.truth ? f.truth->sharpness_rank : 0) << "</td>";
    }
    t << "<td class=\"l\">";
    if (p.evaluated) {
      t << p.verdict << " " << escape(verdict_text(p.verdict));
    } else {
      t << escape(p.reason.empty() ? (p.handed_over ? "not judged" : "dropped") : p.reason);
    }
    t << "</td><td class=\"l regime\">" << (!p.evaluated ? "-" : p.low_light ? "low" : "normal")
      << "</td><td>" << number(p.evaluated ? p.luminance : NAN, 1) << "</td><td>"
      << number(p.reblur, 4) << "</td><td>" << rank_text(f.reblur_rank) << "</td><td>"
      << number(f.peer, 1) << "</td><td>" << rank_text(f.peer_rank) << "</td><td>"
      << number(p.evaluated ? p.base_clarity : NAN, 4) << "</td><td>"
      << (p.index == r.kept_index ? "bufmax"
          : p.kept                ? "yes"
                                  : "")
      << "</td></tr>\n";
  }
  t << "</tbody></table>\n";
  return t.str();
}

// How often the rankings agree, in words.
std::string rankings_text(const std::vector<ReportFrame> &frames) {
  std::vector<int32_t> reblur, peer, truth;
  for (const ReportFrame &f : frames) {
    reblur.push_back(f.reblur_rank);
    peer.push_back(f.peer_rank);
    truth.push_back(f.truth ? f.truth->sharpness_rank : 0);
  }
  std::string text = agreement_text(reblur, peer, truth);
  text[0] = 'T';
  return text + ".";
}

std::vector<std::string> burst_captions(const BurstView &b, bool after) {
  std::vector<std::string> captions;
  for (size_t i = 0; i < b.before.size(); ++i) {
    // The watermark has no blank glyph (a blank repeats the previous one),
    // so words are joined by minus signs.
    std::string c = std::to_string(i);
    if (static_cast<int32_t>(i) == b.record.best_id) c += "-BEST";
    if (static_cast<int32_t>(i) == b.record.replace_id)
      c += after && b.record.replaced ? "-NEW" : "-WORST";
    captions.push_back(c);
  }
  return captions;
}

}  // namespace

void rank_frames(std::vector<ReportFrame> &frames) {
  std::vector<double> reblur, peer;
  for (const ReportFrame &f : frames) {
    reblur.push_back(f.record.reblur);
    peer.push_back(f.peer);
  }
  const std::vector<int32_t> by_reblur = rank_descending(reblur), by_peer = rank_descending(peer);
  for (size_t i = 0; i < frames.size(); ++i) {
    frames[i].reblur_rank = by_reblur[i];
    frames[i].peer_rank = by_peer[i];
  }
}

const char *verdict_text(int32_t verdict) {
  switch (verdict) {
    case 2:
      return "sharper than the base";
    case 3:
      return "not better: the best stays";
    case 4:
      return "new base: first frame, scene change or flat frame";
    case -1:
      return "unknown mode";
    case 0:
      return "format not supported";
    default:
      return "unexpected result";
  }
}

std::string base64(const std::vector<uint8_t> &bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t n = std::min<size_t>(3, bytes.size() - i);
    uint32_t v = static_cast<uint32_t>(bytes[i]) << 16;
    if (n > 1) v |= static_cast<uint32_t>(bytes[i + 1]) << 8;
    if (n > 2) v |= bytes[i + 2];
    out += kDigits[v >> 18 & 63];
    out += kDigits[v >> 12 & 63];
    out += n > 1 ? kDigits[v >> 6 & 63] : '=';
    out += n > 2 ? kDigits[v & 63] : '=';
  }
  return out;
}

std::string write_report(const SessionReport &r, const std::string &dir) {
  Pictures pictures(dir);
  const std::string kept_name =
      r.kept_index < 0 ? std::string("none") : std::to_string(r.kept_index);
  std::ostringstream page;
  page << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>"
       << escape(r.title) << "</title><style>" << kStyle << "</style></head><body>\n";
  page << "<h1>" << escape(r.title) << "</h1>\n<p>" << escape(r.intro) << "</p>\n";
  page << "<p id=\"packing\"><strong>RAW10 packing:</strong> " << escape(r.packing) << "</p>\n";
  page << "<pre id=\"account\">";
  for (const std::string &line : r.account) page << escape(line) << "\n";
  page << "</pre>\n";

  page << "<h2>The preview stream</h2>\n<figure>"
       << pictures.img(
              "contact-sheet.png",
              render_contact_sheet(r.frames, r.kept_index, kSheetColumns),
              "contact-sheet", "contact sheet of the preview frames")
       << "<figcaption>Each frame with its number (top) and its re-blur "
          "score (bottom, larger is sharper), stamped by the library's "
          "<code>add_water_marking</code>."
       << key("#ff8c00", "kept in bufmax (frame " + kept_name + ")")
       << key("#286edc", "became the best on the way")
       << "</figcaption></figure>\n<figure>"
       << pictures.img("score-chart.png",
                       render_score_chart(r.frames, r.kept_index, kChartWidth,
                                          kChartHeight),
                       "score-chart", "re-blur score per frame")
       << "<figcaption>Re-blur score per frame (bars) and the base image's "
          "score after it (line), by frame number."
       << key("#78a0c8", "frame's re-blur score")
       << key("#141414", "base clarity") << key("#286edc", "became the best")
       << key("#ff8c00", "kept in bufmax")
       << key("#ffecb4", "judged in low light") << "</figcaption></figure>\n";

  page << "<section id=\"rankings\"><h2>Two measures of sharpness</h2>\n<p>"
       << escape(rankings_text(r.frames)) << "</p>\n<figure>"
       << pictures.img("rank-chart.png", render_rank_chart(r.frames, r.kept_index, kRankChartSide),
                       "rank-chart", "re-blur rank against Laplacian variance rank")
       << "<figcaption>Each frame at its rank by the library's re-blur score "
          "(across) and by the " << kPeerMeasureName << " of the same samples (down), 1 "
          "for the sharpest. On the diagonal the two agree."
       << key("#286edc", "became the best") << key("#ff8c00", "kept in bufmax")
       << "</figcaption></figure></section>\n";

  page << "<h2>The best frame</h2>\n<div class=\"row\"><figure>"
       << pictures.img("kept-frame.png", or_tile(to_rgb(r.kept_preview)),
                       "kept-frame", "the frame kept in bufmax")
       << "<figcaption>Frame " << kept_name;
  if (r.kept_index >= 0 && static_cast<size_t>(r.kept_index) < r.frames.size()) {
    const ReportFrame &k = r.frames[static_cast<size_t>(r.kept_index)];
    if (r.show_names) page << " (" << escape(k.record.name) << ")";
    page << ", kept in bufmax when the preview stream ended";
    if (k.truth)
      page << ": blur " << number(k.truth->blur_length_px, 1) << " px, sharpness rank "
           << k.truth->sharpness_rank << " of " << r.frames.size();
  }
  page << ".</figcaption></figure><figure>"
       << pictures.img("heatmap.png", or_tile(r.kept_heatmap), "heatmap",
                       "block features of the kept frame")
       << "<figcaption>Its 8x8 block features (RAW10 only).</figcaption></figure></div>\n";

  if (r.capture) {
    const CaptureView &cap = *r.capture;
    page << "<section id=\"capture-decision\"><h2>The capture</h2>\n<p>" << escape(cap.summary)
         << "</p>\n<div class=\"row\"><figure>"
         << pictures.img("capture-before.png", or_tile(to_rgb(cap.before)),
                         "capture-before", "the capture as taken")
         << "<figcaption>Handed in</figcaption></figure><figure>"
         << pictures.img("capture-after.png", or_tile(to_rgb(cap.after)),
                         "capture-after", "the capture as returned")
         << "<figcaption>Returned to the host</figcaption></figure></div>"
            "</section>\n";
  }
  if (r.burst) {
    const BurstView &burst = *r.burst;
    page << "<section id=\"burst\"><h2>The burst</h2>\n<p>" << escape(burst.summary)
         << "</p>\n<figure>"
         << pictures.img("burst-before.png",
                         render_strip(burst.before, burst_captions(burst, false),
                                      burst.record.best_id),
                         "burst-before", "the burst as taken")
         << "<figcaption>Handed in</figcaption></figure><figure>"
         << pictures.img("burst-after.png",
                         render_strip(burst.after, burst_captions(burst, true),
                                      burst.record.best_id),
                         "burst-after", "the burst as returned")
         << "<figcaption>Returned to the host"
         << (burst.record.replaced ? "" : ", unchanged")
         << "</figcaption></figure></section>\n";
  }
  page << "<h2>Every frame</h2>\n" << frames_table(r) << "</body></html>\n";
  const std::string path = dir + "/" + kReportPage;
  const std::string text = page.str();
  write_file(path, text.data(), text.size());
  return path;
}

}  // namespace qlis::tool
