#include "support/host_hooks.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "ql_is/ql_is.h"

namespace qlis::test {

LogCapture::LogCapture() { ql_is_host_set_log_sink(&LogCapture::sink, this); }
LogCapture::~LogCapture() { ql_is_host_set_log_sink(nullptr, nullptr); }

void LogCapture::sink(int prio, const char *tag, const char *text, void *ctx) {
  auto *self = static_cast<LogCapture *>(ctx);
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->lines_.push_back({prio, tag, text});
}

std::vector<LogLine> LogCapture::lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::vector<std::string> LogCapture::texts(const std::string &tag) const {
  std::vector<std::string> out;
  for (const LogLine &l : lines()) {
    if (l.tag == tag) out.push_back(l.text);
  }
  return out;
}

ScopedProperty::ScopedProperty(const char *name, const char *value) : name_(name) {
  ql_is_host_set_property(name, value);
}
ScopedProperty::~ScopedProperty() { ql_is_host_set_property(name_.c_str(), nullptr); }

ScopedFsRoot::ScopedFsRoot() {
  std::string templ =
      (std::filesystem::temp_directory_path() / "qlis-root-XXXXXX").string();
  if (mkdtemp(templ.data()) == nullptr) std::abort();
  path_ = templ;
  ql_is_host_set_fs_root(path_.c_str());
}

ScopedFsRoot::~ScopedFsRoot() {
  ql_is_host_set_fs_root(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void ScopedFsRoot::make_dirs(const std::string &device_path) const {
  std::filesystem::create_directories(path_ + device_path);
}

std::vector<std::string> ScopedFsRoot::files() const {
  std::vector<std::string> out;
  for (const auto &e : std::filesystem::recursive_directory_iterator(path_)) {
    if (e.is_regular_file()) out.push_back(e.path().string().substr(path_.size()));
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace qlis::test
