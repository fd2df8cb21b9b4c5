// A private world for one real server process: its own home, user and data directories under a
// temporary root, its own port, and the environment that keeps the host machine out of the result.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "testutil/Files.h"
#include "testutil/Ports.h"
#include "testutil/Scenery.h"
#include "testutil/ServerProcess.h"
#include "testutil/TempDir.h"

class ServerFixture : public ::testing::Test {
 protected:
  // Every server needs a scenery: a flat one 350 m above the sphere, named "test".
  ServerFixture() : port(freeUdpPort()) { EXPECT_TRUE(buildScenery(dataDir())); }

  std::string home() const { return tmp.path("home"); }
  std::string xdgData() const { return tmp.path("home/.local/share"); }
  std::string userDir() const { return tmp.path("user"); }
  std::string dataDir() const { return tmp.path("data"); }
  std::string serversDir() const { return userDir() + "/servers"; }
  std::string logPath() const { return serversDir() + "/qvserver.log"; }

  // A situation with this fixture's port and scenery; extra lines go after the server keys.
  void writeSituation(const std::string& name, const std::string& extra = "") {
    writeText(serversDir() + "/" + name, "terrainId = test\nmp_server_name = Test server\nmp_server_port = " +
                                             std::to_string(port) + "\n" + extra);
  }

  // Starts the real qvserver with -datadir= and -userdir= first, then the extra arguments.
  ServerProcess& start(std::vector<std::string> extraArgs, bool withUserDir = true) {
    std::vector<std::string> args{"-datadir=" + dataDir()};
    if (withUserDir) args.push_back("-userdir=" + userDir());
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    writeText(tmp.path("out/.keep"), "");
    server = std::make_unique<ServerProcess>(
        std::string(QV_BINARY_DIR) + "/src/app/qvserver", args,
        std::map<std::string, std::string>{{"HOME", home()}, {"XDG_DATA_HOME", xdgData()}}, tmp.path("out"));
    EXPECT_TRUE(server->start());
    return *server;
  }

  // The server stops by its own kill file; true when it has exited within the deadline.
  bool stopWithKillFile(const std::string& serverName = "QVServer", const std::string& content = "0\n") {
    writeText(serversDir() + "/" + serverName + ".kill", content);
    return server->waitExit(std::chrono::seconds(15));
  }

  TempDir tmp;
  uint16_t port;
  std::unique_ptr<ServerProcess> server;
};
