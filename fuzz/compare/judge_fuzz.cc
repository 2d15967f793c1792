// The judgements against the base image and the dispatch between the RAW10
// ones, on small frames and a base of random quality, score and features,
// whose raw bytes and histograms are blocks of the session's sizes, each
// followed by guard bytes. The dispatch gives the verdict and the base of
// the judgement its stored luminance selects, unless the regime flips: then
// the base, raw bytes included, is cleared and the reported luminance
// (doubled in low light) stored. Read as YUV, a frame reported sharper has
// a larger unsigned quality than the base it replaced.
#include <cstddef>
#include <cstring>

#include "compare/dispatch.h"
#include "fuzz_target.h"
#include "ql_is/ql_is.h"
#include "support/page_end_buffer.h"

QLIS_FUZZ_TARGET(judge) {
  // No padding: bases compare bytewise.
  struct Base {
    int64_t quality;
    double clarity;
    BlockFeatureSet features;
    uint8_t raw[2560], raw_guard[8];
    DiffHistogram hist[64];
    uint8_t hist_guard[8];
  };
  const auto same = [](const Base &a, const Base &b) { return std::memcmp(&a, &b, sizeof a) == 0; };
  qlis::fuzz::Input in(data, size);
  // Mostly small frames, now and then as large as the session's 256 x 192.
  const int32_t mode = in.range(0, 1), w4 = in.range(1, in.range(1, 64)), height = in.range(4, in.range(4, 192));
  const int32_t width = 4 * w4, stride = 5 * w4 + in.range(0, 15);
  const double stored = in.range(0, 1024) / 4.0;
  qlis::test::PageEndBuffer bytes(static_cast<size_t>(height) * static_cast<size_t>(stride)),
      block(2 * w4 * (height / 4) + 4 * (w4 + 1) * (height / 4 + 1) + 189);
  in.fill(bytes.data(), bytes.size());
  const uint8_t *frame = bytes.data();
  static Base drawn, dispatched, direct, cleared, again;
  // Raw bytes, histograms and guards of 0x5a, unlike the zeros of a reset.
  in.fill(reinterpret_cast<uint8_t *>(&drawn), offsetof(Base, raw));
  std::memset(drawn.raw, 0x5a, sizeof drawn - offsetof(Base, raw));
  const ScratchArena arena{block.data(), static_cast<uint32_t>(block.size()), 0};
  const bool normal = stored > qlis::kLowLightLimit;
  const auto judge = [&](int32_t m, Base &b, double *luminance) {
    return normal ? calc_quality_with_base_image(m, frame, frame, &b.quality, &b.features, b.raw, &b.clarity,
                                                 luminance, height, width, stride, arena)
                  : calc_quality_with_base_image_low_light(m, frame, frame, &b.quality, &b.features, b.hist, b.raw,
                                                           &b.clarity, luminance, height, width, stride, arena);
  };
  const uint32_t count = scene_change_count;

  dispatched = direct = drawn;
  double luminance = stored, reported = 0.0;
  const uint32_t verdict = judge_scene_and_qualitye(mode, frame, frame, &dispatched.quality, &dispatched.features,
                                                    dispatched.hist, dispatched.raw, &dispatched.clarity, &luminance,
                                                    height, width, stride, arena);
  QLIS_FUZZ_CHECK(verdict == static_cast<uint32_t>(judge(mode, direct, &reported)));
  const bool flipped = qlis::lighting_regime_flipped(stored, reported *= normal ? 1.0 : 2.0);
  std::memset(cleared.raw_guard, 0x5a, sizeof cleared.raw_guard);
  std::memset(cleared.hist_guard, 0x5a, sizeof cleared.hist_guard);
  QLIS_FUZZ_CHECK(same(dispatched, flipped ? cleared : direct) && luminance == (flipped ? reported : stored));

  // Judged again, a frame is not sharper than itself and leaves the base it
  // set, or kept, as it is.
  judge(1, direct, nullptr);
  again = direct;
  QLIS_FUZZ_CHECK(judge(1, again, nullptr) != 2 && same(again, direct));
  const uint64_t kept = static_cast<uint64_t>(direct.quality);
  const int32_t yuv_verdict =
      calc_quality_with_base_image_yuv(mode, frame, frame, &direct.quality, &direct.features, height, width, stride);
  QLIS_FUZZ_CHECK(yuv_verdict == 2 ? kept < static_cast<uint64_t>(direct.quality) : yuv_verdict == 3 || yuv_verdict == 4);
  again = direct;
  QLIS_FUZZ_CHECK(calc_quality_with_base_image_yuv(1, frame, frame, &again.quality, &again.features, height, width,
                                                   stride) == 3 && same(again, direct));
  scene_change_count = count;
}
