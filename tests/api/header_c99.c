/* The public header must compile as strict C99 for hosts written in C. */
#include "ql_is/ql_is.h"

int qlis_header_c99_block_count(void) {
  BlockFeatureSet set;
  ScratchArena arena = {0, 0, 0};
  (void)arena;
  return (int)(sizeof set.block / sizeof set.block[0]);
}
