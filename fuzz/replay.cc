// Fuzz targets as cases of the suites: the seed corpus, then a fixed set
// of pseudo-random inputs.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz_target.h"

namespace qlis::fuzz {
namespace {

const char *current_name = "";
std::vector<uint8_t> current;

void run(Target target, std::vector<uint8_t> input) {
  current = std::move(input);
  target(current.data(), current.size());
}

}  // namespace

void fail(const char *file, int line, const char *what) {
  const std::string saved = std::string("fuzz-failure-") + current_name;
  std::ofstream(saved, std::ios::binary)
      .write(reinterpret_cast<const char *>(current.data()), static_cast<std::streamsize>(current.size()));
  std::fprintf(stderr, "%s:%d: check failed: %s (input of %zu bytes saved as %s)\n", file, line, what,
               current.size(), saved.c_str());
  std::abort();
}

void replay(const char *name, Target target) {
  current_name = name;
  const std::filesystem::path corpus = std::filesystem::path(QLIS_FUZZ_CORPUS) / name;
  if (std::filesystem::is_directory(corpus)) {
    for (const auto &entry : std::filesystem::directory_iterator(corpus)) {
      std::ifstream in(entry.path(), std::ios::binary);
      run(target, {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()});
    }
  }
  const char *runs = std::getenv("QLIS_FUZZ_RUNS");
  const int count = runs ? std::atoi(runs) : 300;
  std::mt19937 engine(1);
  for (int i = 0; i < count; ++i) {
    std::vector<uint8_t> input(engine() % 4097);
    for (uint8_t &b : input) b = static_cast<uint8_t>(engine());
    run(target, std::move(input));
  }
}

}  // namespace qlis::fuzz
