// The library's log lines, collected while an instance lives: the host log
// sink is pointed at it, and standard error still gets each line when
// QLIS_LOG is set and not "0", as with the library's default sink.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace qlis::tool {

class LibraryLog {
 public:
  LibraryLog();
  ~LibraryLog();  // restores the default sink
  LibraryLog(const LibraryLog &) = delete;
  LibraryLog &operator=(const LibraryLog &) = delete;

  // The lines since the last take, "<tag>: <text>" without the text's
  // trailing newlines, in the order they were logged.
  std::vector<std::string> take();

 private:
  static void sink(int prio, const char *tag, const char *text, void *ctx);
  std::mutex mutex_;  // the worker thread logs too
  std::vector<std::string> lines_;
};

}  // namespace qlis::tool
