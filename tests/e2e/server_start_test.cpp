#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <regex>

#include "e2e/ServerFixture.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using StartUp = ServerFixture;

// The position of the first occurrence, or npos; lets a test check the order of log lines.
size_t at(const std::string& text, const std::string& line) { return text.find(line); }

TEST_F(StartUp, WithoutUserDirCreatesThePerUserTreeAndStopsWithoutASituation) {
  ServerProcess& s = start({}, /*withUserDir=*/false);
  ASSERT_TRUE(s.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(s.exitCode(), 1);
  const std::string root = xdgData() + "/Quorvane/Quorvane Simulator";
  for (const char* sub : {"/IGC", "/log", "/aircraft", "/scenery", "/situation", "/servers"}) {
    EXPECT_TRUE(fileExists(root + sub)) << sub;
  }
  const std::string log = readText(root + "/servers/qvserver.log");
  EXPECT_THAT(log, HasSubstr("[info]: Starting Quorvane server Quorvane Server v1.20.2 (LINUX), protocol V1.08"));
  EXPECT_THAT(log, HasSubstr("[info]: server name: QVServer"));
  EXPECT_THAT(log, HasSubstr("[info]: situation file: QVServer.stn"));
  EXPECT_THAT(log, HasSubstr("[fatal]: Couldn't open situation file: " + root + "/servers/QVServer.stn"));
  EXPECT_THAT(log, HasSubstr("[info]: Log closing"));
}

TEST_F(StartUp, UserDirPointingNowhereCreatesNothingAndFailsOnTheSituation) {
  const std::string nowhere = tmp.path("nowhere");
  ServerProcess& s = start({"-userdir=" + nowhere}, /*withUserDir=*/false);
  ASSERT_TRUE(s.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(s.exitCode(), 1);
  EXPECT_FALSE(fileExists(nowhere));
  EXPECT_FALSE(fileExists(xdgData() + "/Quorvane"));
  const std::string err = s.stderrText();
  EXPECT_THAT(err, HasSubstr("Couldn't open log file!\n"));
  EXPECT_THAT(err, HasSubstr("[fatal]: Couldn't open situation file: " + nowhere + "/servers/QVServer.stn"));
}

TEST_F(StartUp, UnknownOptionEndsStartUpButDashDOptionsAreAccepted) {
  ServerProcess& s = start({"-verbose"});
  ASSERT_TRUE(s.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(s.exitCode(), 1);
  EXPECT_THAT(s.stderrText(), HasSubstr("unknown option: -verbose\n"));

  writeSituation("QVServer.stn");
  ServerProcess& d = start({"-debug"});
  ASSERT_TRUE(waitForText(logPath(), "Simulation time: 12:00:00"));
  ASSERT_TRUE(stopWithKillFile());
  EXPECT_EQ(d.exitCode(), 0);
  EXPECT_THAT(d.stderrText(), Not(HasSubstr("unknown option")));
}

TEST_F(StartUp, ScanningStopsAtTheFirstArgumentWithoutADash) {
  writeSituation("QVServer.stn");
  ServerProcess& s = start({"-lan", "extra", "-bogus"});  // "-bogus" is never looked at
  ASSERT_TRUE(waitForText(logPath(), "Simulation time:"));
  ASSERT_TRUE(stopWithKillFile());
  EXPECT_EQ(s.exitCode(), 0);
}

TEST_F(StartUp, SituationInASubdirectoryNamesTheServerAndItsKillFile) {
  writeSituation("club/evening.stn", "time = 17:45:10\n");
  ServerProcess& s = start({"-stn=club/evening.stn"});
  ASSERT_TRUE(waitForText(logPath(), "Simulation time: 17:45:10"));
  std::string log = readText(logPath());
  EXPECT_THAT(log, HasSubstr("server name: evening\n"));
  EXPECT_THAT(log, HasSubstr("situation file: club/evening.stn\n"));
  // A kill file named after the full situation name, or in the subdirectory, does not stop it.
  writeText(serversDir() + "/club/evening.kill", "0\n");
  writeText(serversDir() + "/QVServer.kill", "0\n");
  ASSERT_TRUE(stopWithKillFile("evening"));
  EXPECT_EQ(s.exitCode(), 0);
  EXPECT_TRUE(fileExists(serversDir() + "/QVServer.kill"));
}

TEST_F(StartUp, ALeadingDotIsNoExtension) {
  writeSituation(".hidden");
  ServerProcess& s = start({"-stn=.hidden"});
  ASSERT_TRUE(waitForText(logPath(), "server name: .hidden\n"));
  ASSERT_TRUE(stopWithKillFile(".hidden"));
  EXPECT_EQ(s.exitCode(), 0);
}

TEST_F(StartUp, AStaleKillFileIsRemovedAndDoesNotStopTheNewServer) {
  writeSituation("QVServer.stn");
  writeText(serversDir() + "/QVServer.kill", "0\n");
  ServerProcess& s = start({});
  ASSERT_TRUE(waitForText(logPath(), "Simulation time:"));
  // Removed before the loop starts, so the poll can never see it.
  EXPECT_FALSE(fileExists(serversDir() + "/QVServer.kill"));
  ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  EXPECT_TRUE(s.running());
  ASSERT_TRUE(stopWithKillFile("QVServer", "0\nbye\n"));
  EXPECT_EQ(s.exitCode(), 0);
  const std::string log = readText(logPath());
  EXPECT_EQ(log.find("Shutdown:"), log.find("Shutdown: 0 min, msg = bye"));
}

TEST_F(StartUp, KillFileOfZeroMinutesStopsInOrderAndRemovesKillAndPidFiles) {
  writeSituation("QVServer.stn");
  ServerProcess& s = start({});
  ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  writeText(serversDir() + "/QVServer.pid", "12345\n");
  ASSERT_TRUE(stopWithKillFile("QVServer", "0\n"));
  EXPECT_EQ(s.exitCode(), 0);
  EXPECT_FALSE(fileExists(serversDir() + "/QVServer.kill"));
  EXPECT_FALSE(fileExists(serversDir() + "/QVServer.pid"));
  const std::string log = readText(logPath());
  const size_t shutdownLine = at(log, "[info]: Shutdown: 0 min, msg = (no message)\n");
  const size_t serverShutdown = at(log, "[info]: Server Shutdown\n");
  const size_t closing = at(log, "[info]: Log closing\n");
  ASSERT_NE(shutdownLine, std::string::npos);
  ASSERT_NE(serverShutdown, std::string::npos);
  ASSERT_NE(closing, std::string::npos);
  EXPECT_LT(shutdownLine, serverShutdown);
  EXPECT_LT(serverShutdown, closing);
  // "Log closing" is the last line of the file; "Server Shutdown\n" leaves an empty line behind it.
  EXPECT_EQ(log.substr(closing), "[info]: Log closing\n\n");
}

TEST_F(StartUp, SigtermStartsTheSameOrderlyShutdown) {
  writeSituation("QVServer.stn");
  ServerProcess& s = start({});
  ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  writeText(serversDir() + "/QVServer.pid", "1\n");
  s.sendSignal(SIGTERM);
  ASSERT_TRUE(s.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(s.exitCode(), 0);
  EXPECT_FALSE(fileExists(serversDir() + "/QVServer.pid"));
  const std::string log = readText(logPath());
  EXPECT_LT(at(log, "[info]: Received SIGTERM, shutting down"),
            at(log, "[info]: Shutdown: 0 min, msg = (no message)"));
  EXPECT_LT(at(log, "Shutdown: 0 min"), at(log, "[info]: Server Shutdown"));
  EXPECT_THAT(log, HasSubstr("[info]: Log closing"));
}

TEST_F(StartUp, TooFewPlayerSlotsRefuseToStart) {
  writeSituation("QVServer.stn", "mp_max_players = 0\n");
  ServerProcess& s = start({});
  ASSERT_TRUE(s.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(s.exitCode(), 1);
  EXPECT_THAT(readText(logPath()), HasSubstr("[fatal]: Invalid mp_max_players = 0"));
}

TEST_F(StartUp, APortInUseEndsStartUpWithBothMessages) {
  writeSituation("QVServer.stn");
  ServerProcess& first = start({});
  ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  writeText(tmp.path("second/servers/QVServer.stn"), "terrainId = test\nmp_server_port = " + std::to_string(port) + "\n");
  ServerProcess second(std::string(QV_BINARY_DIR) + "/src/app/qvserver",
                       {"-datadir=" + dataDir(), "-userdir=" + tmp.path("second")},
                       {{"HOME", home()}, {"XDG_DATA_HOME", xdgData()}}, tmp.path("second"));
  ASSERT_TRUE(second.start());
  ASSERT_TRUE(second.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(second.exitCode(), 1);
  EXPECT_THAT(second.stderrText(), HasSubstr("An error occurred while trying to create an ENet server host.\n"));
  EXPECT_THAT(readText(tmp.path("second/servers/qvserver.log")),
              HasSubstr("[error]: An error occurred while trying to create an ENet server host."));
  ASSERT_TRUE(stopWithKillFile());
  EXPECT_EQ(first.exitCode(), 0);
}

TEST_F(StartUp, MessageOfTheDayFileThatIsMissingOnlyCostsTheMessage) {
  writeSituation("QVServer.stn", "mp_server_message_file = missing.txt\n");
  ServerProcess& s = start({});
  ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  EXPECT_THAT(readText(logPath()), HasSubstr("[error]: Couldn't open MOTD file: " + serversDir() + "/missing.txt"));
  ASSERT_TRUE(stopWithKillFile());
  EXPECT_EQ(s.exitCode(), 0);
}

}  // namespace

namespace {

using SceneryStartUp = ServerFixture;

TEST_F(SceneryStartUp, LogsTheSceneryAndItsExtent) {
  writeSituation("QVServer.stn");
  ServerProcess& s = start({});
  ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  const std::string log = readText(logPath());
  EXPECT_THAT(log, HasSubstr("[info]: scenery: test (test)"));
  // 4 cells of 1/64 degree: 0.0625 degree north-south is 6.9 km on the 111195 m-per-degree sphere.
  EXPECT_THAT(log, HasSubstr("[debug]: Total area: 6.9 km NS, 4.8 km EW"));
  EXPECT_THAT(log, HasSubstr("[debug]: Thermal grid: 1 x 1"));
  ASSERT_TRUE(stopWithKillFile());
  EXPECT_EQ(s.exitCode(), 0);
}

TEST_F(SceneryStartUp, AMissingSceneryEndsStartUp) {
  writeSituation("QVServer.stn", "terrainId = nowhere\n");
  ServerProcess& s = start({});
  ASSERT_TRUE(s.waitExit(std::chrono::seconds(15)));
  EXPECT_EQ(s.exitCode(), 1);
  EXPECT_THAT(s.stderrText(), HasSubstr("Init terrain model: nowhere failed!\n"));
  EXPECT_THAT(readText(logPath()), HasSubstr("[error]: SngFlightModule: couldn't open any of the terrains in " +
                                             dataDir() + "/scenery/nowhere"));
}

}  // namespace
