// The one session: its globals, init and deinit.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "api/session_state.h"
#include "worker/worker.h"

extern "C" {
extern QL_IS_API const uint32_t size[2] = {qlis::kImageBufferBytes, qlis::kSideBufferBytes};
QL_IS_API uint8_t *buf[6] = {};
QL_IS_API BufPair buftemp = {};
QL_IS_API BufPair bufmax = {};
QL_IS_API BufPair bufproc = {};
QL_IS_API BlockFeatureSet base_feature = {};
QL_IS_API double base_quality = 0.0;
QL_IS_API double base_clarity = 0.0;
QL_IS_API DiffHistogram *base_diff_hist = nullptr;
QL_IS_API uint8_t *base_raw_fea = nullptr;
QL_IS_API ScratchArena alg_buf = {};
QL_IS_API PrevParam prevParam = {};
QL_IS_API int32_t initDone = 0;
QL_IS_API int32_t dump_count = 0;
QL_IS_API double last_luminance = 255.0;
QL_IS_API int32_t image_index = 0;
QL_IS_API AsIQThdInfo g_asIQThdInfo = {};
}

namespace qlis {

SessionAllocator session_allocator = std::malloc;

namespace {

constexpr const char *kVersion = "QELARN-AS-V2.0.6";

// A failed init frees the histogram block but leaves base_diff_hist
// pointing at it, as hosts have always seen; this remembers that the block
// is gone so that the next init does not free it a second time.
bool diff_hist_released = false;

void free_diff_hist() {
  if (base_diff_hist != nullptr && !diff_hist_released) std::free(base_diff_hist);
  diff_hist_released = false;
}

void init_failed() {
  if (base_diff_hist != nullptr && !diff_hist_released) {
    std::free(base_diff_hist);
    diff_hist_released = true;
  }
  // base_raw_fea and the arena block stay allocated on purpose.
  for (uint8_t *&block : buf) {
    std::free(block);
    block = nullptr;
  }
}

void stop_worker() {
  AsIQThdInfo &info = g_asIQThdInfo;
  pthread_mutex_lock(&info.mutex);
  while (info.idle == 0) {
    pthread_mutex_unlock(&info.mutex);
    usleep(kPollMicros);
    pthread_mutex_lock(&info.mutex);
  }
  quit_flag().store(1);
  info.pending = 0;
  pthread_cond_signal(&info.done);
  pthread_mutex_unlock(&info.mutex);

  pthread_mutex_lock(&info.mutex);
  pthread_cond_signal(&info.work);
  pthread_mutex_unlock(&info.mutex);
  pthread_join(info.thread, nullptr);
  info.thread = 0;
}

}  // namespace

void clear_base_after_capture() {
  std::memset(&base_feature, 0, sizeof base_feature);
  base_quality = 0.0;
  std::memset(base_diff_hist, 0, kDiffHistBytes);
}

int64_t load_base_quality_bits() {
  int64_t bits;
  std::memcpy(&bits, &base_quality, sizeof bits);
  return bits;
}

void store_base_quality_bits(int64_t bits) {
  std::memcpy(&base_quality, &bits, sizeof bits);
}

}  // namespace qlis

extern "C" int32_t ql_is_init(void) {
  using namespace qlis;
  if (init_done_flag().load() != 0) return -1;
  std::memset(&base_feature, 0, sizeof base_feature);
  base_quality = 0.0;

  free_diff_hist();
  base_diff_hist = static_cast<DiffHistogram *>(session_allocator(kDiffHistBytes));
  std::memset(base_diff_hist, 0, kDiffHistBytes);
  // An earlier raw-feature block is not freed first (a failed init leaves
  // one behind); kept as hosts have always seen it.
  base_raw_fea = static_cast<uint8_t *>(session_allocator(kRawFeatureBytes));
  std::memset(base_raw_fea, 0, kRawFeatureBytes);
  base_clarity = 0.0;

  std::free(alg_buf.base);
  alg_buf.total = kArenaBytes;
  alg_buf.used = 0;
  alg_buf.base = static_cast<uint8_t *>(session_allocator(kArenaBytes));

  std::memset(&prevParam, 0, sizeof prevParam);
  buftemp = bufmax = bufproc = BufPair{nullptr, nullptr};
  for (int i = 0; i < 6; ++i) {
    std::free(buf[i]);
    const size_t bytes = (i % 2 == 0) ? kImageBufferBytes : kSideBufferBytes;
    buf[i] = static_cast<uint8_t *>(session_allocator(bytes));
    if (buf[i] == nullptr) {
      init_failed();
      return -1;
    }
    std::memset(buf[i], 0, bytes);
  }
  buftemp = {buf[0], buf[1]};
  bufmax = {buf[2], buf[3]};
  bufproc = {buf[4], buf[5]};

  AsIQThdInfo &info = g_asIQThdInfo;
  std::memset(&info, 0, sizeof info);
  info.idle = 1;
  pthread_mutex_init(&info.mutex, nullptr);
  pthread_cond_init(&info.work, nullptr);
  pthread_cond_init(&info.done, nullptr);
  // Thread creation is not checked: without a worker, preview frames are
  // handed over and never evaluated, and captures still work.
  pthread_create(&info.thread, nullptr, startAsImageQualityThread, &info);

  dump_count = 0;
  init_done_flag().store(1);
  return 0;
}

extern "C" int32_t ql_is_deinit(void) {
  using namespace qlis;
  if (init_done_flag().load() == 0) return 0;
  AsIQThdInfo &info = g_asIQThdInfo;
  if (info.thread != 0) stop_worker();
  // Calls still inside the library finish first; a capture waiting for the
  // worker is woken by the signal.
  while (std::atomic_ref<int32_t>(info.preview_calls).load() != 0 ||
         std::atomic_ref<int32_t>(info.capture_calls).load() != 0) {
    pthread_cond_signal(&info.done);
    usleep(kPollMicros);
  }
  pthread_cond_destroy(&info.work);
  pthread_cond_destroy(&info.done);
  pthread_mutex_destroy(&info.mutex);

  for (uint8_t *&block : buf) {
    std::free(block);
    block = nullptr;
  }
  base_quality = 0.0;
  std::memset(&base_feature, 0, sizeof base_feature);
  free_diff_hist();
  base_diff_hist = nullptr;
  std::free(base_raw_fea);
  base_raw_fea = nullptr;
  base_clarity = 0.0;
  std::free(alg_buf.base);
  alg_buf.base = nullptr;  // total and used keep their values
  last_luminance = 255.0;
  buftemp = bufmax = bufproc = BufPair{nullptr, nullptr};
  std::memset(&base_feature, 0, sizeof base_feature);
  std::memset(&prevParam, 0, sizeof prevParam);
  dump_count = 0;
  init_done_flag().store(0);
  return 0;
}

extern "C" const char *ql_is_get_version(void) { return qlis::kVersion; }
