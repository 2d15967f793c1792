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

}  // namespace
