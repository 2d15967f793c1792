// A buffer whose last byte is the last byte of a readable page: the next
// page is mapped without access, so a kernel that reads one byte too far
// crashes instead of passing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis::test {

class PageEndBuffer {
 public:
  explicit PageEndBuffer(size_t size);
  ~PageEndBuffer();
  PageEndBuffer(const PageEndBuffer &) = delete;
  PageEndBuffer &operator=(const PageEndBuffer &) = delete;

  uint8_t *data() { return data_; }
  const uint8_t *data() const { return data_; }
  size_t size() const { return size_; }

 private:
  uint8_t *mapping_ = nullptr;
  size_t mapping_size_ = 0;
  uint8_t *data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace qlis::test
