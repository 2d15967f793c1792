#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/files.h"
#include "platform/log.h"
#include "platform/property.h"
#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace {

constexpr const char *kProbe = "debug.camera.qlis_test_probe";

// A value set through the hook wins over the environment variable of the
// same name, which wins over the preset 0; values convert like atoi, and
// a null name or a value over 91 bytes is refused.
TEST(HostProperties, HookWinsOverEnvironmentWhichWinsOverDefaultZero) {
  unsetenv(kProbe);
  EXPECT_EQ(0, qlis::read_property_int(kProbe));
  setenv(kProbe, "5", 1);
  EXPECT_EQ(5, qlis::read_property_int(kProbe));
  for (const auto &[text, value] : {std::pair<const char *, int>{"12", 12},
                                    {"7abc", 7}, {"abc", 0}, {" -2", -2}}) {
    qlis::test::ScopedProperty hook(kProbe, text);
    EXPECT_EQ(value, qlis::read_property_int(kProbe)) << text;
  }
  EXPECT_EQ(5, qlis::read_property_int(kProbe));
  unsetenv(kProbe);
  EXPECT_EQ(-1, ql_is_host_set_property(nullptr, "1"));
  EXPECT_EQ(-1, ql_is_host_set_property(kProbe, std::string(92, '1').c_str()));
  EXPECT_EQ(0, ql_is_host_set_property(kProbe, std::string(91, '1').c_str()));
  EXPECT_EQ(0, ql_is_host_set_property(kProbe, nullptr));
}

TEST(HostLog, SinkReceivesPriorityTagAndTextAndCallReturnsItsLength) {
  qlis::test::LogCapture log;
  EXPECT_EQ(13, qlis::log_line(qlis::kTagAlgo, "value %d of %s", 42, "x"));
  const std::string big(2000, 'y');
  EXPECT_EQ(2001, qlis::log_line(qlis::kTagInfo, "%s!", big.c_str()));
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].priority, 6);
  EXPECT_EQ(lines[0].tag, "QLIS_ALGO");
  EXPECT_EQ(lines[0].text, "value 42 of x");
  EXPECT_EQ(lines[1].text, big + "!");
}

TEST(HostFiles, AbsolutePathsResolveUnderTheRootFromHookOrEnvironment) {
  qlis::test::ScopedFsRoot root;
  ASSERT_EQ(0, qlis::make_directory("/made", 0777));
  std::FILE *f = qlis::open_file("/made/a.bin", "wb");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_EQ(root.files(), std::vector<std::string>{"/made/a.bin"});

  ql_is_host_set_fs_root(nullptr);
  setenv("QLIS_FS_ROOT", root.path().c_str(), 1);
  f = qlis::open_file("/made/b.bin", "wb");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  unsetenv("QLIS_FS_ROOT");
  EXPECT_EQ(root.files(), (std::vector<std::string>{"/made/a.bin", "/made/b.bin"}));
}

}  // namespace
