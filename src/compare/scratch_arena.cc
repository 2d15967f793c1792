#include "compare/scratch_arena.h"

#include "platform/log.h"

namespace qlis {

void *take_arena_piece(ScratchArena &arena, uint32_t length) {
  // The alignment is of the address, not of the offset: a base that is not
  // itself aligned still gives aligned pieces.
  const uintptr_t cursor = reinterpret_cast<uintptr_t>(arena.base) + arena.used;
  const uint32_t padding = static_cast<uint32_t>(
      (kArenaAlignment - cursor % kArenaAlignment) % kArenaAlignment);
  // In 64 bits no sum of three 32-bit values can wrap, so a length near
  // 2^32 is refused instead of appearing to fit.
  const uint64_t need = static_cast<uint64_t>(padding) + length + arena.used;
  if (need <= UINT32_MAX && need <= arena.total) {
    uint8_t *piece = arena.base + arena.used + padding;
    arena.used = static_cast<uint32_t>(need);
    return piece;
  }
  // The shortfall leaves the padding out and wraps like the 32-bit
  // counters it is made of; the line is read by people, not parsed.
  const uint32_t lack = arena.used + length - arena.total;
  log_line(kTagError,
           "quelarn_time:AssignMemSpace:error!total_len=%d,used_len=%d,"
           "offset_add=%d,last_use=%d,lack_len=%d\n",
           static_cast<int32_t>(arena.total), static_cast<int32_t>(arena.used),
           static_cast<int32_t>(padding), static_cast<int32_t>(length),
           static_cast<int32_t>(lack));
  return nullptr;
}

}  // namespace qlis

extern "C" void *AssignMemSpace(ScratchArena *arena, uint32_t length,
                                int32_t /*element_size*/) {
  return qlis::take_arena_piece(*arena, length);
}
