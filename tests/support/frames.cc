#include "support/frames.h"

namespace qlis::test {

void fill_random(uint8_t *data, size_t size, std::mt19937 &engine) {
  std::uniform_int_distribution<int> pick(0, 9);
  std::uniform_int_distribution<int> byte(0, 255);
  for (size_t i = 0; i < size; ++i) {
    const int p = pick(engine);
    data[i] = static_cast<uint8_t>(p == 0 ? 0 : p == 1 ? 255 : byte(engine));
  }
}

}  // namespace qlis::test
