// A real server and real ENet clients on loopback.
#pragma once

#include <gmock/gmock.h>

#include <memory>

#include "QvClient.h"
#include "e2e/ServerFixture.h"

using namespace std::chrono_literals;

class ProtocolE2E : public ServerFixture {
 protected:
  void startServer(const std::string& situationExtra = "") {
    writeSituation("QVServer.stn", situationExtra);
    start({});
    ASSERT_TRUE(waitForText(logPath(), "Starting main loop..."));
  }

  std::unique_ptr<QvClient> connectClient(const std::string& localAddress = "127.0.0.1") {
    auto client = std::make_unique<QvClient>();
    EXPECT_TRUE(client->setLocalAddress(localAddress));
    EXPECT_TRUE(client->connect("127.0.0.1", port, 5s)) << client->lastError();
    return client;
  }

  // A connected client that has logged in; playerId receives its slot.
  std::unique_ptr<QvClient> loginClient(uint32_t hwId, const std::string& nick, uint8_t& playerId,
                                        const std::string& localAddress = "127.0.0.1") {
    auto client = connectClient(localAddress);
    const QvLoginAnswer answer = client->loginAndWait(1, 8, hwId, "Pilot " + nick, nick, 5s);
    EXPECT_TRUE(answer.accepted()) << nick << " got " << int(answer.opcode);
    playerId = answer.info ? answer.info->player : 255;
    return client;
  }

  static SngConnectMsg joinMessage(uint32_t hwId, uint8_t playerId, uint8_t method = 0) {
    SngConnectMsg msg;
    msg.hw_id = hwId;
    msg.player = playerId;
    msg.aircraft_id = "ASK21";
    msg.registration = "D-" + std::to_string(hwId);
    msg.comp_id = "C" + std::to_string(playerId);
    msg.launch.launch_method = method;
    if (method == 1) {
      msg.launch.rope_length = 60;
      msg.launch.towplane_id = "pawnee";
    }
    return msg;
  }

  // Logs in and joins; the client's inbox then holds everything up to RESULT_OK.
  std::unique_ptr<QvClient> joinClient(uint32_t hwId, const std::string& nick, uint8_t& playerId, uint8_t method = 0) {
    auto client = loginClient(hwId, nick, playerId);
    const QvJoinAnswer answer = client->joinAndWait(joinMessage(hwId, playerId, method), 5s);
    EXPECT_TRUE(answer.accepted()) << nick;
    return client;
  }

  // The two pilots most tests need: alice (hardware 0xA) and bob (0xB), both joined, slots 0 and 1.
  struct Pilots {
    std::unique_ptr<QvClient> alice;
    uint8_t a = 255;
    std::unique_ptr<QvClient> bob;
    uint8_t b = 255;
  };
  Pilots joinAliceAndBob() {
    Pilots p;
    p.alice = joinClient(0xA, "alice", p.a);
    p.bob = joinClient(0xB, "bob", p.b);
    return p;
  }

  // Drops the client's connection and waits until the server has made its player idle.
  void dropUntilIdle(QvClient& client, const std::string& idleLine) {
    client.dropConnection();
    ASSERT_TRUE(waitForText(logPath(), idleLine));
  }

  static SngAircraftState stateAt(double time, double lat = 46.03, double lon = 7.03, double alt = 1200.0) {
    SngAircraftState s;
    s.time = time;
    s.lat = lat;
    s.lon = lon;
    s.alt = alt;
    return s;
  }

  // Pumps every client for a moment so that nothing in flight is missed by a "nothing came" check.
  static void settle(std::initializer_list<QvClient*> clients, int rounds = 5) {
    for (int i = 0; i < rounds; ++i) {
      for (QvClient* c : clients) c->service(20);
    }
  }
};
