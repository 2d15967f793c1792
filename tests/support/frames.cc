#include "support/frames.h"

namespace qlis::test {

std::vector<Geometry> awkward_raw10_geometries() {
  return {
      {0, 0, 0},         {4, 4, 5},         {7, 12, 15},
      {16, 16, 20},      {8, 8, 10},        {24, 36, 45},
      {44, 44, 55},      {46, 100, 131},    {64, 64, 80},
      {96, 132, 165},    {100, 180, 240},   {130, 260, 333},
      {177, 340, 425},   {240, 320, 400},   {256, 516, 700},
      {480, 640, 800},   {382, 1284, 1605},
  };
}

void fill_random(uint8_t *data, size_t size, std::mt19937 &engine) {
  std::uniform_int_distribution<int> pick(0, 9);
  std::uniform_int_distribution<int> byte(0, 255);
  for (size_t i = 0; i < size; ++i) {
    const int p = pick(engine);
    data[i] = static_cast<uint8_t>(p == 0 ? 0 : p == 1 ? 255 : byte(engine));
  }
}

}  // namespace qlis::test
