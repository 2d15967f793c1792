#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "ql_is/ql_is.h"
#include "platform/log.h"

namespace qlis {
namespace {

void default_sink(int /*prio*/, const char *tag, const char *text, void *) {
  const char *enabled = std::getenv("QLIS_LOG");
  if (enabled == nullptr || std::strcmp(enabled, "0") == 0) return;
  std::fprintf(stderr, "E/%s: %s\n", tag, text);
}

struct SinkSlot {
  std::mutex mutex;
  ql_is_log_sink sink = default_sink;
  void *ctx = nullptr;
};

SinkSlot &sink_slot() {
  static SinkSlot slot;
  return slot;
}

}  // namespace

int log_line(const char *tag, const char *format, ...) {
  char small[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(small, sizeof small, format, args);
  va_end(args);
  const char *text = small;
  std::vector<char> large;
  if (length >= static_cast<int>(sizeof small)) {
    large.resize(static_cast<size_t>(length) + 1);
    std::vsnprintf(large.data(), large.size(), format, again);
    text = large.data();
  }
  va_end(again);

  // The sink is called outside the lock so that it may itself log or
  // change the sink.
  ql_is_log_sink sink;
  void *ctx;
  {
    SinkSlot &slot = sink_slot();
    std::lock_guard<std::mutex> lock(slot.mutex);
    sink = slot.sink;
    ctx = slot.ctx;
  }
  sink(kLogPriority, tag, text, ctx);
  return length;
}

}  // namespace qlis

extern "C" void ql_is_host_set_log_sink(ql_is_log_sink sink, void *ctx) {
  auto &slot = qlis::sink_slot();
  std::lock_guard<std::mutex> lock(slot.mutex);
  slot.sink = sink != nullptr ? sink : qlis::default_sink;
  slot.ctx = sink != nullptr ? ctx : nullptr;
}
