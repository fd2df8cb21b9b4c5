// The qvclient program: its command line, and whole runs against a minimal ENet server that answers
// like a qvserver would.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "QvClientApp.h"
#include "QvDescribe.h"
#include "TestEnetServer.h"
#include "testutil/Poll.h"
#include "testutil/Ports.h"

namespace {

using namespace std::chrono_literals;

QvParsedOptions parse(std::vector<std::string> args) {
  return qvParseClientOptions(args);
}

TEST(ClientOptions, VersionIsMajorDotMinorWithTheMinorAsANumber) {
  uint8_t major = 0;
  uint8_t minor = 0;
  ASSERT_TRUE(qvParseVersion("1.08", major, minor));
  EXPECT_EQ(major, 1);
  EXPECT_EQ(minor, 8);
  ASSERT_TRUE(qvParseVersion("1.12", major, minor));
  EXPECT_EQ(minor, 12);
  ASSERT_TRUE(qvParseVersion("2.0", major, minor));
  EXPECT_EQ(major, 2);
  EXPECT_EQ(minor, 0);
  for (const char* bad : {"2", "1.", ".8", "1.256", "1.-1", "a.b", "1.8.1"}) {
    EXPECT_FALSE(qvParseVersion(bad, major, minor)) << bad;
  }
}

TEST(ClientOptions, FlightOptionsAreReadAndFlyingJoins) {
  const auto parsed =
      parse({"--port=16000", "--hwid=0xDEADBEEF", "--fly=270,120.5,1500", "--from=-33.5,151.25", "--rate=4",
             "--time-scale=10", "--aerotow=60,Tug", "--seconds=2.5"});
  ASSERT_TRUE(parsed.options) << parsed.error;
  const QvClientOptions& o = *parsed.options;
  EXPECT_EQ(o.port, 16000);
  EXPECT_EQ(o.hw_id, 0xDEADBEEFu);
  EXPECT_TRUE(o.join);
  EXPECT_DOUBLE_EQ(o.course, 270.0);
  EXPECT_DOUBLE_EQ(o.speed_kmh, 120.5);
  EXPECT_DOUBLE_EQ(o.alt, 1500.0);
  ASSERT_TRUE(o.from);
  EXPECT_DOUBLE_EQ(o.from->lat, -33.5);
  EXPECT_DOUBLE_EQ(o.from->lon, 151.25);
  EXPECT_DOUBLE_EQ(o.rate_hz, 4.0);
  EXPECT_DOUBLE_EQ(o.time_scale, 10.0);
  EXPECT_EQ(o.launch.launch_method, SngNet::LAUNCH_AEROTOW);
  EXPECT_EQ(o.launch.rope_length, 60);
  EXPECT_EQ(o.launch.towplane_id, "Tug");
  EXPECT_DOUBLE_EQ(o.seconds, 2.5);
}

TEST(ClientOptions, UsageErrorsSayWhatIsWrong) {
  const std::vector<std::vector<std::string>> bad = {{"--port=0"},
                                                     {"--port=65536"},
                                                     {"--hwid=123456789"},
                                                     {"--hwid=xyz"},
                                                     {"--version=1"},
                                                     {"--bind=localhost"},
                                                     {"--fly=90"},
                                                     {"--fly=90,-5"},
                                                     {"--from=1,2"},
                                                     {"--rate=2"},
                                                     {"--aerotow=60,T", "--join", "--winch=800,W"},
                                                     {"--aircraft=X"},
                                                     {"--seconds=3"},
                                                     {"--listen", "--seconds=-1"},
                                                     {"--winch=800,W,1,2"},
                                                     {"--unknown"},
                                                     {"positional"},
                                                     {"--fly=90,100", "--from=91,0"}};
  for (const auto& args : bad) {
    const auto parsed = parse(args);
    EXPECT_FALSE(parsed.options) << args[0];
    EXPECT_NE(parsed.error, "") << args[0];
  }
  EXPECT_TRUE(parse({"--help"}).options->help);
}

SngServerInfoMsg serverInfo() {
  SngServerInfoMsg info;
  info.player = 3;
  info.month = 6;
  info.day = 14;
  info.sim_time = 48605.0f;
  info.scenery_name = "Alps";
  SngTurnpoint start;
  start.lat = 46.5;
  start.lon = 8.25;
  start.name = "Start";
  SngTurnpoint sector = start;
  sector.name = "Sector";
  sector.oz = SNG_OZ_SECTOR;
  sector.angle1 = 90.0;
  sector.angle2 = 45.0;
  info.task = {start, sector};
  info.motd = "Welcome\r\nFly safe";
  return info;
}

class ClientRun : public ::testing::Test {
 protected:
  int runClient(std::vector<std::string> args) {
    args.push_back("--port=" + std::to_string(server.port()));
    args.push_back("--timeout=5");
    const auto parsed = parse(args);
    EXPECT_TRUE(parsed.options) << parsed.error;
    if (!parsed.options) return -1;
    return qvRunClient(*parsed.options, out, err, stop);
  }
  std::vector<TestDelivery> receivedWith(uint8_t opcode) {
    std::vector<TestDelivery> found;
    for (const TestDelivery& d : server.received()) {
      if (!d.bytes.empty() && d.bytes[0] == opcode) found.push_back(d);
    }
    return found;
  }

  TestEnetServer server;
  std::ostringstream out;
  std::ostringstream err;
  std::atomic<bool> stop{false};
};

TEST_F(ClientRun, PrintsTheServerInfoThenLogsOut) {
  server.replyTo(SngNet::LOGIN, {{sngMessage(SngNet::SERVER_INFO, serverInfo()).bytes, 0, true}});
  EXPECT_EQ(runClient({"--nick=Ann", "--hwid=00000042"}), kQvExitOk) << err.str();
  const std::string text = out.str();
  EXPECT_NE(text.find("14 June"), std::string::npos) << text;
  EXPECT_NE(text.find("13:30:05"), std::string::npos) << text;
  EXPECT_NE(text.find("sector, axis 90 deg, half-angle 45 deg"), std::string::npos) << text;
  EXPECT_NE(text.find("    Welcome\n    Fly safe\n"), std::string::npos) << text;
  const auto logins = receivedWith(SngNet::LOGIN);
  ASSERT_EQ(logins.size(), 1u);
  EXPECT_EQ(logins[0].bytes[3], 0x42);  // hardware ID, low byte first
  ASSERT_TRUE(pollUntil([&] { return receivedWith(SngNet::LOGOUT).size() == 1; }));
  EXPECT_EQ(receivedWith(SngNet::LOGOUT)[0].bytes, (std::vector<uint8_t>{SngNet::LOGOUT, 3}));
}

TEST_F(ClientRun, RefusedLoginAndRefusedJoinExitWithOne) {
  server.replyTo(SngNet::LOGIN, {{{SngNet::RESULT_SERVER_FULL}, 0, true}});
  EXPECT_EQ(runClient({}), kQvExitFailed);
  EXPECT_NE(out.str().find("Login refused: RESULT_SERVER_FULL (166)"), std::string::npos) << out.str();

  server.replyTo(SngNet::LOGIN, {{sngMessage(SngNet::SERVER_INFO, serverInfo()).bytes, 0, true}});
  server.replyTo(SngNet::CONNECT, {{{SngNet::RESULT_UNKNOWN_PLAYER}, 0, true}});
  EXPECT_EQ(runClient({"--join"}), kQvExitFailed);
  EXPECT_NE(out.str().find("Join refused: RESULT_UNKNOWN_PLAYER (167)"), std::string::npos) << out.str();
}

TEST(ClientRunWithoutServer, ConnectionFailureExitsWithOne) {
  const auto parsed = qvParseClientOptions({"--port=" + std::to_string(freeUdpPort()), "--timeout=0.3"});
  ASSERT_TRUE(parsed.options);
  std::ostringstream out;
  std::ostringstream err;
  std::atomic<bool> stop{false};
  EXPECT_EQ(qvRunClient(*parsed.options, out, err, stop), kQvExitFailed);
  EXPECT_NE(err.str().find("cannot connect"), std::string::npos) << err.str();
}

TEST_F(ClientRun, JoinsWithTheServersTaskChatsAndFliesFromTheFirstTurnpoint) {
  SngResultOkMsg ok;
  ok.sim_time = 40000.0f;
  server.replyTo(SngNet::LOGIN, {{sngMessage(SngNet::SERVER_INFO, serverInfo()).bytes, 0, true}});
  server.replyTo(SngNet::CONNECT, {{sngMessage(SngNet::RESULT_OK, ok).bytes, 0, true}});
  EXPECT_EQ(runClient({"--fly=90,360", "--rate=20", "--time-scale=10", "--seconds=0.5", "--chat=hello",
                       "--aerotow=60,Tug"}),
            kQvExitOk)
      << err.str();

  // LOGOUT leaves last: once it is in, everything sent before it has been handled.
  ASSERT_TRUE(pollUntil([&] { return receivedWith(SngNet::LOGOUT).size() == 1; }));
  const auto connects = receivedWith(SngNet::CONNECT);
  ASSERT_EQ(connects.size(), 1u);
  auto connect = SngConnectMsg{};
  SngPacket packet(connects[0].bytes);
  packet.cursor = 1;
  ASSERT_TRUE(connect.read(packet));
  EXPECT_EQ(connect.player, 3);
  EXPECT_EQ(connect.task.size(), 2u);
  EXPECT_EQ(connect.launch.launch_method, SngNet::LAUNCH_AEROTOW);
  EXPECT_EQ(receivedWith(SngNet::CHAT_MSG)[0].bytes,
            (std::vector<uint8_t>{11, 3, 'h', 'e', 'l', 'l', 'o', 0}));

  // At 20 states a second for half a second: about ten; loopback may drop none but lose a few to timing.
  const auto states = receivedWith(SngNet::AIRCRAFT_STATE);
  ASSERT_GE(states.size(), 3u);
  std::vector<SngStateMsg> decoded;
  for (const TestDelivery& d : states) {
    SngPacket p(d.bytes);
    p.cursor = 1;
    SngStateMsg m;
    ASSERT_TRUE(m.read(p));
    decoded.push_back(m);
  }
  // The first state is at the first turnpoint at the joining time; each further one 0.5 client
  // seconds (1/20 s × 10) and 50 m (100 m/s × 0.5 s) further east.
  std::sort(decoded.begin(), decoded.end(), [](auto& a, auto& b) { return a.state.time < b.state.time; });
  EXPECT_NEAR(decoded[0].state.lat, 46.5, 1e-5);
  EXPECT_NEAR(decoded[0].state.lon, 8.25, 1e-5);
  EXPECT_NEAR(decoded[0].state.time, 40000.0, 1e-2);
  constexpr double kPi = 3.141592653589793;
  const double metresPerDegreeLon = 3437.746770784939 * 1852.0 * kPi / 180.0 * std::cos(46.5 * kPi / 180.0);
  for (size_t i = 1; i < decoded.size(); ++i) {
    EXPECT_NEAR(decoded[i].state.time - decoded[i - 1].state.time, 0.5, 1e-2);
    EXPECT_NEAR((decoded[i].state.lon - decoded[i - 1].state.lon) * metresPerDegreeLon, 50.0, 1.0);
  }
}

TEST(DescribeMessage, EveryCutOfAServerInfoIsReportedAsCutShort) {
  const std::vector<uint8_t> whole = sngMessage(SngNet::SERVER_INFO, serverInfo()).bytes;
  for (size_t n = 1; n < whole.size(); ++n) {
    QvMessage message;
    message.opcode = SngNet::SERVER_INFO;
    message.bytes.assign(whole.begin(), whole.begin() + static_cast<long>(n));
    EXPECT_NE(qvDescribeMessage(message).find("cut short"), std::string::npos) << n << " bytes";
  }
  QvMessage message;
  message.opcode = SngNet::SERVER_INFO;
  message.bytes = whole;
  EXPECT_EQ(qvDescribeMessage(message).find("cut short"), std::string::npos);
}

TEST(DescribeMessage, TimesOfDayAndControlCharacters) {
  EXPECT_EQ(qvTimeOfDay(48605.9), "13:30:05");
  EXPECT_EQ(qvTimeOfDay(86400.0 + 3661.0), "01:01:01 +1d");
  EXPECT_EQ(qvTimeOfDay(-1.0), "-1.0 s");
  EXPECT_EQ(qvPrintable("a\x1b[2Jb\x7f"), "a?[2Jb?");
  EXPECT_EQ(qvPrintable("Zürich"), "Zürich");
}

}  // namespace
