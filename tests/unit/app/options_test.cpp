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

// Each argument takes the first option text found anywhere in it ("-datadir=" is tried before
// "-stn="; "-web=" does not occur in "-web_interval="), scanning stops at the first argument without a
// dash, an unknown one fails unless its second character is "d", and numbers are read leniently.
TEST(Options, ScanTable) {
  struct Case {
    std::vector<std::string> args;
    bool ok;
    std::string unknown, datadir, stn, web;
    bool lan;
    float web_interval;
    uint16_t scan_port;
  } cases[] = {
      {{"-x-lan"}, true, "", "", "QVServer.stn", "", true, 10.0f, 16101},
      {{"-stn=a-datadir=b"}, true, "", "a-datadir=b", "QVServer.stn", "", false, 10.0f, 16101},
      {{"-web_interval=2.5"}, true, "", "", "QVServer.stn", "", false, 2.5f, 16101},
      {{"-lan", "extra", "-web=http://x", "-bogus"}, true, "", "", "QVServer.stn", "", true, 10.0f, 16101},
      {{"-debug", "-dx", "-verbose", "-lan"}, false, "-verbose", "", "QVServer.stn", "", false, 10.0f, 16101},
      {{"-debug", "-d", "-stn=x.stn"}, true, "", "", "x.stn", "", false, 10.0f, 16101},
      {{"-web_interval=abc", "-scan_port=17000", "-nice=5", "-web=http://h"}, true, "", "", "QVServer.stn",
       "http://h", false, 0.0f, 17000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.front());
    const Scan s = scan(c.args);
    EXPECT_EQ(s.ok, c.ok);
    EXPECT_EQ(s.unknown, c.unknown);
    if (!c.ok) continue;
    EXPECT_EQ(s.options.datadir, c.datadir);
    EXPECT_EQ(s.options.stn, c.stn);
    EXPECT_EQ(s.options.web, c.web);
    EXPECT_EQ(s.options.lan, c.lan);
    EXPECT_FLOAT_EQ(s.options.web_interval, c.web_interval);
    EXPECT_EQ(s.options.scan_port, c.scan_port);
  }
}

}  // namespace
