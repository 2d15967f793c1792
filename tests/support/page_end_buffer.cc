#include "support/page_end_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace qlis::test {

PageEndBuffer::PageEndBuffer(size_t size) : size_(size) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t readable = (size + page - 1) / page * page;
  mapping_size_ = readable + page;
  void *m = mmap(nullptr, mapping_size_, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (m == MAP_FAILED) std::abort();
  mapping_ = static_cast<uint8_t *>(m);
  if (mprotect(mapping_ + readable, page, PROT_NONE) != 0) std::abort();
  data_ = mapping_ + readable - size;
}

PageEndBuffer::~PageEndBuffer() { munmap(mapping_, mapping_size_); }

}  // namespace qlis::test
