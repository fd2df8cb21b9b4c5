#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/SngOptions.h"

namespace {

struct Scan {
  bool ok;
  SngOptions options;
  std::string unknown;
};

Scan scan(std::vector<std::string> args) {
  args.insert(args.begin(), "qvserver");
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  Scan result{};
  result.ok = sngScanOptions(static_cast<int>(argv.size()), argv.data(), result.options, &result.unknown);
  return result;
}

TEST(Options, DefaultsWithoutArguments) {
  const Scan s = scan({});
  ASSERT_TRUE(s.ok);
  EXPECT_EQ(s.options.stn, "QVServer.stn");
  EXPECT_EQ(s.options.scan_port, 16101);
  EXPECT_FLOAT_EQ(s.options.web_interval, 10.0f);
  EXPECT_TRUE(s.options.web.empty());
  EXPECT_FALSE(s.options.lan);
}

TEST(Options, TheFirstOptionTextFoundAnywhereInTheArgumentWins) {
  Scan s = scan({"-x-lan"});
  ASSERT_TRUE(s.ok);
  EXPECT_TRUE(s.options.lan);
  // "-datadir=" is tried before "-stn=", so this argument sets the data directory to everything
  // after its first "=".
  s = scan({"-stn=a-datadir=b"});
  EXPECT_EQ(s.options.datadir, "a-datadir=b");
  EXPECT_EQ(s.options.stn, "QVServer.stn");
  // "-web=" does not occur inside "-web_interval=".
  s = scan({"-web_interval=2.5"});
  EXPECT_FLOAT_EQ(s.options.web_interval, 2.5f);
  EXPECT_TRUE(s.options.web.empty());
}

TEST(Options, ScanningStopsAtTheFirstArgumentWithoutADash) {
  const Scan s = scan({"-lan", "extra", "-web=http://x", "-bogus"});
  ASSERT_TRUE(s.ok);
  EXPECT_TRUE(s.options.lan);
  EXPECT_TRUE(s.options.web.empty());
}

TEST(Options, UnknownArgumentsFailUnlessTheirSecondCharacterIsD) {
  Scan s = scan({"-debug", "-dx", "-verbose", "-lan"});
  EXPECT_FALSE(s.ok);
  EXPECT_EQ(s.unknown, "-verbose");
  s = scan({"-debug", "-d"});
  EXPECT_TRUE(s.ok);
}

TEST(Options, NumbersAreReadLeniently) {
  const Scan s = scan({"-web_interval=abc", "-scan_port=17000", "-nice=5"});
  ASSERT_TRUE(s.ok);
  EXPECT_FLOAT_EQ(s.options.web_interval, 0.0f);
  EXPECT_EQ(s.options.scan_port, 17000);
  EXPECT_EQ(s.options.nice, 5);
}

}  // namespace
