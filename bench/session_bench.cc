// What the host pays per call on the live path: one accepted preview frame
// (the intake copy and the evaluation the worker runs), a single capture
// and a burst of six frames, each beside the memory floor of its copies
// and of the rows its evaluation must read.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using namespace qlis::bench;

constexpr uint32_t kSideBytes = 4096;
constexpr size_t kRawBytes = static_cast<size_t>(kRawHeight) * kRawStride;
constexpr size_t kRawRowBytes = 5 * (kRawWidth / 4);

// A session for the whole run; the worker waits idle while the benchmarks
// do its work on their own thread, under its mutex, as a capture does.
void ensure_session() {
  static const bool ready = ql_is_init() == 0;
  if (!ready) std::abort();
}

// The same frame at a quarter of its brightness: the low-light regime.
const std::vector<uint8_t> &dim_raw10_frame() {
  static const std::vector<uint8_t> frame = [] {
    std::vector<uint8_t> f(raw10_frame(), raw10_frame() + kRawBytes);
    for (uint8_t &b : f) b = static_cast<uint8_t>(b / 8);
    return f;
  }();
  return frame;
}

struct Job {
  const uint8_t *image;
  uint32_t image_size;
  int32_t format;
  int32_t height;
  int32_t width;
  int32_t stride;
};

// The preview intake's copy and rotation, then the worker's evaluation.
void accept_and_evaluate(const Job &job, const uint8_t *side) {
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  zs_memcpy(buftemp.image, job.image, job.image_size);
  zs_memcpy(buftemp.side, side, kSideBytes);
  swap_buf(&bufproc, &buftemp, 2);
  prevParam.format = job.format;
  prevParam.height = job.height;
  prevParam.width = job.width;
  prevParam.stride = job.stride;
  PreviewThread(&prevParam);
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
}

void run_preview(benchmark::State &state, Cache cache, const Job &job) {
  ensure_session();
  static const std::vector<uint8_t> side(kSideBytes, 3);
  accept_and_evaluate(job, side.data());  // sets the base; later frames are judged
  iterate(state, cache, [&] { accept_and_evaluate(job, side.data()); });
}

Job raw10_job(const uint8_t *image) {
  return {image, static_cast<uint32_t>(kRawBytes), 15, kRawHeight, kRawWidth, kRawStride};
}

void BM_PreviewRaw10Normal(benchmark::State &state, Cache cache) {
  run_preview(state, cache, raw10_job(raw10_frame()));
}

void BM_PreviewRaw10LowLight(benchmark::State &state, Cache cache) {
  run_preview(state, cache, raw10_job(dim_raw10_frame().data()));
}

void BM_PreviewYuv(benchmark::State &state, Cache cache) {
  const Job job = {yuv_frame(), static_cast<uint32_t>(kYuvHeight * kYuvStride * 3 / 2), 13,
                   kYuvHeight, kYuvWidth, kYuvStride};
  run_preview(state, cache, job);
}

// Floor of an accepted RAW10 frame: the copy, then one read of the lines
// the evaluation reads from the copy (even rows for the block features,
// rows 3, 7, ... for the re-blur comparison).
void BM_PreviewRaw10Floor(benchmark::State &state, Cache cache) {
  ensure_session();
  const uint8_t *frame = raw10_frame();  // made outside the timed region
  iterate(state, cache, [&] {
    std::memcpy(buftemp.image, frame, kRawBytes);
    uint64_t sum = touch_rows(buftemp.image, 0, kRawHeight, 2, kRawStride, kRawRowBytes);
    sum += touch_rows(buftemp.image, 3, kRawHeight, 4, kRawStride, kRawRowBytes);
    benchmark::DoNotOptimize(sum);
  });
}

void BM_PreviewYuvFloor(benchmark::State &state, Cache cache) {
  ensure_session();
  const size_t bytes = static_cast<size_t>(kYuvHeight) * kYuvStride * 3 / 2;
  const uint8_t *frame = yuv_frame();
  iterate(state, cache, [&] {
    std::memcpy(buftemp.image, frame, bytes);
    benchmark::DoNotOptimize(touch_rows(buftemp.image, 0, kYuvHeight, 4, kYuvStride, kYuvWidth) +
                             touch_rows(buftemp.image, 1, kYuvHeight, 4, kYuvStride, kYuvWidth));
  });
}

FrameParam capture_param(uint8_t *image, uint8_t *side) {
  FrameParam p = {};
  p.format = 15;
  p.width = kRawWidth;
  p.height = kRawHeight;
  p.stride = kRawStride;
  p.image.ptr = image;
  p.side.ptr = side;
  p.image_size = static_cast<uint32_t>(kRawBytes);
  p.side_size = kSideBytes;
  p.mode = 1;
  return p;
}

void BM_SingleCapture(benchmark::State &state, Cache cache) {
  ensure_session();
  std::vector<uint8_t> image(raw10_frame(), raw10_frame() + kRawBytes);
  std::vector<uint8_t> side(kSideBytes, 5);
  FrameParam param = capture_param(image.data(), side.data());
  iterate(state, cache, [&] { benchmark::DoNotOptimize(ql_is_process_takepicture(&param)); });
}

// Burst of six full frames; the base is cleared after every burst, so each
// one is measured like the first after a capture.
void BM_Burst6(benchmark::State &state, Cache cache) {
  ensure_session();
  std::vector<std::vector<uint8_t>> images(6, std::vector<uint8_t>(raw10_frame(), raw10_frame() + kRawBytes));
  std::vector<std::vector<uint8_t>> sides(6, std::vector<uint8_t>(kSideBytes, 9));
  std::vector<uint8_t> record(QL_IS_BURST_RECORD_SIZE, 0);
  for (int i = 0; i < 6; ++i) {
    ql_is_record_put_i32(record.data(), QL_IS_BURST_WIDTH(i), kRawWidth);
    ql_is_record_put_i32(record.data(), QL_IS_BURST_HEIGHT(i), kRawHeight);
    ql_is_record_put_i32(record.data(), QL_IS_BURST_STRIDE(i), kRawStride);
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(i), images[i].data());
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_SIDE(i), sides[i].data());
  }
  ql_is_record_put_i32(record.data(), QL_IS_BURST_IMAGE_SIZE, static_cast<int32_t>(kRawBytes));
  ql_is_record_put_i32(record.data(), QL_IS_BURST_SIDE_SIZE, kSideBytes);
  ql_is_record_put_i32(record.data(), QL_IS_BURST_COUNT, 6);
  ql_is_record_put_i32(record.data(), QL_IS_BURST_MODE, 1);
  iterate(state, cache,
          [&] { benchmark::DoNotOptimize(ql_is_process_bat_takepicture(record.data())); });
}

// Floor of a burst: every fourth row of each frame for the block
// statistics, rows 3, 7, ... for the re-blur comparison.
void BM_Burst6Floor(benchmark::State &state, Cache cache) {
  std::vector<std::vector<uint8_t>> images(6, std::vector<uint8_t>(raw10_frame(), raw10_frame() + kRawBytes));
  iterate(state, cache, [&] {
    uint64_t sum = 0;
    for (const auto &image : images) {
      sum += touch_rows(image.data(), 0, kRawHeight, 4, kRawStride, kRawRowBytes);
      sum += touch_rows(image.data(), 3, kRawHeight, 4, kRawStride, kRawRowBytes);
    }
    benchmark::DoNotOptimize(sum);
  });
}


QLIS_BOTH(BM_PreviewRaw10Floor);
QLIS_BOTH(BM_PreviewRaw10Normal);
QLIS_BOTH(BM_PreviewRaw10LowLight);
QLIS_BOTH(BM_PreviewYuvFloor);
QLIS_BOTH(BM_PreviewYuv);
QLIS_BOTH(BM_SingleCapture);
QLIS_BOTH(BM_Burst6Floor);
QLIS_BOTH(BM_Burst6);

[[maybe_unused]] const bool kRegistered =
    (compare("BM_PreviewRaw10Normal/cold", "BM_PreviewRaw10Floor/cold", 0),
     compare("BM_PreviewRaw10LowLight/cold", "BM_PreviewRaw10Floor/cold", 0),
     compare("BM_PreviewYuv/cold", "BM_PreviewYuvFloor/cold", 0),
     compare("BM_SingleCapture/cold", "BM_PreviewRaw10Floor/cold", 0),
     compare("BM_Burst6/cold", "BM_Burst6Floor/cold", 0),
     compare("BM_PreviewRaw10Normal/warm", "BM_PreviewRaw10Floor/warm", 0),
     compare("BM_PreviewRaw10LowLight/warm", "BM_PreviewRaw10Floor/warm", 0),
     compare("BM_PreviewYuv/warm", "BM_PreviewYuvFloor/warm", 0),
     compare("BM_Burst6/warm", "BM_Burst6Floor/warm", 0), true);

}  // namespace
