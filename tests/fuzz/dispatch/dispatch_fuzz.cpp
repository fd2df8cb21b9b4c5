// Drives the real server with arbitrary event scripts through the scripted transport: connections,
// drops, any bytes as messages, well-formed LOGINs to reach the deeper handlers, and time passing.
// Nothing may crash, leak or hang; nested passes and slot reuse happen along the way.
#include <fstream>
#include <memory>

#include "../FuzzInput.h"
#include "ElevationSource.h"
#include "SceneryBuilder.h"
#include "app/SngAppPaths.h"
#include "app/SngServer.h"
#include "wire/SngMessages.h"
#include "net/SngScriptedNetwork.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkLogger.h"

namespace {

struct Exited {};
void throwOnExit(int) { throw Exited{}; }

BtkManualClock fuzzClock;

SngServer* makeServer() {
  const std::string& root = fuzzDir();
  std::filesystem::create_directories(root + "/user/servers");
  const qvscenery::Options scenery{.outDir = root + "/data/scenery/test", .south = 46.0, .west = 7.0, .cells = 4,
                                   .single = true, .resolutions = {}, .spread = true};
  if (!qvscenery::buildScenery(scenery, *qvscenery::makeFlat(350.0)).error.empty()) abort();
  std::ofstream(root + "/user/servers/QVServer.stn")
      << "terrainId = test\nmp_server_port = 0\nmp_max_players = 4\ncompetition_mode = true\n"
         "start_gate_altitude_ref = 1\nstart_gate_altitude = 800\nregatta_start = true\n"
         "task {\n turnpoint {\n  lat = 46.01\n  lon = 7.01\n  name = Start\n }\n"
         " turnpoint {\n  lat = 46.05\n  lon = 7.05\n  oz = 1\n  angle1 = 45\n  angle2 = 30\n  name = Two\n }\n}\n";
  std::string dataArg = "-datadir=" + root + "/data", userArg = "-userdir=" + root + "/user";
  char* argv[] = {const_cast<char*>("qvserver"), dataArg.data(), userArg.data(), const_cast<char*>("-scan_port=0")};
  btkSetClockSource(&fuzzClock);
  btkSetExitHandler(&throwOnExit);
  initApplicationPaths(4, argv);
  auto* server = new SngServer();
  if (!server->init(4, argv)) abort();
  btkLogger.open("/dev/null", BTK_DEBUG, false);
  server->startLoopClocks();
  return server;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static SngServer* server = makeServer();
  server->protocol().players().clear();
  auto* net = new SngScriptedNetwork();
  server->protocol().setNetwork(std::unique_ptr<SngNetwork>(net));
  std::vector<SngPeer> peers;
  FuzzReader in{data, size};
  try {
    for (int step = 0; step < 256 && !in.empty(); ++step) {
      const uint8_t op = in.byte();
      const SngPeer peer = peers.empty() ? SngPeer() : peers[in.byte() % peers.size()];
      switch (op % 6) {
        case 0:
          if (peers.size() < 40) peers.push_back(net->connect(127, 0, 0, static_cast<uint8_t>(1 + op / 6 % 3)));
          break;
        case 1: net->drop(peer); break;
        case 2: net->receive(peer, in.bytes(in.byte()), op & 0x40 ? 1 : 0); break;
        case 3: {
          const uint8_t hwId = in.byte();
          const SngLoginMsg login{.version_minor = uint8_t(in.byte() % 12), .hw_id = hwId, .pilot_name = "", .nick = "n"};
          net->receive(peer, sngMessage(SngNet::LOGIN, login).bytes);
          break;
        }
        case 4:
          fuzzClock.advanceSeconds(in.byte() * 0.5);
          server->loopIteration(0);
          break;
        case 5: server->update(0); break;
      }
    }
    // Every connection ends with the input, so that the next input starts with an empty table.
    for (const SngPeer& peer : peers) net->drop(peer);
    for (int i = 0; i < 1000 && net->pending() > 0; ++i) server->update(0);
  } catch (const Exited&) {
    abort();  // nothing in a client's power may stop the server
  }
  return 0;
}
