// A real server, started from a real situation and scenery, whose transport is scripted: tests queue
// connections and messages, run passes with an injected clock, and read what the server sent.
#pragma once

// Messages are written as designated initialisers; the fields they leave out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include "app/SngAppPaths.h"
#include "app/SngServer.h"
#include "wire/SngMessages.h"
#include "wire/SngNet.h"
#include "net/SngScriptedNetwork.h"
#include "testutil/Files.h"
#include "testutil/Ports.h"
#include "testutil/Scenery.h"
#include "testutil/Text.h"
#include "testutil/TempDir.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkLogger.h"

struct ExitCalled {
  int code;
};
inline void throwOnExit(int code) { throw ExitCalled{code}; }

class ProtocolFixture : public ::testing::Test {
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

  // Starts the server on a situation of the lines given, with further command-line options; its
  // transport becomes the scripted one and the loop's clocks start.
  void startServer(const std::string& situationLines = "", std::vector<std::string> options = {}) {
    ASSERT_TRUE(initServer(situationLines, std::move(options)));
    net = new SngScriptedNetwork();
    server->protocol().setNetwork(std::unique_ptr<SngNetwork>(net));
    server->startLoopClocks();
  }

  // Start-up alone, as main runs it; false when init fails.
  bool initServer(const std::string& situationLines, std::vector<std::string> options = {}) {
    server.reset();
    writeText(servers() + "/QVServer.stn",
              "terrainId = test\nmp_server_port = " + std::to_string(freeUdpPort()) + "\n" + situationLines);
    // Scan port 0: the system picks a free one, so that servers in parallel tests never share it.
    std::vector<std::string> args{"qvserver", "-datadir=" + tmp.path("data"), "-userdir=" + tmp.path("user"),
                                  "-scan_port=0"};
    args.insert(args.end(), options.begin(), options.end());
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

  SngSrvPlayer* playerAt(uint32_t id) const { return server->protocol().players().at(id); }

  std::string log() const { return readText(servers() + "/qvserver.log"); }

  // One pass after the clock moved on; the pass services one queued event.
  void pass(double seconds = 0.001) {
    clock.advanceSeconds(seconds);
    server->update(0);
  }
  // Passes until every queued event has been handled.
  void drain() {
    for (int i = 0; i < 1000 && net->pending() > 0; ++i) pass();
  }

  static std::vector<uint8_t> loginBytes(uint32_t hwId, const std::string& nick, uint8_t major = 1,
                                         uint8_t minor = 8) {
    return sngMessage(SngNet::LOGIN, SngLoginMsg{major, minor, hwId, "Pilot " + nick, nick}).bytes;
  }
  static std::vector<uint8_t> stateBytes(uint8_t id, double time, double lat = 46.03, double lon = 7.03,
                                         double alt = 1000.0) {
    return sngMessage(SngNet::AIRCRAFT_STATE, SngStateMsg{id, {.time = time, .lat = lat, .lon = lon, .alt = alt}}).bytes;
  }

  // Connects from 127.0.0.d and logs in; handles both events. Returns the connection.
  SngPeer login(uint32_t hwId, const std::string& nick, uint8_t d = 1) {
    SngPeer peer = net->connect(127, 0, 0, d);
    net->receive(peer, loginBytes(hwId, nick));
    drain();
    return peer;
  }

  std::vector<SngScriptedNetwork::Sent> sentTo(const SngPeer& peer, uint8_t opcode) const {
    std::vector<SngScriptedNetwork::Sent> out;
    std::copy_if(net->sent.begin(), net->sent.end(), std::back_inserter(out),
                 [&](const auto& s) { return s.peer == peer && !s.data.empty() && s.data[0] == opcode; });
    return out;
  }

  TempDir tmp;
  BtkManualClock clock;
  std::unique_ptr<SngServer> server;
  SngScriptedNetwork* net = nullptr;  // owned by the server
};
