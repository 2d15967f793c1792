#include "report.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "output_dir.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr int32_t kSheetColumns = 6;
constexpr int32_t kChartWidth = 1200;
constexpr int32_t kChartHeight = 320;

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

std::string frames_table(const DemoReport &r) {
  std::ostringstream t;
  t << "<table id=\"frames\"><thead><tr><th>frame</th><th>blur px</th>"
       "<th>truth rank</th><th>verdict</th><th>regime</th><th>luminance</th>"
       "<th>re-blur</th><th>base clarity</th><th>kept</th></tr></thead>"
       "<tbody>\n";
  for (const ReportFrame &f : r.frames) {
    const PreviewRecord &p = f.record;
    const char *cls = p.index == r.kept_index ? "kept"
                      : p.kept                ? "best"
                      : p.low_light           ? "low"
                                              : "";
    t << "<tr class=\"" << cls << "\"><td>" << p.index << "</td><td>"
      << number(f.truth.blur_length_px, 1) << "</td><td>"
      << f.truth.sharpness_rank << "</td><td class=\"l\">";
    if (p.evaluated) {
      t << p.verdict << " " << escape(verdict_text(p.verdict));
    } else {
      t << (p.handed_over ? "not evaluated" : "dropped");
    }
    t << "</td><td class=\"l regime\">" << (p.low_light ? "low" : "normal")
      << "</td><td>" << number(p.luminance, 1) << "</td><td>"
      << number(p.reblur, 4) << "</td><td>" << number(p.base_clarity, 4)
      << "</td><td>"
      << (p.index == r.kept_index ? "bufmax"
          : p.kept                ? "yes"
                                  : "")
      << "</td></tr>\n";
  }
  t << "</tbody></table>\n";
  return t.str();
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

const char *verdict_text(int32_t verdict) {
  switch (verdict) {
    case 2:
      return "sharper than the base";
    case 3:
      return "not better: keep the best";
    case 4:
      return "a new base: first frame, scene change or flat frame";
    case -1:
      return "unknown mode";
    default:
      return "not judged";
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

std::string write_report(const DemoReport &r, const std::string &dir) {
  Pictures pictures(dir);
  const CaptureView &cap = r.capture;
  const BurstView &burst = r.burst;
  const std::string kept_name =
      r.kept_index < 0 ? std::string("none") : std::to_string(r.kept_index);
  std::ostringstream page;
  page << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
          "<title>qlis demo report</title><style>"
       << kStyle << "</style></head><body>\n";
  page << "<h1>qlis demo: " << r.frames.size() << " hand-held frames, "
       << r.desc.width << "x" << r.desc.height << " RAW10</h1>\n"
       << "<p>Synthesised from <code>" << escape(r.photo) << "</code> (seed "
       << r.seed << "); packing: " << escape(r.packing)
       << ". Every frame went through the library's preview intake and was "
          "judged by its worker; then came a shaken single capture and a "
          "burst.</p>\n";
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

  page << "<h2>The best frame</h2>\n<div class=\"row\"><figure>"
       << pictures.img("kept-frame.png", or_tile(to_rgb(r.kept_preview)),
                       "kept-frame", "the frame kept in bufmax")
       << "<figcaption>Frame " << kept_name
       << ", kept in bufmax when the capture came";
  if (r.kept_index >= 0 &&
      static_cast<size_t>(r.kept_index) < r.frames.size()) {
    const ReportFrame &k = r.frames[static_cast<size_t>(r.kept_index)];
    page << ": blur " << number(k.truth.blur_length_px, 1)
         << " px, sharpness rank " << k.truth.sharpness_rank << " of "
         << r.frames.size();
  }
  page << ".</figcaption></figure><figure>"
       << pictures.img("heatmap.png", or_tile(r.kept_heatmap), "heatmap",
                       "block features of the kept frame")
       << "<figcaption>Its 8x8 block features.</figcaption></figure></div>\n";

  page << "<section id=\"capture-decision\"><h2>The capture</h2>\n<p>A "
          "capture with a "
       << number(cap.truth.blur_length_px, 1)
       << " px shake smear, re-blur score " << number(cap.record.reblur, 4)
       << ": verdict " << cap.record.verdict << ", "
       << (cap.record.replaced
               ? "<strong>replaced</strong> by the frame kept in bufmax"
               : "<strong>kept</strong> as taken")
       << ".</p>\n<div class=\"row\"><figure>"
       << pictures.img("capture-before.png", or_tile(to_rgb(cap.before)),
                       "capture-before", "the capture as taken")
       << "<figcaption>Handed in</figcaption></figure><figure>"
       << pictures.img("capture-after.png", or_tile(to_rgb(cap.after)),
                       "capture-after", "the capture as returned")
       << "<figcaption>Returned to the host</figcaption></figure></div>"
          "</section>\n";

  page << "<section id=\"burst\"><h2>The burst</h2>\n<p>" << burst.before.size()
       << " frames; the library named bestId " << burst.record.best_id
       << " and replaceId " << burst.record.replace_id << "; "
       << (burst.record.replaced ? "the blurriest frame was overwritten by "
                                   "the frame kept in bufmax"
                                 : "no frame was overwritten")
       << ". Blur per frame:";
  for (size_t i = 0; i < burst.truth.size(); ++i)
    page << (i ? ", " : " ") << number(burst.truth[i].blur_length_px, 1)
         << " px";
  page << ".</p>\n<figure>"
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

  page << "<h2>Every frame</h2>\n" << frames_table(r) << "</body></html>\n";
  const std::string path = dir + "/" + kReportPage;
  const std::string text = page.str();
  write_file(path, text.data(), text.size());
  return path;
}

}  // namespace qlis::tool
