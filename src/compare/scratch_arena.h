// The scratch arena: one heap block per session, handed out in 64-byte
// aligned pieces by a bump allocator. Pieces are never freed one by one;
// a comparison works on its own copy of the descriptor, so its pieces fall
// free when it returns.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

// Capacity of the session's arena: enough for the re-blur planes of the
// largest frame the session buffers hold.
inline constexpr uint32_t kScratchArenaBytes = 14001024;

// Every piece starts on this boundary, so vector loads of a plane never
// straddle a cache line at its start.
inline constexpr uintptr_t kArenaAlignment = 64;

// `length` bytes at the next aligned address of the arena, or nullptr
// (logged, arena unchanged) when they do not fit.
void *take_arena_piece(ScratchArena &arena, uint32_t length);

}  // namespace qlis
