// Start-up and shutdown of the real qvserver: what it refuses to start with and says where, where its
// files go, and how its kill file or SIGTERM stops it in order.
#include <gmock/gmock.h>
#include <signal.h>

#include <sstream>

#include "testutil/ServerWorld.h"

using namespace std::chrono_literals;
using ::testing::HasSubstr;

namespace {

// In a row "~" stands for the per-user tree and "@" for the world's root, which exists only once the
// row runs; a row lists several items in one text, split at `separator`.
std::vector<std::string> expand(const std::string& text, const ServerWorld& w, char separator = '|') {
  std::vector<std::string> items;
  std::istringstream in(text);
  const std::string perUserTree = w.tmp.path("home/.local/share/Quorvane/Quorvane Simulator");
  for (std::string item; std::getline(in, item, separator); items.push_back(item)) {
    for (size_t at; (at = item.find_first_of("~@")) != std::string::npos;)
      item.replace(at, 1, item[at] == '@' ? w.tmp.root() : perUserTree);
  }
  return items;
}

// args: after -datadir= and -scan_port=, split at spaces; the situation is the -stn= one or QVServer.stn.
// serverName: names the kill and pid files; empty: start-up fails with exit code 1.
// strayKillFiles: there before the start, split at spaces; none may stop the server.
// logLines: in this order, split at '|'; inStderr: split at '|'.
struct Start {
  const char* name;
  std::string args, situationLines, serverName, strayKillFiles, logLines, inStderr = "";
  bool bySigterm = false, gamePortTaken = false;
};

// Each row in a world of its own, so that an ASSERT ends only its row.
void expectStart(const Start& row) {
  ServerWorld w;
  const std::string servers = w.serversDir() + "/", own = servers + row.serverName;
  const bool refused = row.serverName.empty(), perUser = row.args.find("-userdir=") == std::string::npos;
  const size_t stn = row.args.find("-stn=");
  w.writeSituation(stn == std::string::npos ? "QVServer.stn" : row.args.substr(stn + 5), row.situationLines);
  for (const std::string& file : expand(row.strayKillFiles, w, ' ')) writeText(servers + file, "0\nstray\n");
  const int holder = row.gamePortTaken ? bindUdpSocket(w.port) : -1;
  ASSERT_TRUE(w.sceneryBuilt && w.start(expand(row.args, w, ' '), /*withUserDir=*/false));
  if (!refused) {
    ASSERT_TRUE(waitForText(w.logPath(), "Starting main loop..."));
    // The server's own kill file from before the start is stale: removed before the loop polls it.
    for (const std::string& file : expand(row.strayKillFiles, w, ' '))
      EXPECT_EQ(fileExists(servers + file), servers + file != own + ".kill") << file;
    writeText(own + ".pid", "12345\n");
    row.bySigterm ? w.server->sendSignal(SIGTERM) : writeText(own + ".kill", "0\nbye\n");
  }
  ASSERT_TRUE(w.server->waitExit(15s));
  if (holder >= 0) close(holder);
  EXPECT_EQ(w.server->exitCode(), refused ? 1 : 0);
  EXPECT_FALSE(fileExists(own + ".pid") || fileExists(own + ".kill"));
  // Without -userdir= the per-user tree is made and holds the log; a given user directory never is.
  for (const char* sub : {"/IGC", "/log", "/aircraft", "/scenery", "/situation", "/servers"})
    EXPECT_EQ(fileExists(expand("~", w)[0] + sub), perUser) << sub;
  EXPECT_FALSE(fileExists(w.tmp.path("nowhere")));
  for (const std::string& text : expand(row.inStderr, w))
    EXPECT_THAT(w.server->stderrText(), HasSubstr(text));
  std::vector<std::string> lines = expand(row.logLines, w);
  if (!refused && !row.bySigterm) lines.push_back("[info]: Shutdown: 0 min, msg = bye\n");
  if (!refused) lines.push_back("[info]: Server Shutdown\n");
  const std::string log = readText(perUser ? expand("~/servers/qvserver.log", w)[0] : w.logPath());
  size_t at = 0;
  for (const std::string& line : lines)
    ASSERT_NE(at = log.find(line, at), std::string::npos) << line << " (in this order) in\n" << log;
  // "Log closing" is the last line, with an empty line behind it.
  EXPECT_TRUE(refused || log.ends_with("[info]: Log closing\n\n"));
}

TEST(StartUp, StartsOrRefusesAndSaysWhyAndStopsInOrderByItsOwnKillFileOrSigterm) {
  const Start rows[] = {
      {"no user directory: the per-user tree", "", "", "", "",
       "[fatal]: Couldn't open situation file: ~/servers/QVServer.stn"},
      {"a user directory that does not exist", "-userdir=@/nowhere", "", "", "", "",
       "[fatal]: Couldn't open situation file: @/nowhere/servers/QVServer.stn"},
      {"unknown option", "-userdir=@/user -verbose", "", "", "", "", "unknown option: -verbose\n"},
      {"no player slots", "-userdir=@/user", "mp_max_players = 0\n", "", "",
       "[fatal]: Invalid mp_max_players = 0"},
      {"missing scenery", "-userdir=@/user", "terrainId = nowhere\n", "", "",
       "[error]: SngFlightModule: couldn't open any of the terrains in @/data/scenery/nowhere",
       "Init terrain model: nowhere failed!\n"},
      {"game port taken", "-userdir=@/user", "", "", "",
       "[error]: An error occurred while trying to create an ENet server host.",
       "An error occurred while trying to create an ENet server host.\n", false, true},
      // 4 cells of 1/64 degree: 0.0625 degree north-south is 6.9 km on the 111195 m-per-degree sphere.
      {"-d options and everything after an argument without a dash", "-userdir=@/user -debug extra -bogus",
       "", "QVServer", "",
       "server name: QVServer\n|situation file: QVServer.stn\n|[info]: scenery: test "
       "(test)|[debug]: Total area: 6.9 km NS, 4.8 km EW|[debug]: Thermal grid: 1 x 1"},
      {"situation in a subdirectory", "-userdir=@/user -stn=club/evening.stn", "time = 17:45:10\n", "evening",
       "club/evening.kill QVServer.kill",
       "server name: evening\n|situation file: club/evening.stn\n|Simulation time: 17:45:10"},
      {"a leading dot is no extension", "-userdir=@/user -stn=.hidden", "", ".hidden", "",
       "server name: .hidden\n"},
      {"missing message of the day", "-userdir=@/user", "mp_server_message_file = missing.txt\n", "QVServer",
       "", "[error]: Couldn't open MOTD file: @/user/servers/missing.txt"},
      {"SIGTERM, and a stale kill file", "-userdir=@/user", "", "QVServer", "QVServer.kill",
       "[info]: Received SIGTERM, shutting down|[info]: Shutdown: 0 min, msg = (no message)", "", true},
  };

  for (const Start& row : rows) {
    SCOPED_TRACE(row.name);
    expectStart(row);
  }
}

}  // namespace
