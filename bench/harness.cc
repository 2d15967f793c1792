#include "harness.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace qlis::bench {
namespace {

// The default run. A cold iteration costs its eviction (about 30 ms on the
// machine the suite was tuned on) besides the kernel, so cold cases run a
// fixed count; warm ones run until they have this much timed work. Every
// case is repeated and the repetitions of all cases are interleaved at
// random, so that a kernel and its floor see the same spells of load.
constexpr int kColdIterations = 6;
constexpr double kWarmMinSeconds = 0.02;
constexpr int kRepetitions = 6;

constexpr const char *kLongFlag = "--qlis_long";
constexpr const char *kLongEnv = "QLIS_BENCH_LONG";

struct Comparison {
  std::string kernel;
  std::string floor;
  double target;
};

std::vector<Comparison> &comparisons() {
  static std::vector<Comparison> list;
  return list;
}

struct Case {
  benchmark::internal::Benchmark *benchmark;
  Cache cache;
};

std::vector<Case> &cases() {
  static std::vector<Case> list;
  return list;
}

// The case whose function is running, and the iteration times of every
// call of each case's function, in order: the library's search for an
// iteration count makes calls that it does not report.
const char *running_case = nullptr;

std::map<std::string, std::vector<std::vector<double>>> &calls() {
  static std::map<std::string, std::vector<std::vector<double>>> by_case;
  return by_case;
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
      frame[y * stride + x] = static_cast<uint8_t>(std::clamp(v, 0, 255));
    }
  }
  return frame;
}

// The larger of the last-level cache sizes that sysconf and the kernel's
// listing for CPU 0 report. Neither can be trusted alone on a virtual
// machine: on the one the suite was tuned on sysconf says 320 MB (a whole
// socket) and the listing 32 MB, while a read pass over a frame kept
// getting slower as the sweep before it grew to about 100 MB. A 64 MB
// sweep left part of the frame cached (a floor of about 0.3 ms instead of
// 0.5 ms), which flatters every cold ratio; the larger figure errs on the
// honest side.
size_t last_level_cache_bytes() {
  const long reported = sysconf(_SC_LEVEL3_CACHE_SIZE);
  size_t largest = reported > 0 ? static_cast<size_t>(reported) : 0;
  for (int index = 0; index < 8; ++index) {
    std::ifstream in("/sys/devices/system/cpu/cpu0/cache/index" +
                     std::to_string(index) + "/size");
    size_t value = 0;
    char unit = 0;
    if (!(in >> value)) continue;
    in >> unit;
    const size_t scale = unit == 'K' ? 1024 : unit == 'M' ? 1024 * 1024 : 1;
    largest = std::max(largest, value * scale);
  }
  return largest;
}

// The time that a quarter of the iterations beat. Other processes only
// ever add time: on a loaded two-core machine a few milliseconds land on
// up to half of the iterations of a 3 ms kernel, which made medians jump
// between runs, while the lower quartile stays with the undisturbed ones.
double lower_quartile(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[(v.size() - 1) / 4];
}

std::vector<double> joined(const std::vector<std::vector<double>> &runs) {
  std::vector<double> all;
  for (const auto &run : runs) all.insert(all.end(), run.begin(), run.end());
  return all;
}

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    std::vector<Run> shown;
    for (const Run &run : runs) {
      if (run.run_type == Run::RT_Iteration) {
        if (!run.error_occurred) take_reported_call(run);
        // A repeated case is shown by its median alone.
        if (run.repetitions <= 1) shown.push_back(run);
      } else if (run.aggregate_name == "median") {
        shown.push_back(run);
      }
    }
    if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
  }

  void print_ratios() const {
    bool header = false;
    for (const Comparison &c : comparisons()) {
      auto k = reported_.find(c.kernel);
      auto f = reported_.find(c.floor);
      if (k == reported_.end() || f == reported_.end()) continue;
      const double kernel = lower_quartile(joined(k->second));
      const double floor = lower_quartile(joined(f->second));
      if (floor <= 0) continue;
      if (!header) {
        std::printf(
            "\nLower quartiles of single iterations, ms; range: the ratio's "
            "over the repetitions.\n%-32s %7s %-28s %7s %6s %11s %6s\n",
            "kernel", "ms", "floor", "ms", "ratio", "range", "target");
        header = true;
      }
      const double ratio = kernel / floor;
      // Repetition i of the kernel against repetition i of its floor.
      std::vector<double> single;
      for (size_t i = 0; i < std::min(k->second.size(), f->second.size());
           ++i) {
        single.push_back(lower_quartile(k->second[i]) /
                         lower_quartile(f->second[i]));
      }
      char range[32] = "-";
      if (single.size() > 1) {
        const auto [lo, hi] = std::minmax_element(single.begin(), single.end());
        std::snprintf(range, sizeof range, "%.2f-%.2f", *lo, *hi);
      }
      std::printf("%-32s %7.3f %-28s %7.3f %6.2f %11s", c.kernel.c_str(),
                  kernel * 1e3, c.floor.c_str(), floor * 1e3, ratio, range);
      if (c.target > 0) {
        std::printf(" %6.2f %s\n", c.target,
                    ratio <= c.target ? "met" : "MISSED");
      } else {
        std::printf(" %6s\n", "-");
      }
    }
  }

 private:
  // The call that produced a reported run: the next one, after those
  // already taken, with as many iterations.
  void take_reported_call(const Run &run) {
    const std::string &name = run.run_name.function_name;
    const auto &made = calls()[name];
    size_t &next = next_call_[name];
    while (next < made.size() && static_cast<benchmark::IterationCount>(
                                     made[next].size()) != run.iterations) {
      ++next;
    }
    if (next < made.size()) reported_[name].push_back(made[next++]);
  }

  std::map<std::string, size_t> next_call_;
  std::map<std::string, std::vector<std::vector<double>>> reported_;
};

void print_help() {
  std::printf(
      "qlis_bench: each kernel beside its memory floor, ratios at the end.\n"
      "By default every case runs %d times (cold: %d iterations each; warm:\n"
      "%.2f s of timed work), the repetitions of all cases interleaved at\n"
      "random; ratios between the lower quartiles of single iterations.\n"
      "  %s    let the library choose the iteration counts instead\n"
      "                 (half a second of timed work per case, or\n"
      "                 --benchmark_min_time), one run per case unless\n"
      "                 --benchmark_repetitions: about 25 minutes on two\n"
      "                 cores. %s=1 in the environment does the same.\n"
      "Options of the benchmark library:\n",
      kRepetitions, kColdIterations, kWarmMinSeconds, kLongFlag, kLongEnv);
  benchmark::PrintDefaultHelp();
}

bool long_run_requested(int *argc, char **argv) {
  bool requested = false;
  int kept = 1;
  for (int i = 1; i < *argc; ++i) {
    if (std::strcmp(argv[i], kLongFlag) == 0) {
      requested = true;
    } else {
      argv[kept++] = argv[i];
    }
  }
  *argc = kept;
  const char *env = std::getenv(kLongEnv);
  return requested ||
         (env != nullptr && env[0] != '\0' && std::strcmp(env, "0") != 0);
}

bool has_flag(int argc, char **argv, const char *prefix) {
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], prefix, std::strlen(prefix)) == 0) return true;
  }
  return false;
}

}  // namespace

const uint8_t *raw10_frame() {
  static const std::vector<uint8_t> frame = make_frame(
      static_cast<size_t>(kRawHeight), static_cast<size_t>(kRawStride), 1);
  return frame.data();
}

const uint8_t *yuv_frame() {
  static const std::vector<uint8_t> frame =
      make_frame(static_cast<size_t>(kYuvHeight) * 3 / 2,
                 static_cast<size_t>(kYuvStride), 2);
  return frame.data();
}

void evict_caches() {
  static std::vector<uint8_t> sweep = std::vector<uint8_t>(
      std::max<size_t>(64u << 20, 2 * last_level_cache_bytes()));
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

void record_run(const std::vector<double> &seconds) {
  if (running_case != nullptr) calls()[running_case].push_back(seconds);
}

bool add_case(const char *name, CaseFunction fn, Cache cache) {
  benchmark::internal::Benchmark *b = benchmark::RegisterBenchmark(
      name, [fn, cache, name](benchmark::State &state) {
        running_case = name;
        fn(state, cache);
        running_case = nullptr;
      });
  b->Unit(benchmark::kMillisecond)->UseManualTime();
  cases().push_back({b, cache});
  return true;
}

}  // namespace qlis::bench

int main(int argc, char **argv) {
  using namespace qlis::bench;
  const bool long_run = long_run_requested(&argc, argv);
  // The default run interleaves the repetitions of all cases unless the
  // command line says otherwise.
  std::vector<char *> args(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  if (!long_run &&
      !has_flag(argc, argv, "--benchmark_enable_random_interleaving")) {
    args.push_back(interleave.data());
  }
  int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&count, args.data(), print_help);
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  if (!long_run) {
    for (const Case &c : cases()) {
      if (c.cache == Cache::kCold) {
        c.benchmark->Iterations(kColdIterations);
      } else {
        c.benchmark->MinTime(kWarmMinSeconds);
      }
      c.benchmark->Repetitions(kRepetitions);
    }
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_ratios();
  benchmark::Shutdown();
  return 0;
}
