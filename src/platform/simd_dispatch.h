// The one place where the build chooses between the portable kernels, which
// state the arithmetic literally, and their NEON twins. Every kernel header
// declares both sets; callers use kernels::name.
#pragma once

namespace qlis {
namespace portable {}
namespace neon {}

#if QLIS_HAVE_NEON
namespace kernels = neon;
#else
namespace kernels = portable;
#endif

}  // namespace qlis
