#include "library_log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ql_is/ql_is.h"

namespace qlis::tool {

LibraryLog::LibraryLog() { ql_is_host_set_log_sink(&LibraryLog::sink, this); }

LibraryLog::~LibraryLog() { ql_is_host_set_log_sink(nullptr, nullptr); }

void LibraryLog::sink(int /*prio*/, const char *tag, const char *text, void *ctx) {
  const char *enabled = std::getenv("QLIS_LOG");
  if (enabled != nullptr && std::strcmp(enabled, "0") != 0) {
    std::fprintf(stderr, "E/%s: %s\n", tag, text);
  }
  std::string line = std::string(tag) + ": " + text;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  auto *self = static_cast<LibraryLog *>(ctx);
  std::lock_guard<std::mutex> guard(self->mutex_);
  self->lines_.push_back(std::move(line));
}

std::vector<std::string> LibraryLog::take() {
  std::lock_guard<std::mutex> guard(mutex_);
  std::vector<std::string> taken;
  taken.swap(lines_);
  return taken;
}

}  // namespace qlis::tool
