// The report's pictures that are made of many frames: the contact sheet of
// the preview stream, the chart of scores over time and the burst strips.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "report.h"

namespace qlis::tool {
namespace {

constexpr int32_t kGap = 8;
constexpr uint8_t kSheetGrey = 245;
constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kAxis{60, 60, 60};
constexpr Rgb kGrid{228, 228, 228};
constexpr Rgb kBar{120, 160, 200};
constexpr Rgb kBaseLine{20, 20, 20};
constexpr Rgb kLowLight{255, 236, 180};
constexpr Rgb kLabel{50, 50, 50};
// Thumbnails this wide or wider take labels at twice the cell size.
constexpr int32_t kLargeThumb = 150;

std::string fixed(double value, int decimals) {
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

int32_t label_scale(int32_t width) { return width >= kLargeThumb ? 2 : 1; }

// Chart geometry: value v maps to a row, frame i to the centre of its slot.
struct Plot {
  int32_t left, top, right, bottom;
  double low, high;
  size_t count;

  double slot() const { return static_cast<double>(right - left) / count; }
  int32_t x_of(size_t i) const {
    return left + static_cast<int32_t>(std::lround((i + 0.5) * slot()));
  }
  int32_t x_edge(size_t i) const {
    return left + static_cast<int32_t>(std::lround(i * slot()));
  }
  int32_t y_of(double v) const {
    const double t = (v - low) / (high - low);
    return bottom - static_cast<int32_t>(std::lround(t * (bottom - top)));
  }
};

// A tick spacing of 1, 2 or 5 times a power of ten, about `span` / 5.
double tick_step(double span) {
  const double raw = span / 5.0;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 5.0})
    if (m * power >= raw) return m * power;
  return 10.0 * power;
}

void marker(RgbImage &chart, int32_t x, int32_t y, int32_t half, Rgb fill) {
  fill_rect(chart, x - half - 1, y - half - 1, x + half + 2, y + half + 2,
            kBaseLine);
  fill_rect(chart, x - half, y - half, x + half + 1, y + half + 1, fill);
}

}  // namespace

RgbImage render_contact_sheet(const std::vector<ReportFrame> &frames,
                              int32_t kept_index, int32_t columns) {
  if (frames.empty() || columns < 1) return blank_rgb(1, 1, kWhite);
  const int32_t tw = frames.front().thumb.width;
  const int32_t th = frames.front().thumb.height;
  const int32_t count = static_cast<int32_t>(frames.size());
  const int32_t cols = std::min(columns, count);
  const int32_t rows = (count + cols - 1) / cols;
  const uint8_t g = kSheetGrey;
  RgbImage sheet = blank_rgb(cols * (tw + kGap) + kGap,
                             rows * (th + kGap) + kGap, {g, g, g});
  const int32_t scale = label_scale(tw);
  for (int32_t i = 0; i < count; ++i) {
    const ReportFrame &f = frames[static_cast<size_t>(i)];
    GreyImage thumb = f.thumb;
    stamp_label(thumb, 0, 0, std::to_string(f.record.index), scale);
    const std::string score =
        f.record.evaluated ? fixed(f.record.reblur, 4) : "-";
    stamp_label(thumb, 0, th - stamp_height(scale) - 2 * scale, score, scale);
    const int32_t x = kGap + (i % cols) * (tw + kGap);
    const int32_t y = kGap + (i / cols) * (th + kGap);
    paste(sheet, to_rgb(thumb), x, y);
    if (f.record.index == kept_index) {
      outline_rect(sheet, x - 4, y - 4, x + tw + 4, y + th + 4, 6, kKeptColour);
    } else if (f.record.kept) {
      outline_rect(sheet, x - 3, y - 3, x + tw + 3, y + th + 3, 3, kBestColour);
    }
  }
  return sheet;
}

RgbImage render_score_chart(const std::vector<ReportFrame> &frames,
                            int32_t kept_index, int32_t width, int32_t height) {
  RgbImage chart = blank_rgb(width, height, kWhite);
  if (frames.empty()) return chart;
  // The axis spans the scores themselves, not zero to the largest: frames
  // of one scene differ by a few per cent, which is what there is to see.
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (const ReportFrame &f : frames) {
    if (!f.record.evaluated) continue;
    for (double v : {f.record.reblur, f.record.base_clarity}) {
      if (!std::isfinite(v)) continue;
      low = std::min(low, v);
      high = std::max(high, v);
    }
  }
  if (!(low <= high)) low = high = 0.0;
  const double span = high > low ? high - low : std::max(std::abs(high), 1.0);
  const double step = tick_step(span * 1.2);
  high = std::ceil((high + 0.05 * span) / step) * step;
  low = std::floor((low - 0.15 * span) / step) * step;
  const int decimals =
      std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
  const Plot plot{70, 16, width - 16, height - 36, low, high, frames.size()};

  for (size_t i = 0; i < frames.size(); ++i) {
    if (frames[i].record.evaluated && frames[i].record.low_light)
      fill_rect(chart, plot.x_edge(i), plot.top, plot.x_edge(i + 1),
                plot.bottom, kLowLight);
  }
  for (double v = low; v <= high + step / 2; v += step) {
    const int32_t y = plot.y_of(v);
    fill_rect(chart, plot.left, y, plot.right, y + 1, kGrid);
    const std::string text = fixed(v, decimals);
    stamp_text(chart, plot.left - 8 - stamp_width(text, 1), y - 4, text, 1,
               kLabel);
  }
  const int32_t bar_half = std::max(1, static_cast<int32_t>(plot.slot() * 0.3));
  for (size_t i = 0; i < frames.size(); ++i) {
    const PreviewRecord &r = frames[i].record;
    if (!r.evaluated || !std::isfinite(r.reblur)) continue;
    const int32_t x = plot.x_of(i);
    fill_rect(chart, x - bar_half, plot.y_of(r.reblur), x + bar_half + 1,
              plot.bottom, kBar);
  }
  // The base image's score after each frame, as steps across the slots.
  bool have_last = false;
  int32_t last_y = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const PreviewRecord &r = frames[i].record;
    if (!r.evaluated || !std::isfinite(r.base_clarity)) continue;
    const int32_t y = plot.y_of(r.base_clarity);
    if (have_last)
      draw_line(chart, plot.x_edge(i), last_y, plot.x_edge(i), y, 2, kBaseLine);
    draw_line(chart, plot.x_edge(i), y, plot.x_edge(i + 1), y, 2, kBaseLine);
    have_last = true;
    last_y = y;
  }
  const size_t label_every = std::max<size_t>(1, (frames.size() + 11) / 12);
  for (size_t i = 0; i < frames.size(); ++i) {
    const PreviewRecord &r = frames[i].record;
    const int32_t x = plot.x_of(i);
    if (r.evaluated && r.kept && std::isfinite(r.reblur))
      marker(chart, x, plot.y_of(r.reblur), 4, kBestColour);
    if (i % label_every == 0) {
      const std::string text = std::to_string(r.index);
      fill_rect(chart, x, plot.bottom, x + 1, plot.bottom + 5, kAxis);
      stamp_text(chart, x - stamp_width(text, 1) / 2, plot.bottom + 9, text, 1,
                 kLabel);
    }
  }
  for (size_t i = 0; i < frames.size(); ++i) {
    const PreviewRecord &r = frames[i].record;
    if (r.index == kept_index && r.evaluated && std::isfinite(r.reblur))
      marker(chart, plot.x_of(i), plot.y_of(r.reblur), 7, kKeptColour);
  }
  fill_rect(chart, plot.left - 1, plot.top, plot.left + 1, plot.bottom + 1,
            kAxis);
  fill_rect(chart, plot.left - 1, plot.bottom, plot.right, plot.bottom + 2,
            kAxis);
  return chart;
}

RgbImage render_rank_chart(const std::vector<ReportFrame> &frames,
                           int32_t kept_index, int32_t side) {
  RgbImage chart = blank_rgb(side, side, kWhite);
  int32_t count = 0;
  for (const ReportFrame &f : frames) count = std::max({count, f.reblur_rank, f.peer_rank});
  const int32_t left = 40, top = 28, right = side - 16, bottom = side - 16;
  // Rank k sits at the centre of the k-th of `count` slots, 1 at the top left.
  const auto at = [count](int32_t k, int32_t from, int32_t to) {
    return from + static_cast<int32_t>(std::lround((k - 0.5) * (to - from) / std::max(count, 1)));
  };
  draw_line(chart, left, top, right, bottom, 1, kGrid);
  fill_rect(chart, left - 1, top, left + 1, bottom + 1, kAxis);
  fill_rect(chart, left - 1, top - 2, right, top, kAxis);
  if (count == 0) return chart;
  for (int32_t k : {1, count}) {
    const std::string text = std::to_string(k);
    stamp_text(chart, at(k, left, right) - stamp_width(text, 1) / 2, top - 14, text, 1, kLabel);
    stamp_text(chart, left - 8 - stamp_width(text, 1), at(k, top, bottom) - 4, text, 1, kLabel);
  }
  // Numbers beside the dots while they still fit.
  const bool numbered = count <= 40;
  for (const ReportFrame &f : frames) {
    if (f.reblur_rank <= 0 || f.peer_rank <= 0) continue;
    const int32_t x = at(f.reblur_rank, left, right), y = at(f.peer_rank, top, bottom);
    const bool kept = f.record.index == kept_index;
    marker(chart, x, y, kept ? 6 : 3, kept ? kKeptColour : f.record.kept ? kBestColour : kBar);
    if (numbered) stamp_text(chart, x + 9, y - 4, std::to_string(f.record.index), 1, kLabel);
  }
  return chart;
}

RgbImage render_strip(const std::vector<GreyImage> &images,
                      const std::vector<std::string> &captions,
                      int32_t highlight) {
  if (images.empty()) return blank_rgb(1, 1, kWhite);
  const int32_t tw = images.front().width, th = images.front().height;
  const int32_t count = static_cast<int32_t>(images.size());
  const uint8_t g = kSheetGrey;
  RgbImage strip =
      blank_rgb(count * (tw + kGap) + kGap, th + 2 * kGap, {g, g, g});
  const int32_t scale = label_scale(tw);
  for (int32_t i = 0; i < count; ++i) {
    GreyImage image = images[static_cast<size_t>(i)];
    if (static_cast<size_t>(i) < captions.size())
      stamp_label(image, 0, 0, captions[static_cast<size_t>(i)], scale);
    const int32_t x = kGap + i * (tw + kGap);
    paste(strip, to_rgb(image), x, kGap);
    if (i == highlight)
      outline_rect(strip, x - 4, kGap - 4, x + tw + 4, kGap + th + 4, 6,
                   kKeptColour);
  }
  return strip;
}

}  // namespace qlis::tool
