// The qvclient program and its client library against a minimal ENet server on loopback, and the
// program's command line.
#include <gmock/gmock.h>

#include <cmath>
#include <mutex>
#include <sstream>
#include <thread>

#include "QvClientApp.h"
#include "QvDescribe.h"
#include "testutil/Poll.h"
#include "testutil/Ports.h"

namespace {

using namespace std::chrono_literals;
using namespace SngNet;
using ::testing::HasSubstr;
using Bytes = std::vector<uint8_t>;

// A minimal ENet server on its own thread, where all its ENet calls stay: it records what arrives and
// how, counts disconnects, and answers a message kind with canned replies.
class TestEnetServer {
 public:
  // Without a host (ENet failed) port() is 0 and every test that connects fails.
  TestEnetServer() : thread_([this](std::stop_token stop) { run(stop); }) {}
  uint16_t port() const { return host_ ? host_->address.port : 0; }
  // Every later message whose first byte is `opcode` is answered with `replies`, in order.
  void replyTo(uint8_t opcode, std::vector<QvMessage> replies) {
    std::lock_guard lock(mutex_);
    replies_[opcode] = std::move(replies);
  }
  std::vector<QvMessage> received(uint8_t opcode) const {
    std::lock_guard lock(mutex_);
    return received_.contains(opcode) ? received_.at(opcode) : std::vector<QvMessage>{};
  }
  std::atomic<int> disconnects{0};

 private:
  void run(const std::stop_token& stop) {
    for (ENetEvent event; host_ && !stop.stop_requested();) {
      // Waits 5 ms at most, so that the stop request is seen promptly.
      if (enet_host_service(host_.get(), &event, 5) <= 0) continue;
      // Never a time-out: only a disconnect notice ends a peer's connection.
      if (event.type == ENET_EVENT_TYPE_CONNECT) enet_peer_timeout(event.peer, 0, 3600000, 3600000);
      if (event.type == ENET_EVENT_TYPE_DISCONNECT) ++disconnects;
      if (event.type != ENET_EVENT_TYPE_RECEIVE) continue;
      std::lock_guard lock(mutex_);
      const ENetPacket& in = *event.packet;
      const uint8_t opcode = in.data[0];
      received_[opcode].push_back({opcode, Bytes(in.data, in.data + in.dataLength), event.channelID,
                                   (in.flags & ENET_PACKET_FLAG_RELIABLE) != 0});
      enet_packet_destroy(event.packet);
      for (const QvMessage& r : replies_[opcode]) {
        ENetPacket* out = enet_packet_create(r.bytes.data(), r.bytes.size(), ENET_PACKET_FLAG_RELIABLE);
        if (enet_peer_send(event.peer, r.channel, out) != 0) enet_packet_destroy(out);
      }
    }
  }

  ENetAddress anyPort_{ENET_HOST_ANY, 0};  // the system picks a free port; ENet reads it back
  std::unique_ptr<ENetHost, void (*)(ENetHost*)> host_{
      enet_initialize() == 0 ? enet_host_create(&anyPort_, 4, 2, 0, 0) : nullptr, enet_host_destroy};
  mutable std::mutex mutex_;
  std::map<uint8_t, std::vector<QvMessage>> replies_, received_;  // by opcode
  std::jthread thread_;  // last: it uses everything above, and stops and joins before they go
};

const auto reliable = [](const Bytes& bytes) { return QvMessage{bytes.at(0), bytes, 0, true}; };

// The options from a command line split at spaces.
QvParsedOptions parse(const std::string& commandLine) {
  std::istringstream in(commandLine);
  return qvParseClientOptions({std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()});
}

TEST(ClientOptions, FlyingJoinsFromWhereItIsToldOrSaysWhatIsWrong) {
  const auto fly = parse("--fly=270,120.5,1500 --from=-33.5,151.25 --seconds=2.5 --version=1.12");
  ASSERT_TRUE(fly.options) << fly.error;
  const QvClientOptions& o = *fly.options;
  // "1.12" is 1, 12 as "1.08" is 1, 8.
  EXPECT_EQ(std::tie(o.join, o.course, o.speed_kmh, o.alt, o.from->lat, o.from->lon, o.seconds,
                     o.version_major, o.version_minor),
            std::make_tuple(true, 270.0, 120.5, 1500.0, -33.5, 151.25, 2.5, 1, 12));
  // Each case is the arguments, then after '|' what the error says; a ';' ends it.
  std::istringstream usageErrors(
      "--port=0|--port needs;--port=65536|--port needs;--hwid=123456789|--hwid needs;--hwid=xyz|--hwid needs;"
      "--version=2|--version needs;--version=1.|--version needs;--version=.8|--version needs;"
      "--version=1.256|--version needs;--version=1.-1|--version needs;--version=a.b|--version needs;"
      "--version=1.8.1|--version needs;--bind=localhost|--bind needs;--fly=90|--fly needs;"
      "--fly=90,-5|--fly needs;--from=1,2|--from needs --fly;--rate=2|--rate needs --fly;"
      "--aircraft=X|--aircraft needs --join;--aerotow=60,T --join --winch=800,W|choose one launch;"
      "--seconds=3|--seconds needs --listen;--listen --seconds=-1|--seconds;--winch=800,W,1,2|--winch needs;"
      "--unknown|unknown option: --unknown;positional|unknown option: positional;"
      "--fly=90,100 --from=91,0|--from needs LAT,LON");
  for (std::string usage; std::getline(usageErrors, usage, ';');) {
    const auto parsed = parse(usage.substr(0, usage.find('|')));
    EXPECT_THAT(parsed.options ? "accepted" : parsed.error, HasSubstr(usage.substr(usage.find('|') + 1)))
        << usage;
  }
}

Bytes serverInfo() {
  SngServerInfoMsg i;
  std::tie(i.player, i.month, i.day, i.sim_time, i.motd) = std::make_tuple(3, 6, 14, 48605.0f, "Hi\r\nFly");
  SngTurnpoint start, sector;
  std::tie(start.lat, start.lon) = std::tie(sector.lat, sector.lon) = std::make_tuple(46.5, 8.25);
  std::tie(sector.angle1, sector.angle2, sector.oz) = std::make_tuple(90.0, 45.0, SNG_OZ_SECTOR);
  i.task = {start, sector};
  return sngMessage(SERVER_INFO, i).bytes;
}

class ClientRun : public ::testing::Test {
 protected:
  // Runs qvclient against the test server unless args name another port (the last of an option counts).
  int runClient(const std::string& args) {
    const auto parsed = parse("--timeout=5 --port=" + std::to_string(server.port()) + " " + args);
    return parsed.options ? qvRunClient(*parsed.options, out, err, stop) : -1;
  }
  // A ping may reach a new player before its server info.
  void answerLoginWith(const Bytes& bytes = serverInfo()) {
    server.replyTo(LOGIN, {reliable({PING}), reliable(bytes)});
  }

  TestEnetServer server;
  std::ostringstream out, err;
  std::atomic<bool> stop{false};
};

TEST_F(ClientRun, PrintsTheServerInfoThenLogsOut) {
  answerLoginWith();
  EXPECT_EQ(runClient("--nick=Ann --hwid=00000042"), kQvExitOk) << err.str();
  for (auto text : {"14 June", "13:30:05", "sector, axis 90 deg, half-angle 45 deg", "    Hi\n    Fly\n"})
    EXPECT_THAT(out.str(), HasSubstr(text));
  EXPECT_EQ(server.received(LOGIN).at(0).bytes[3], 0x42);  // hardware ID, low byte first
  ASSERT_TRUE(pollUntil([&] { return server.received(LOGOUT).size() == 1; }));
  EXPECT_EQ(server.received(LOGOUT)[0].bytes, (Bytes{LOGOUT, 3}));
}

TEST_F(ClientRun, ARefusalOrNoServerExitsWithOneAndSaysWhy) {
  EXPECT_EQ(runClient("--timeout=0.3 --port=" + std::to_string(freeUdpPort())), kQvExitFailed);
  EXPECT_THAT(err.str(), HasSubstr("cannot connect"));
  answerLoginWith({RESULT_SERVER_FULL});
  EXPECT_EQ(runClient(""), kQvExitFailed);
  EXPECT_THAT(out.str(), HasSubstr("Login refused: RESULT_SERVER_FULL (166)"));
  answerLoginWith();
  server.replyTo(CONNECT, {reliable({RESULT_UNKNOWN_PLAYER})});
  EXPECT_EQ(runClient("--join"), kQvExitFailed);
  EXPECT_THAT(out.str(), HasSubstr("Join refused: RESULT_UNKNOWN_PLAYER (167)"));
  // The test server never times a peer out: only the dropping client's notice can end its connection.
  QvClient dropping;
  ASSERT_TRUE(dropping.connect("127.0.0.1", server.port(), 5s) &&
              pollUntil([&] { return server.disconnects == 2; }));
  dropping.dropConnection();
  EXPECT_TRUE(pollUntil([&] { return server.disconnects == 3; }));
}

TEST_F(ClientRun, JoinsWithTheServersTaskChatsAndFliesFromTheFirstTurnpointAtTheJoiningTime) {
  answerLoginWith();
  server.replyTo(CONNECT, {reliable(sngMessage(RESULT_OK, SngResultOkMsg{.sim_time = 40000.0f}).bytes)});
  const std::string args =
      "--fly=90,360 --rate=20 --time-scale=10 --seconds=0.5 --chat=hello --aerotow=60,Tug";
  EXPECT_EQ(runClient(args), kQvExitOk) << err.str();
  // LOGOUT leaves last, and the connection is closed in order.
  ASSERT_TRUE(pollUntil([&] { return server.disconnects == 1; }));
  const auto connect = qvDecode<SngConnectMsg>(server.received(CONNECT).at(0));
  EXPECT_TRUE(connect && connect->player == 3 && connect->task.size() == 2 &&
              connect->launch.method == LAUNCH_AEROTOW);
  EXPECT_EQ(server.received(CHAT_MSG).at(0).bytes, (Bytes{CHAT_MSG, 3, 'h', 'e', 'l', 'l', 'o', 0}));
  // All reliable on channel 0 but the states, which stream unreliable on channel 1.
  for (uint8_t opcode : {LOGIN, CONNECT, CHAT_MSG, LOGOUT, AIRCRAFT_STATE})
    for (const QvMessage& m : server.received(opcode))
      EXPECT_TRUE(m.reliable == !m.channel && m.channel == (opcode == AIRCRAFT_STATE)) << int(opcode);
  // The first state at the first turnpoint at the joining time, then one every 0.5 client seconds
  // (1/20 s × 10), flying east. The flight itself is tested on its own.
  std::vector<SngAircraftState> states;
  for (const auto& m : server.received(AIRCRAFT_STATE)) states.push_back(qvDecode<SngStateMsg>(m)->state);
  ASSERT_GE(states.size(), 3u);
  std::ranges::sort(states, {}, &SngAircraftState::time);
  EXPECT_LT(std::hypot(states[0].lat - 46.5, states[0].lon - 8.25, states[0].time - 4e4), 1e-2);
  for (size_t i = 1; i < states.size(); ++i) {
    EXPECT_NEAR(states[i].time - states[i - 1].time, 0.5, 1e-2);
    EXPECT_GT(states[i].lon, states[i - 1].lon);
  }
}

TEST(DescribeMessage, EveryCutOfAServerInfoIsReportedAsCutShortAndTextIsMadePrintable) {
  const Bytes whole = serverInfo();
  for (size_t n = 1; n <= whole.size(); ++n) {
    const QvMessage cut{whole[0], Bytes(whole.begin(), whole.begin() + long(n))};
    EXPECT_EQ(qvDescribeMessage(cut).find("cut short") != std::string::npos, n < whole.size()) << n;
  }
  EXPECT_EQ(std::make_tuple(qvTimeOfDay(48605.9), qvTimeOfDay(86400.0 + 3661.0), qvTimeOfDay(-1.0)),
            std::make_tuple("13:30:05", "01:01:01 +1d", "-1.0 s"));
  EXPECT_EQ(qvPrintable("a\x1b[2Jb\x7f Zürich"), "a?[2Jb? Zürich");
}

}  // namespace
