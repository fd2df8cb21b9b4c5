// One real server process in a world of its own (testutil/ServerWorld.h) and real ENet clients on
// loopback.
#pragma once

#include <gmock/gmock.h>

#include "testutil/Pilots.h"
#include "testutil/ServerWorld.h"
#include "testutil/Text.h"

using namespace std::chrono_literals;
using ::testing::HasSubstr;

// A connected client and its slot, 255 when it has none.
struct Pilot {
  std::unique_ptr<QvClient> client;
  uint8_t id = 255;
};

class ProtocolE2E : public ::testing::Test, public ServerWorld {
 protected:
  void startServer(const std::string& situationLines = "") {
    writeSituation("QVServer.stn", situationLines);
    ASSERT_TRUE(sceneryBuilt && start() && waitForText(logPath(), "Starting main loop..."));
  }

  std::unique_ptr<QvClient> connectClient(const std::string& localAddress = "127.0.0.1") {
    auto client = connectPilot(port, localAddress);
    EXPECT_TRUE(client->connected()) << client->lastError();
    return client;
  }

  // A connected client that has logged in.
  Pilot loginClient(uint32_t hwId, const std::string& nick, const std::string& localAddress = "127.0.0.1") {
    auto client = connectClient(localAddress);
    const QvLoginAnswer answer = client->loginAndWait(1, 8, hwId, "Pilot " + nick, nick, 5s);
    EXPECT_TRUE(answer.accepted()) << nick << " got " << int(answer.opcode);
    return {std::move(client), answer.info ? answer.info->player : uint8_t(255)};
  }

  // Logs in and joins; the client's inbox then holds everything up to RESULT_OK.
  Pilot joinClient(uint32_t hwId, const std::string& nick, uint8_t launchMethod = 0) {
    auto client = connectClient();
    const uint8_t id = loginAndJoin(*client, hwId, nick, launchMethod);
    EXPECT_NE(id, 255) << nick;
    return {std::move(client), id};
  }

  // Drops the client's connection and waits until the log says the player is idle once more.
  void dropUntilIdle(QvClient& client, const std::string& idleLine, size_t timesBefore = 0) {
    client.dropConnection();
    ASSERT_TRUE(pollUntil([&] { return countOf(readText(logPath()), idleLine) > timesBefore; }));
  }

  // A PING or TIME_SYNC: what the server sends by its own clock, not in answer to anything.
  static bool isBeat(const QvMessage& m) { return m.opcode == SngNet::PING || m.opcode == SngNet::TIME_SYNC; }

  // True once the client received the chat line. The server sends in order on the reliable channel, so
  // once a line said after some message arrives, whatever the server sent for that message has arrived
  // too: the marker that lets a "nothing came" check wait for a state rather than a duration.
  static bool waitForChat(QvClient& client, const std::string& text) {
    const auto says = [&](const QvMessage& m) {
      return m.opcode == SngNet::CHAT_MSG && qvDecode<SngChatMsg>(m).value_or(SngChatMsg{}).text == text;
    };
    return client.waitFor(says, 5s).has_value();
  }
};
