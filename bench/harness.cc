#include "harness.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace qlis::bench {
namespace {

struct Comparison {
  std::string kernel;
  std::string floor;
  double target;
};

std::vector<Comparison> &comparisons() {
  static std::vector<Comparison> list;
  return list;
}

// A smooth gradient with noise and sharp edges: enough texture that every
// block of every kernel does real work, the same bytes on every run.
std::vector<uint8_t> make_frame(size_t rows, size_t stride, uint32_t seed) {
  std::vector<uint8_t> frame(rows * stride);
  std::mt19937 engine(seed);
  std::uniform_int_distribution<int> noise(-24, 24);
  for (size_t y = 0; y < rows; ++y) {
    for (size_t x = 0; x < stride; ++x) {
      int v = static_cast<int>((x / 7 + y / 5) % 200) + 28 + noise(engine);
      if (((x / 97) + (y / 61)) % 5 == 0) v = 255 - v;
      frame[y * stride + x] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
  }
  return frame;
}

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        // Repetitions of one benchmark are averaged.
        Mean &m = times_[run.benchmark_name()];
        m.sum += run.GetAdjustedRealTime();
        m.count += 1;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_ratios() const {
    bool header = false;
    for (const Comparison &c : comparisons()) {
      auto k = times_.find(c.kernel);
      auto f = times_.find(c.floor);
      if (k == times_.end() || f == times_.end() || f->second.value() <= 0) continue;
      if (!header) {
        std::printf("\n%-44s %-28s %8s %8s\n", "kernel", "floor", "ratio", "target");
        header = true;
      }
      const double ratio = k->second.value() / f->second.value();
      if (c.target > 0) {
        std::printf("%-44s %-28s %8.2f %8.2f %s\n", c.kernel.c_str(), c.floor.c_str(),
                    ratio, c.target, ratio <= c.target ? "met" : "MISSED");
      } else {
        std::printf("%-44s %-28s %8.2f %8s\n", c.kernel.c_str(), c.floor.c_str(), ratio, "-");
      }
    }
  }

 private:
  struct Mean {
    double sum = 0;
    int count = 0;
    double value() const { return count > 0 ? sum / count : 0; }
  };
  std::map<std::string, Mean> times_;
};

}  // namespace

const uint8_t *raw10_frame() {
  static const std::vector<uint8_t> frame =
      make_frame(static_cast<size_t>(kRawHeight), static_cast<size_t>(kRawStride), 1);
  return frame.data();
}

const uint8_t *yuv_frame() {
  static const std::vector<uint8_t> frame = make_frame(
      static_cast<size_t>(kYuvHeight) * 3 / 2, static_cast<size_t>(kYuvStride), 2);
  return frame.data();
}

void evict_caches() {
  static std::vector<uint8_t> sweep = [] {
    long l3 = sysconf(_SC_LEVEL3_CACHE_SIZE);
    const size_t bytes = std::max<size_t>(64u << 20, l3 > 0 ? 2 * static_cast<size_t>(l3) : 0);
    return std::vector<uint8_t>(bytes);
  }();
  static uint8_t round = 0;
  std::memset(sweep.data(), ++round, sweep.size());
  benchmark::DoNotOptimize(sweep.data());
  benchmark::ClobberMemory();
}

uint64_t touch_rows(const uint8_t *data, int32_t first_row, int32_t row_end,
                    int32_t row_step, size_t stride, size_t row_bytes) {
  constexpr size_t kLine = 64;
  uint64_t sum = 0;
  for (int32_t y = first_row; y < row_end; y += row_step) {
    const uint8_t *row = data + static_cast<size_t>(y) * stride;
    // Every line that holds a byte of [row, row + row_bytes).
    const uintptr_t first = reinterpret_cast<uintptr_t>(row) / kLine * kLine;
    const uintptr_t end = reinterpret_cast<uintptr_t>(row + row_bytes);
    for (uintptr_t line = first; line < end; line += kLine) {
      const uint8_t *p = line < reinterpret_cast<uintptr_t>(row)
                             ? row
                             : reinterpret_cast<const uint8_t *>(line);
      sum += *p;
    }
  }
  return sum;
}

void compare(const char *kernel, const char *floor, double target) {
  comparisons().push_back({kernel, floor, target});
}

}  // namespace qlis::bench

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  qlis::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_ratios();
  benchmark::Shutdown();
  return 0;
}
