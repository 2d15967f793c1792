// Evaluation of the frame in bufproc against the base image: optional dump,
// the judgement for its pixel format, and the rotation that keeps the best
// frame in bufmax.
#include "api/session_state.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/property.h"
#include "ql_is/ql_is.h"
#include "worker/worker.h"

namespace qlis {
namespace {

constexpr int32_t kFormatYuvNv = 10;
constexpr int32_t kFormatYuvPadded = 13;
constexpr int32_t kFormatRaw10 = 15;
constexpr int32_t kDumpLimit = 2000;
constexpr int32_t kSharper = 2;
constexpr int32_t kReplacedBase = 4;

void dump_evaluated_frame(const PrevParam &job) {
  if (dump_count == 0) make_directory("/sdcard/DCIM/qlfd/", 0777);
  if (dump_count >= kDumpLimit) return;
  ++dump_count;
  switch (job.format) {
    case kFormatRaw10:
    case kFormatYuvPadded:
      save_to_file(bufproc.image, job.height, job.width, job.stride, job.format,
                   dump_count);
      break;
    case kFormatYuvNv:
      // This format is dumped unpadded at its stride: the stride stands in
      // for the width.
      save_to_file(bufproc.image, job.height, job.stride, job.stride, job.format,
                   dump_count);
      break;
    default:
      log_line(kTagError, "qlas PrevTh format not support %d", job.format);
      break;
  }
}

int32_t judge_frame(const PrevParam &job) {
  int64_t quality = load_base_quality_bits();
  int32_t result;
  switch (job.format) {
    case kFormatRaw10:
      result = static_cast<int32_t>(judge_scene_and_qualitye(
          1, bufproc.image, bufmax.image, &quality, &base_feature, base_diff_hist,
          base_raw_fea, &base_clarity, &last_luminance, job.height, job.width,
          job.stride, alg_buf));
      break;
    case kFormatYuvNv:
    case kFormatYuvPadded:
      result = calc_quality_with_base_image_yuv(1, bufproc.image, bufmax.image,
                                                &quality, &base_feature,
                                                job.height, job.width, job.stride);
      break;
    default:
      log_line(kTagError, "qlas PrevTh format not support %d\n", job.format);
      return 0;
  }
  store_base_quality_bits(quality);
  return result;
}

}  // namespace
}  // namespace qlis

extern "C" int32_t PreviewThread(PrevParam *job) {
  using namespace qlis;
  const int dump = read_property_int(kPropDumpFrames);
  if (dump == 1) {
    dump_evaluated_frame(*job);
  } else if (dump == 0) {
    dump_count = 0;
  }
  const int32_t result = judge_frame(*job);
  if (result == kSharper || result == kReplacedBase) swap_buf(&bufproc, &bufmax, 2);
  job->result = result;
  return 0;
}
