#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/SngOptions.h"

namespace {

// Each argument takes the first option text found anywhere in it ("-datadir=" is tried before
// "-stn="; "-web=" does not occur in "-web_interval="), scanning stops at the first argument without a
// dash, an unknown one fails unless its second character is "d", and numbers are read leniently.
TEST(Options, ScanTable) {
  struct Case {
    std::vector<std::string> args;
    std::string unknown, datadir, stn, web;  // unknown: the argument that failed the scan
    bool lan;
    float web_interval;
    uint16_t scan_port;
  } cases[] = {
      // clang-format off
      {{"-x-lan"}, "", "", "QVServer.stn", "", true, 10.0f, 16101},
      {{"-stn=a-datadir=b"}, "", "a-datadir=b", "QVServer.stn", "", false, 10.0f, 16101},
      {{"-web_interval=2.5"}, "", "", "QVServer.stn", "", false, 2.5f, 16101},
      {{"-lan", "extra", "-web=http://x", "-bogus"}, "", "", "QVServer.stn", "", true, 10.0f, 16101},
      {{"-debug", "-dx", "-verbose", "-lan"}, "-verbose", "", "QVServer.stn", "", false, 10.0f, 16101},
      {{"-debug", "-d", "-stn=x.stn"}, "", "", "x.stn", "", false, 10.0f, 16101},
      {{"-web_interval=abc", "-scan_port=17000", "-web=http://h"}, "", "", "QVServer.stn", "http://h", false, 0.0f, 17000},
      // clang-format on
  };
  for (Case c : cases) {
    c.args.insert(c.args.begin(), "qvserver");
    std::vector<char*> argv;
    for (auto& arg : c.args) argv.push_back(arg.data());
    SngOptions o;
    std::string unknown;
    EXPECT_EQ(sngScanOptions(static_cast<int>(argv.size()), argv.data(), o, &unknown), c.unknown.empty()) << c.args[1];
    EXPECT_EQ(unknown, c.unknown);
    if (!c.unknown.empty()) continue;
    EXPECT_EQ(std::tie(o.datadir, o.stn, o.web, o.lan, o.web_interval, o.scan_port),
              std::tie(c.datadir, c.stn, c.web, c.lan, c.web_interval, c.scan_port)) << c.args[1];
  }
}

}  // namespace
