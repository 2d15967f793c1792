// Block figures of a RAW10 frame from the squared-gradient metric: the
// threaded centre-weighted figure over all 64 blocks of the 8 x 8 grid, its
// per-thread worker, and the single-threaded figure over the 16 central
// blocks that prints its block values.
#include <cstdio>
#include <type_traits>

#include "feature/block_grid.h"
#include "metrics/raw10_quality.h"
#include "platform/log.h"
#include "ql_is/ql_is.h"

namespace qlis {
namespace {

constexpr uint32_t kBlockDistance = 1;
constexpr int32_t kWeightDivisor = 400;
constexpr int32_t kRectFields = 4;  // top, bottom, left, right
constexpr int32_t kThreads = 4;
constexpr int32_t kRowsPerThread = kGrid / kThreads;

// Block rows and columns 2..5: the 16 blocks the single-threaded figure
// measures.
constexpr int32_t kCentreFirst = 2;
constexpr int32_t kCentreEnd = 6;
constexpr int32_t kCentreBlocks =
    (kCentreEnd - kCentreFirst) * (kCentreEnd - kCentreFirst);

// Block (i, j) of a grid of block_rows x block_cols pixels at rects[4 (8 i +
// j)]. The products stay below 2^32 for any 32-bit frame size, and are
// taken as signed 32-bit values like every other rectangle bound.
void build_rects(int32_t *rects, uint32_t block_rows, uint32_t block_cols) {
  for (int32_t i = 0; i < kGrid; ++i) {
    for (int32_t j = 0; j < kGrid; ++j) {
      int32_t *r = rects + kRectFields * (kGrid * i + j);
      const uint32_t row = static_cast<uint32_t>(i);
      const uint32_t col = static_cast<uint32_t>(j);
      r[0] = static_cast<int32_t>(row * block_rows);
      r[1] = static_cast<int32_t>((row + 1) * block_rows);
      r[2] = static_cast<int32_t>(col * block_cols);
      r[3] = static_cast<int32_t>((col + 1) * block_cols);
    }
  }
}

int32_t measure_block(const uint8_t *frame, const int32_t *rects, int32_t k,
                      int32_t height, int32_t width) {
  const int32_t *r = rects + kRectFields * k;
  return raw10_squared_gradient({frame, r[0], r[1], r[2], r[3], height, width},
                                kBlockDistance);
}

// (wr * wc * q) / 400, the product taken modulo 2^32 as a signed value:
// a wrapped metric is weighted like any other, and an empty block's -1
// weighs 0 after the division.
int32_t weighted(int32_t q, int32_t i, int32_t j) {
  const uint32_t product = static_cast<uint32_t>(tent_weight(i)) *
                           static_cast<uint32_t>(tent_weight(j)) *
                           static_cast<uint32_t>(q);
  return static_cast<int32_t>(product) / kWeightDivisor;
}

// The log prints a thread handle with %d. pthread_t is an integer (unsigned
// long with glibc, long on Android), 64 bits wide on LP64; the integer
// conversions through uint32_t are modular, so every handle gives its low
// 32 bits, all of it on a 32-bit build, without an out-of-range conversion.
int32_t handle_for_log(pthread_t handle) {
  static_assert(std::is_integral_v<pthread_t>);
  return static_cast<int32_t>(static_cast<uint32_t>(handle));
}

}  // namespace
}  // namespace qlis

extern "C" {

QL_IS_API int32_t calc_quality_with_sub_inner(
    const uint8_t *frame, int32_t first_row, int32_t end_row,
    const int32_t *rects, int64_t *results, const uint8_t *mask,
    int32_t /*grid_rows*/, int32_t /*grid_cols*/, int32_t height,
    int32_t width) {
  // The grid is always 8 x 8; the record's grid fields are not consulted.
  for (int32_t i = first_row; i < end_row; ++i) {
    for (int32_t j = 0; j < qlis::kGrid; ++j) {
      const int32_t k = qlis::kGrid * i + j;
      if (mask[k] != 1) continue;
      const int32_t q = qlis::measure_block(frame, rects, k, height, width);
      results[k] = qlis::weighted(q, i, j);
    }
  }
  return 1;
}

QL_IS_API void *quality_pthread(void *record) {
  const QualityThreadRecord *r = static_cast<QualityThreadRecord *>(record);
  calc_quality_with_sub_inner(r->frame, r->first_row, r->end_row, r->rects,
                              r->results, r->mask, r->grid_rows, r->grid_cols,
                              r->height, r->width);
  return nullptr;
}

QL_IS_API uint64_t calc_quality_with_sub(const uint8_t *frame, uint32_t height,
                                         uint32_t width) {
  using qlis::kBlocks;
  using qlis::kGrid;
  int32_t rects[qlis::kRectFields * kBlocks];
  qlis::build_rects(rects, height >> 3, width >> 3);
  uint8_t mask[kBlocks];
  for (uint8_t &m : mask) m = 1;
  // Cleared so that the block rows of a thread that failed to start count
  // as 0.
  int64_t results[kBlocks] = {};

  qlis::log_line(qlis::kTagAlgo, "Vrel_pthread_true");
  const double start = now_ms();

  // Frame sizes are passed on as the signed values the metric takes.
  const int32_t signed_height = static_cast<int32_t>(height);
  const int32_t signed_width = static_cast<int32_t>(width);
  QualityThreadRecord records[qlis::kThreads] = {};
  bool started[qlis::kThreads] = {};
  for (int32_t k = 0; k < qlis::kThreads; ++k) {
    records[k] = {{},
                  frame,
                  qlis::kRowsPerThread * k,
                  qlis::kRowsPerThread * (k + 1),
                  rects,
                  results,
                  mask,
                  kGrid,
                  kGrid,
                  signed_height,
                  signed_width};
    started[k] = pthread_create(&records[k].thread, nullptr, quality_pthread,
                                &records[k]) == 0;
    if (started[k]) {
      qlis::log_line(qlis::kTagAlgo, "QLFD_quality_pthread, creat %d ok", k);
    } else {
      qlis::log_line(qlis::kTagError, "QLFD_quality_pthread, create %d error",
                     k);
    }
  }
  for (int32_t k = 0; k < qlis::kThreads; ++k) {
    // Joining a handle that no thread was created for is undefined; a thread
    // that never started is reported as a failed join instead.
    const bool joined =
        started[k] && pthread_join(records[k].thread, nullptr) == 0;
    const int32_t id = qlis::handle_for_log(records[k].thread);
    if (joined) {
      qlis::log_line(qlis::kTagAlgo,
                     "QLFD, multi:thread[%d] qbox mean func join ok! id=%d", k,
                     id);
    } else {
      qlis::log_line(qlis::kTagError,
                     "QLFD, multi:thread[%d] qbox mean func join fail! id=%d",
                     k, id);
    }
  }

  // Sum and sum of squares of the block values wrap at 64 bits.
  uint64_t sum = 0;
  uint64_t sum_sq = 0;
  for (const int64_t v : results) {
    const uint64_t u = static_cast<uint64_t>(v);
    sum += u;
    sum_sq += u * u;
  }
  qlis::log_line(qlis::kTagAlgo, "Vrel_quality_pthread_time:%f result_%lld",
                 now_ms() - start, static_cast<long long>(sum));
  // Mean and mean square over the 64 blocks (shifts by 6 on unsigned
  // values), then (spread / 10000) * sum.
  const uint64_t figure =
      qlis::spread_times_sum(sum, sum_sq, static_cast<uint64_t>(kBlocks));
  qlis::log_line(qlis::kTagAlgo, "Vrel_valid_num:%d", kBlocks);
  return figure;
}

QL_IS_API uint64_t calc_quality_with_sub_o2(const uint8_t *frame,
                                            int64_t *results, int32_t height,
                                            int32_t width) {
  using qlis::kGrid;
  int32_t rects[qlis::kRectFields * qlis::kBlocks];
  qlis::build_rects(rects, static_cast<uint32_t>(height >> 3),
                    static_cast<uint32_t>(width >> 3));

  // Unweighted values; an empty block's -1 is stored and counted as it is.
  uint64_t sum = 0;
  uint64_t sum_sq = 0;
  int32_t n = 0;
  for (int32_t i = qlis::kCentreFirst; i < qlis::kCentreEnd; ++i) {
    for (int32_t j = qlis::kCentreFirst; j < qlis::kCentreEnd; ++j) {
      const int32_t q =
          qlis::measure_block(frame, rects, kGrid * i + j, height, width);
      results[n++] = q;
      const uint64_t u = static_cast<uint64_t>(static_cast<int64_t>(q));
      sum += u;
      sum_sq += u * u;
      std::printf("%lld\n", static_cast<long long>(q));
    }
  }

  // Each entry but the last becomes 1 where the next block measured lower
  // (as unsigned 64-bit values), else 0. Ascending order compares values as
  // measured, since results[k + 1] is rewritten only after results[k].
  for (int32_t k = 0; k + 1 < qlis::kCentreBlocks; ++k) {
    const uint64_t here = static_cast<uint64_t>(results[k]);
    const uint64_t next = static_cast<uint64_t>(results[k + 1]);
    results[k] = next < here ? 1 : 0;
  }

  // Mean over the 16 blocks by shift, and no division of the spread.
  constexpr int kCentreShift = 4;
  const uint64_t mean = sum >> kCentreShift;
  const uint64_t spread = (sum_sq >> kCentreShift) - mean * mean;
  const uint64_t figure = spread * sum;
  std::printf("sum_quality:%lld\n", static_cast<long long>(figure));
  return figure;
}

}  // extern "C"
