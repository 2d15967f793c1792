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

TEST(HostProperties, HookWinsOverEnvironmentWhichWinsOverDefaultZero) {
  unsetenv(kProbe);
  EXPECT_EQ(0, qlis::read_property_int(kProbe));
  setenv(kProbe, "5", 1);
  EXPECT_EQ(5, qlis::read_property_int(kProbe));
  {
    qlis::test::ScopedProperty hook(kProbe, "12");
    EXPECT_EQ(12, qlis::read_property_int(kProbe));
  }
  EXPECT_EQ(5, qlis::read_property_int(kProbe));
  unsetenv(kProbe);
}

TEST(HostProperties, ValuesConvertLikeAtoi) {
  const std::pair<const char *, int> cases[] = {
      {"7abc", 7}, {"abc", 0}, {" 3", 3}, {"-2", -2}, {"", 0}};
  for (const auto &[text, value] : cases) {
    qlis::test::ScopedProperty hook(kProbe, text);
    EXPECT_EQ(value, qlis::read_property_int(kProbe)) << text;
  }
}

TEST(HostProperties, RejectsNullNameAndOverlongValue) {
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
