// Drives the real server with arbitrary event scripts through the scripted transport: connections,
// drops, any bytes as messages, well-formed LOGINs to reach the deeper handlers, and time passing.
// Nothing may crash, leak or hang; nested passes and slot reuse happen along the way.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

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

std::string& sceneryRoot() {
  static std::string root;
  return root;
}

SngServer* makeServer() {
  const std::string root = (std::filesystem::temp_directory_path() / ("qvfuzz-" + std::to_string(getpid()))).string();
  std::filesystem::create_directories(root + "/user/servers");
  qvscenery::Options options;
  options.outDir = root + "/data/scenery/test";
  options.south = 46.0;
  options.west = 7.0;
  options.cells = 4;
  options.single = true;
  options.spread = true;
  if (!qvscenery::validate(options).empty()) abort();
  if (!qvscenery::buildScenery(options, *qvscenery::makeFlat(350.0)).error.empty()) abort();
  sceneryRoot() = root;
  atexit([] { std::filesystem::remove_all(sceneryRoot()); });
  std::ofstream(root + "/user/servers/QVServer.stn")
      << "terrainId = test\nmp_server_port = 0\nmp_max_players = 4\ncompetition_mode = true\n"
         "start_gate_altitude_ref = 1\nstart_gate_altitude = 800\nregatta_start = true\n"
         "task {\n turnpoint {\n  lat = 46.01\n  lon = 7.01\n  name = Start\n }\n"
         " turnpoint {\n  lat = 46.05\n  lon = 7.05\n  oz = 1\n  angle1 = 45\n  angle2 = 30\n  name = Two\n }\n}\n";
  std::string dataArg = "-datadir=" + root + "/data", userArg = "-userdir=" + root + "/user";
  char* argv[] = {const_cast<char*>("qvserver"), dataArg.data(), userArg.data()};
  btkSetClockSource(&fuzzClock);
  btkSetExitHandler(&throwOnExit);
  initApplicationPaths(3, argv);
  auto* server = new SngServer();
  if (!server->init(3, argv)) abort();
  btkLogger.open("/dev/null", BTK_DEBUG, false);
  server->startLoopClocks();
  return server;
}

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool empty() const { return pos_ >= size_; }
  uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  std::vector<uint8_t> bytes(size_t n) {
    n = std::min(n, size_ - pos_);
    std::vector<uint8_t> out(data_ + pos_, data_ + pos_ + n);
    pos_ += n;
    return out;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static SngServer* server = makeServer();
  server->protocol().players().clear();
  auto* net = new SngScriptedNetwork();
  server->protocol().setNetwork(std::unique_ptr<SngNetwork>(net));
  std::vector<SngPeer> peers;
  Reader in(data, size);
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
          SngLoginMsg login;
          login.hw_id = in.byte();
          login.version_minor = in.byte() % 12;
          login.nick = "n";
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
