// The records shared with the host are part of the binary interface: their
// sizes and offsets must not move between compilers or word sizes.
#include <cstddef>

#include "ql_is/ql_is.h"

namespace {

constexpr bool kIlp32 = sizeof(void *) == 4;

static_assert(sizeof(BlockFeature) == 48);
static_assert(offsetof(BlockFeature, variation) == 40);
static_assert(sizeof(BlockFeatureSet) == 3072);
static_assert(sizeof(DiffHistogram) == 1024);

// Three words: base, total, used.
static_assert(offsetof(ScratchArena, total) == sizeof(void *));
static_assert(offsetof(ScratchArena, used) == sizeof(void *) + 4);
static_assert(!kIlp32 || sizeof(ScratchArena) == 12);

// The host's frame record: every 32-bit field at its offset on both word
// sizes; a pointer takes the 8 bytes from its offset.
static_assert(offsetof(FrameParam, format) == 0);
static_assert(offsetof(FrameParam, width) == 4);
static_assert(offsetof(FrameParam, height) == 8);
static_assert(offsetof(FrameParam, image) == 12);
static_assert(offsetof(FrameParam, stride) == 28);
static_assert(offsetof(FrameParam, side) == 56);
static_assert(offsetof(FrameParam, image_size) == 108);
static_assert(offsetof(FrameParam, side_size) == 112);
static_assert(offsetof(FrameParam, mode) == 116);
static_assert(sizeof(FrameParam) == 120);
static_assert(sizeof(ql_is_ptr_slot) == 8);

// The burst record's frame entries are 44 bytes apart and stay clear of
// the fields behind them.
static_assert(QL_IS_BURST_IMAGE(1) - QL_IS_BURST_IMAGE(0) == 44);
static_assert(QL_IS_BURST_SIDE(QL_IS_BURST_MAX_FRAMES - 1) + 8 <= QL_IS_BURST_IMAGE_SIZE);
static_assert(QL_IS_BURST_STRIDE(QL_IS_BURST_MAX_FRAMES - 1) + 4 <= QL_IS_BURST_SIDE(0));

// Library records: pointer-sized pointers in the documented order.
static_assert(sizeof(BufPair) == 2 * sizeof(void *));
static_assert(offsetof(PrevParam, height) == 2 * sizeof(void *) + 8);
static_assert(offsetof(PrevParam, result) == 2 * sizeof(void *) + 60);
static_assert(!kIlp32 || sizeof(PrevParam) == 72);
static_assert(offsetof(AsIQThdInfo, preview_calls) == 4);
static_assert(offsetof(AsIQThdInfo, capture_calls) == 8);

}  // namespace
