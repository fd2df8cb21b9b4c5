// The server's start-up and main loop driven in-process: an injected clock stands in for minutes of
// real time, and an exit handler that throws lets a test watch the process end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "app/SngAppPaths.h"
#include "app/SngServer.h"
#include "session/SngSrvPlayer.h"
#include "testutil/Files.h"
#include "testutil/Ports.h"
#include "testutil/Scenery.h"
#include "testutil/TempDir.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkLogger.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

struct ExitCalled {
  int code;
};
void throwOnExit(int code) { throw ExitCalled{code}; }

class ServerLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(buildScenery(tmp.path("data")));
    btkSetClockSource(&clock);
    btkSetExitHandler(&throwOnExit);
  }
  void TearDown() override {
    server.reset();
    btkSetExitHandler(nullptr);
    btkSetClockSource(nullptr);
    btkLogger.closeFile();
    btkLogger.setThreshold(BTK_INFO);
  }

  std::string servers() const { return tmp.path("user/servers"); }
  std::string log() const { return readText(servers() + "/qvserver.log"); }

  void writeSituation(const std::string& extra) {
    writeText(servers() + "/QVServer.stn",
              "terrainId = test\nmp_server_port = " + std::to_string(freeUdpPort()) + "\n" + extra);
  }

  bool initServer(std::vector<std::string> extra = {}) {
    std::vector<std::string> args{"qvserver", "-datadir=" + tmp.path("data"), "-userdir=" + tmp.path("user")};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    initApplicationPaths(static_cast<int>(argv.size()), argv.data());
    server = std::make_unique<SngServer>();
    return server->init(static_cast<int>(argv.size()), argv.data());
  }

  // Advances the clock and runs one loop turn without a network wait; the exit code if it ended.
  std::optional<int> turn(double seconds) {
    clock.advanceSeconds(seconds);
    try {
      server->loopIteration(0);
    } catch (const ExitCalled& e) {
      return e.code;
    }
    return std::nullopt;
  }

  TempDir tmp;
  BtkManualClock clock;
  std::unique_ptr<SngServer> server;
};

TEST_F(ServerLoop, AnnouncedShutdownHappensEvenAfterTheKillFileIsRemoved) {
  writeSituation("");
  ASSERT_TRUE(initServer());
  server->startLoopClocks();
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

TEST_F(ServerLoop, KillFilePollWaitsForItsSecondAndBadMinutesMeanNow) {
  writeSituation("");
  ASSERT_TRUE(initServer());
  server->startLoopClocks();
  writeText(servers() + "/QVServer.kill", "soon\n");
  ASSERT_EQ(turn(0.6), std::nullopt);
  EXPECT_THAT(log(), Not(HasSubstr("Shutdown:")));  // the first poll comes after 1 s
  ASSERT_EQ(turn(0.6), std::nullopt);
  EXPECT_THAT(log(), HasSubstr("Shutdown: 0 min, msg = (no message)"));
  EXPECT_EQ(turn(0.1), 0);
}

TEST_F(ServerLoop, EmptyServerPastTheGateResetsItsClockButAnIdlePlayerKeepsIt) {
  writeSituation("time = 10:00:00\nstart_gate_open_time = 600\n");
  ASSERT_TRUE(initServer());
  server->startLoopClocks();
  ASSERT_EQ(turn(1.0), std::nullopt);
  EXPECT_FLOAT_EQ(server->sim_time, 36001.0f);
  ASSERT_EQ(turn(1.5), std::nullopt);  // the periodic work runs first, then the pass adds 1.5 s
  EXPECT_FLOAT_EQ(server->sim_time, 36001.5f);
  EXPECT_THAT(log(), HasSubstr("[debug]: Timer reset: curr_time = 36000"));

  auto player = std::make_unique<SngSrvPlayer>(server.get(), SngPeer(), 0, 0);
  player->idle = true;
  player->idle_time_left = 1e9f;
  server->players[0] = std::move(player);
  ASSERT_EQ(turn(2.5), std::nullopt);
  EXPECT_FLOAT_EQ(server->sim_time, 36004.0f);
}

TEST_F(ServerLoop, NoClockResetBeforeTheGateOpens) {
  writeSituation("time = 12:00:00\nstart_gate_open_time = 13:00:00\n");
  ASSERT_TRUE(initServer());
  server->startLoopClocks();
  ASSERT_EQ(turn(2.5), std::nullopt);
  ASSERT_EQ(turn(2.5), std::nullopt);
  EXPECT_FLOAT_EQ(server->sim_time, 43205.0f);
  EXPECT_THAT(log(), Not(HasSubstr("Timer reset")));
}

TEST_F(ServerLoop, StopSignalShutsDownOnTheNextPasses) {
  writeSituation("");
  ASSERT_TRUE(initServer());
  server->startLoopClocks();
  sngInstallStopSignalHandlers();
  raise(SIGINT);
  ASSERT_EQ(turn(0.01), std::nullopt);
  EXPECT_THAT(log(), HasSubstr("[info]: Received SIGINT, shutting down"));
  EXPECT_EQ(turn(0.01), 0);
  signal(SIGINT, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
}

TEST_F(ServerLoop, MessageOfTheDayKeepsTheFinalEmptyRead) {
  writeSituation("mp_server_message_file = motd.txt\n");
  writeText(servers() + "/motd.txt", "Welcome\nFly safe\n");
  ASSERT_TRUE(initServer());
  EXPECT_EQ(server->motd, "Welcome\nFly safe\n\n");
  server.reset();
  writeText(servers() + "/motd.txt", "Welcome\nFly safe");
  ASSERT_TRUE(initServer());
  EXPECT_EQ(server->motd, "Welcome\nFly safe\n");
  server.reset();
  writeText(servers() + "/motd.txt", std::string(1500, 'm') + "\nnever read\n");
  ASSERT_TRUE(initServer());
  EXPECT_EQ(server->motd, std::string(1023, 'm') + "\n");
}

TEST_F(ServerLoop, StartUpDerivesChannelSlotsAndSwitchesFromSituationAndOptions) {
  writeSituation("mp_comm_frq = 122.5\nmp_max_players = 50\n");
  ASSERT_TRUE(initServer({"-lan", "-web_interval=abc"}));
  EXPECT_EQ(server->default_comm_channel, 180);
  EXPECT_EQ(server->players.size(), 32u);
  EXPECT_TRUE(server->lan_only);
  EXPECT_FALSE(server->web_enabled);
  EXPECT_FLOAT_EQ(server->web_interval, 0.0f);
  server.reset();
  writeSituation("mp_max_players = 8\n");
  ASSERT_TRUE(initServer({"-web=http://example"}));
  EXPECT_EQ(server->players.size(), 8u);
  EXPECT_TRUE(server->web_enabled);
  EXPECT_EQ(server->default_comm_channel, 218);
}

}  // namespace
