// A private world for one real qvserver process: its own home, user and data directories under a
// temporary root, its own game port and LAN scan port, and an environment that keeps the host
// machine's own settings out of the result. Shared by the end-to-end tests and the network benchmark.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "testutil/Ports.h"
#include "testutil/Scenery.h"
#include "testutil/TempDir.h"

class ServerWorld {
 public:
  std::string serversDir() const { return tmp.path("user/servers"); }
  std::string logPath() const { return serversDir() + "/qvserver.log"; }

  // A situation with this world's port and scenery; extra lines go after the server keys.
  void writeSituation(const std::string& name, const std::string& extra = "") const {
    writeText(serversDir() + "/" + name, "terrainId = test\nmp_server_name = Test server\nmp_server_port = " +
                                             std::to_string(port) + "\n" + extra);
  }

  // Starts the real qvserver with -datadir=, -scan_port= and -userdir= (unless withUserDir is false)
  // first, then the extra arguments. False when the process could not be started.
  bool start(std::vector<std::string> extraArgs = {}, bool withUserDir = true) {
    std::vector<std::string> args{"-datadir=" + tmp.path("data"), "-scan_port=" + std::to_string(scanPort)};
    if (withUserDir) args.push_back("-userdir=" + tmp.path("user"));
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    server = std::make_unique<ServerProcess>(tmp.path("out"));
    return server->start(std::string(QV_BINARY_DIR) + "/src/app/qvserver", args,
                         {{"HOME", tmp.path("home")}, {"XDG_DATA_HOME", tmp.path("home/.local/share")}});
  }

  // The server stops by its own kill file; true when it has exited within the deadline.
  bool stopWithKillFile(const std::string& serverName = "QVServer", const std::string& content = "0\n") {
    writeText(serversDir() + "/" + serverName + ".kill", content);
    return server->waitExit(std::chrono::seconds(15));
  }

  TempDir tmp;
  const uint16_t port = freeUdpPort(), scanPort = freeUdpPort(port);
  // Every server needs a scenery: a flat one 350 m above the sphere, named "test".
  const bool sceneryBuilt = buildScenery(tmp.path("data"));
  std::unique_ptr<ServerProcess> server;
};
