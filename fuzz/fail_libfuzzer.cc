// A failed check in a libFuzzer program: libFuzzer catches the abort and
// saves the input that made it.
#include <cstdio>
#include <cstdlib>

#include "fuzz_target.h"

void qlis::fuzz::fail(const char *file, int line, const char *what) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
  std::abort();
}
