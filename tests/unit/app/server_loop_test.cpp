// The server's start-up and main loop driven in-process: an injected clock stands in for minutes of
// real time, and an exit handler that throws lets a test watch the process end.
#include <sys/stat.h>

#include <filesystem>

#include "ProtocolFixture.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using ServerLoop = ProtocolFixture;

TEST_F(ServerLoop, AnnouncedShutdownHappensEvenAfterTheKillFileIsRemoved) {
  startServer("");
  writeText(servers() + "/QVServer.kill", "  +5 minutes please\nServer closes in 5 minutes\n");
  writeText(servers() + "/QVServer.pid", "42\n");
  ASSERT_EQ(turn(1.5), std::nullopt);
  EXPECT_THAT(log(), HasSubstr("[info]: Shutdown: 5 min, msg = Server closes in 5 minutes\n"));
  std::remove((servers() + "/QVServer.kill").c_str());
  double elapsed = 0.0;
  std::optional<int> code;
  while (!code && elapsed < 400.0) {
    code = turn(0.5);
    elapsed += 0.5;
  }
  ASSERT_EQ(code, 0);
  EXPECT_NEAR(elapsed, 300.0, 1.0);
  EXPECT_THAT(log(), HasSubstr("[info]: Server Shutdown\n"));
  EXPECT_FALSE(fileExists(servers() + "/QVServer.pid"));
  // The announcement was read once: the poll stops while a shutdown is pending.
  const std::string text = log();
  EXPECT_EQ(text.find("Shutdown: 5 min"), text.rfind("Shutdown: 5 min"));
}

TEST_F(ServerLoop, KillFilePollWaitsForItsSecondAndBadOrNegativeMinutesMeanNow) {
  for (const char* minutes : {"soon", "-1", "-167", "-2147483648", "-99999999999999999999"}) {
    SCOPED_TRACE(minutes);
    startServer("");
    writeText(servers() + "/QVServer.kill", std::string(minutes) + "\r\nbye\r\n");
    ASSERT_EQ(turn(0.6), std::nullopt);
    EXPECT_THAT(log(), Not(HasSubstr("Shutdown:")));  // the first poll comes after 1 s
    ASSERT_EQ(turn(0.6), std::nullopt);
    EXPECT_THAT(log(), HasSubstr("min, msg = bye\n"));
    EXPECT_EQ(turn(0.1), 0);
  }
}

TEST_F(ServerLoop, AKillFileOrMessageOfTheDayThatIsNoRegularFileIsNotRead) {
  for (const bool fifo : {true, false}) {
    SCOPED_TRACE(fifo ? "FIFO" : "directory");
    const std::string kill = servers() + "/QVServer.kill", motd = servers() + "/motd";
    std::filesystem::remove_all(kill);
    std::filesystem::remove_all(motd);
    std::filesystem::create_directories(servers());
    // Nobody ever writes to the FIFOs: a reader that opened them blocking would hang the test.
    ASSERT_EQ(fifo ? mkfifo(motd.c_str(), 0600) : mkdir(motd.c_str(), 0700), 0);
    startServer("mp_server_message_file = motd\n");
    ASSERT_EQ(fifo ? mkfifo(kill.c_str(), 0600) : mkdir(kill.c_str(), 0700), 0);  // after start-up removed any
    for (int i = 0; i < 5; ++i) ASSERT_EQ(turn(1.0), std::nullopt);
    EXPECT_EQ(countOf(log(), "QVServer.kill is not a regular file: ignored"), 1u);
    EXPECT_THAT(log(), Not(HasSubstr("Shutdown:")));
    EXPECT_EQ(server->session().motd, "");
    EXPECT_THAT(log(), HasSubstr("Couldn't open MOTD file: " + motd));
  }
}

TEST_F(ServerLoop, OnlyAnEmptyServerPastTheGateResetsItsClock) {
  startServer("time = 10:00:00\nstart_gate_open_time = 600\n");
  ASSERT_EQ(turn(1.0), std::nullopt);
  EXPECT_FLOAT_EQ(server->session().sim_time, 36001.0f);
  ASSERT_EQ(turn(1.5), std::nullopt);  // the periodic work runs first, then the pass adds 1.5 s
  EXPECT_FLOAT_EQ(server->session().sim_time, 36001.5f);
  EXPECT_THAT(log(), HasSubstr("[debug]: Timer reset: curr_time = 36000"));

  auto player = std::make_unique<SngSrvPlayer>(&server->protocol(), SngPeer(), 0, 0);
  player->idle = true;
  player->idle_time_left = 1e9f;
  server->protocol().players().seat(std::move(player));
  ASSERT_EQ(turn(2.5), std::nullopt);
  EXPECT_FLOAT_EQ(server->session().sim_time, 36004.0f);
  // Before the gate opens an empty server keeps its time.
  startServer("time = 12:00:00\nstart_gate_open_time = 13:00:00\n");
  for (int i = 0; i < 2; ++i) ASSERT_EQ(turn(2.5), std::nullopt);
  EXPECT_FLOAT_EQ(server->session().sim_time, 43205.0f);
}

TEST_F(ServerLoop, MessageOfTheDayKeepsTheFinalEmptyReadAndIsCut) {
  std::string lines;  // every joining client receives the whole message: a huge file is cut at 16 KiB
  for (int i = 0; i < 2000; ++i) lines += "line " + std::to_string(i) + "\n";
  const std::pair<std::string, std::string> cases[] = {
      {"Welcome\nFly safe\n", "Welcome\nFly safe\n\n"},
      {"Welcome\r\nFly safe", "Welcome\nFly safe\n"},
      {std::string(1500, 'm') + "\nnever read\n", std::string(1023, 'm') + "\n"},
      {lines, lines.substr(0, SngServer::kMaxMotdBytes)}};
  for (const auto& [file, motd] : cases) {
    writeText(servers() + "/motd.txt", file);
    ASSERT_TRUE(initServer("mp_server_message_file = motd.txt\n"));
    EXPECT_EQ(server->session().motd, motd);
  }
  EXPECT_THAT(log(), HasSubstr("[warning]: MOTD file " + servers() + "/motd.txt is longer than 16384 bytes"));
}

TEST_F(ServerLoop, StartUpDerivesChannelSlotsAndSwitchesFromSituationAndOptions) {
  ASSERT_TRUE(initServer("mp_comm_frq = 122.5\nmp_max_players = 50\n", {"-lan", "-web_interval=abc"}));
  EXPECT_EQ(server->session().default_comm_channel, 180);
  EXPECT_EQ(server->protocol().players().size(), 32u);
  ASSERT_TRUE(initServer("mp_max_players = 8\n", {"-web=http://example"}));
  EXPECT_EQ(server->protocol().players().size(), 8u);
  EXPECT_EQ(server->session().default_comm_channel, 218);
}

}  // namespace
