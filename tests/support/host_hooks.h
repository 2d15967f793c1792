// Scoped use of the host hooks: captured log lines, properties and a
// temporary file-system root, each undone when the guard goes away.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace qlis::test {

struct LogLine {
  int priority;
  std::string tag;
  std::string text;
};

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<LogLine> lines() const;
  // Lines whose tag equals `tag`.
  std::vector<std::string> texts(const std::string &tag) const;

 private:
  static void sink(int prio, const char *tag, const char *text, void *ctx);
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

class ScopedProperty {
 public:
  ScopedProperty(const char *name, const char *value);
  ~ScopedProperty();

 private:
  std::string name_;
};

// A fresh directory used as the file-system root.
class ScopedFsRoot {
 public:
  ScopedFsRoot();
  ~ScopedFsRoot();
  const std::string &path() const { return path_; }
  // Creates a directory below the root, with its parents ("/sdcard/DCIM").
  void make_dirs(const std::string &device_path) const;
  // Device paths of the regular files below the root, sorted.
  std::vector<std::string> files() const;

 private:
  std::string path_;
};

}  // namespace qlis::test
