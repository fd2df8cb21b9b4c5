// The client library against a minimal ENet server on loopback: what is sent arrives as it was sent,
// what arrives is recorded with its delivery, waits end at their deadlines, and the local address
// can be chosen.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>

#include "QvClient.h"
#include "TestEnetServer.h"
#include "testutil/Poll.h"
#include "testutil/Ports.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;

constexpr auto kDeadline = 5s;

// Pumps the client while waiting for something the server thread records.
template <class Pred>
bool pumpUntil(QvClient& client, Pred pred) {
  return pollUntil(
      [&] {
        client.service(1);
        return pred();
      },
      kDeadline);
}

bool sameDelivery(const TestDelivery& got, const Bytes& bytes, uint8_t channel, bool reliable) {
  return got.bytes == bytes && got.channel == channel && got.reliable == reliable;
}

class ClientLoopback : public ::testing::Test {
 protected:
  void connectClient() {
    ASSERT_TRUE(client.connect("127.0.0.1", server.port(), kDeadline)) << client.lastError();
  }

  // The server has received `count` messages.
  std::vector<TestDelivery> receive(size_t count) {
    EXPECT_TRUE(pumpUntil(client, [&] { return server.received().size() >= count; }));
    return server.received();
  }

  TestEnetServer server;
  QvClient client;
};

TEST_F(ClientLoopback, RawBytesArriveUnchangedWithTheChannelAndReliabilityAsked) {
  connectClient();
  const Bytes garbage = {0xFF, 0x00, 0x13, 0x37};
  const Bytes truncatedState = {SngNet::AIRCRAFT_STATE, 3, 0x00, 0x00};
  ASSERT_TRUE(client.sendRaw(garbage, true, 0));
  ASSERT_TRUE(client.sendRaw(truncatedState, false, 1));
  ASSERT_TRUE(client.sendRaw({SngNet::LOGOUT}, true, 1));  // mixes kinds on purpose: tests may
  ASSERT_TRUE(client.sendRaw({SngNet::CHAT_MSG}, false, 0));
  EXPECT_FALSE(client.sendRaw({1}, true, 2)) << "the host has channels 0 and 1 only";

  const auto got = receive(4);
  ASSERT_EQ(got.size(), 4u);
  // Reliable and unreliable traffic are not ordered against each other; find each one.
  auto arrived = [&](const Bytes& bytes, uint8_t channel, bool reliable) {
    for (const TestDelivery& d : got) {
      if (sameDelivery(d, bytes, channel, reliable)) return true;
    }
    return false;
  };
  EXPECT_TRUE(arrived(garbage, 0, true));
  EXPECT_TRUE(arrived(truncatedState, 1, false));
  EXPECT_TRUE(arrived({SngNet::LOGOUT}, 1, true));
  EXPECT_TRUE(arrived({SngNet::CHAT_MSG}, 0, false));
}

TEST_F(ClientLoopback, TypedSendersWriteTheWireLayoutReliableOnZeroAndStatesUnreliableOnOne) {
  connectClient();
  ASSERT_TRUE(client.login(1, 8, 0x12345678, "P", "N"));
  ASSERT_TRUE(client.chat(2, "Hi"));
  ASSERT_TRUE(client.commFrq(2, 0x0102));
  ASSERT_TRUE(client.voice(2, 218, 3, {0xAA, 0xBB}));
  const auto got = receive(4);
  ASSERT_EQ(got.size(), 4u);
  EXPECT_TRUE(sameDelivery(got[0], {3, 1, 8, 0x78, 0x56, 0x34, 0x12, 'P', 0, 'N', 0}, 0, true));
  EXPECT_TRUE(sameDelivery(got[1], {11, 2, 'H', 'i', 0}, 0, true));
  EXPECT_TRUE(sameDelivery(got[2], {19, 2, 0x02, 0x01}, 0, true));
  EXPECT_TRUE(sameDelivery(got[3], {18, 2, 218, 0, 3, 0, 0xAA, 0xBB}, 0, true));

  SngAircraftState state;
  state.time = 100.0;
  ASSERT_TRUE(client.sendState(5, state));
  ASSERT_TRUE(client.sendState(5, state, true));
  const auto states = receive(6);
  ASSERT_EQ(states.size(), 6u);
  for (size_t i = 4; i < 6; ++i) {
    EXPECT_EQ(states[i].bytes.size(), 61u);
    EXPECT_EQ(states[i].channel, 1);
    EXPECT_FALSE(states[i].reliable);
    EXPECT_EQ(states[i].bytes[1], 5);
  }
  EXPECT_EQ(states[4].bytes[0] + states[5].bytes[0], SngNet::AIRCRAFT_STATE + SngNet::EXTRA_AIRCRAFT_STATE);
}

TEST_F(ClientLoopback, InboxRecordsChannelAndReliabilityOfWhatTheServerSends) {
  connectClient();
  server.send({SngNet::SHUTDOWN_MSG, 'x', 0}, true, 0);
  server.send({SngNet::THERMAL, 1, 2, 3}, false, 1);
  server.send({SngNet::TASK_UPDATE, 9}, true, 1);
  ASSERT_TRUE(pumpUntil(client, [&] { return client.inbox().size() >= 3; }));

  const auto shutdown = client.waitFor(SngNet::SHUTDOWN_MSG, 0ms);
  ASSERT_TRUE(shutdown);
  EXPECT_EQ(shutdown->bytes, (Bytes{SngNet::SHUTDOWN_MSG, 'x', 0}));
  EXPECT_EQ(shutdown->channel, 0);
  EXPECT_TRUE(shutdown->reliable);
  const auto thermal = client.waitFor(SngNet::THERMAL, 0ms);
  ASSERT_TRUE(thermal);
  EXPECT_EQ(thermal->bytes, (Bytes{SngNet::THERMAL, 1, 2, 3}));
  EXPECT_EQ(thermal->channel, 1);
  EXPECT_FALSE(thermal->reliable);
  const auto update = client.waitFor(SngNet::TASK_UPDATE, 0ms);
  ASSERT_TRUE(update);
  EXPECT_EQ(update->channel, 1);
  EXPECT_TRUE(update->reliable);

  EXPECT_EQ(client.countOpcode(SngNet::THERMAL), 1u);
  EXPECT_EQ(client.countOpcode(SngNet::PING), 0u);
  client.clearInbox();
  EXPECT_TRUE(client.inbox().empty());
  EXPECT_EQ(client.countOpcode(SngNet::THERMAL), 0u);
}

TEST_F(ClientLoopback, WaitForReturnsEachMessageOnceAndOtherwiseWaitsOutItsDeadline) {
  connectClient();
  server.send({SngNet::PING}, true, 0);
  server.send({SngNet::PING}, true, 0);
  ASSERT_TRUE(client.waitFor(SngNet::PING, kDeadline));
  ASSERT_TRUE(client.waitFor(SngNet::PING, kDeadline));

  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(client.waitFor(SngNet::PING, 300ms)) << "both pings were already handed out";
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, 300ms);
  EXPECT_LT(waited, 300ms + kDeadline) << "the wait must end at its deadline, not hang";
  EXPECT_EQ(client.countOpcode(SngNet::PING), 2u) << "handed-out messages stay in the inbox";
}

TEST_F(ClientLoopback, LocalAddressIsTheAddressTheServerSees) {
  EXPECT_FALSE(client.setLocalAddress("127.0.0.x"));
  ASSERT_TRUE(client.setLocalAddress("127.0.0.2"));
  connectClient();
  QvClient plain;
  ASSERT_TRUE(plain.connect("127.0.0.1", server.port(), kDeadline)) << plain.lastError();
  ASSERT_TRUE(pollUntil([&] { return server.connectedHosts().size() >= 2; }, kDeadline));
  const auto hosts = server.connectedHosts();
  EXPECT_EQ(hosts[0], inet_addr("127.0.0.2"));
  EXPECT_EQ(hosts[1], inet_addr("127.0.0.1"));
  EXPECT_FALSE(client.setLocalAddress("127.0.0.3")) << "not while connected";
}

TEST_F(ClientLoopback, GracefulAndDroppedDisconnectsReachTheServerPromptly) {
  connectClient();
  client.disconnect(kDeadline);
  EXPECT_FALSE(client.connected());
  EXPECT_TRUE(pollUntil([&] { return server.disconnects() == 1; }, kDeadline));

  connectClient();
  client.dropConnection();
  EXPECT_FALSE(client.connected());
  // ENet's own time-out for a silent peer is at least 5 s; within 3 s only the notice explains it.
  EXPECT_TRUE(pollUntil([&] { return server.disconnects() == 2; }, 3s));
  EXPECT_FALSE(client.sendRaw({SngNet::PING}, true, 0));
}

TEST_F(ClientLoopback, ServerDisconnectIsNotedAndEndsWaitsEarly) {
  connectClient();
  server.disconnectClient();
  EXPECT_TRUE(client.waitForDisconnect(kDeadline));
  EXPECT_FALSE(client.connected());
  EXPECT_EQ(client.disconnectEvents(), 1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(client.waitFor(SngNet::PING, 60s));
  EXPECT_LT(std::chrono::steady_clock::now() - start, kDeadline);
}

TEST_F(ClientLoopback, LoginAndJoinHelpersDecodeTheAnswerAfterOtherTraffic) {
  SngServerInfoMsg info;
  info.player = 4;
  info.scenery_name = "Alps";
  SngTurnpoint tp;
  tp.lat = 46.5;
  tp.lon = 8.0;
  tp.name = "Start";
  info.task = {tp};
  SngResultOkMsg ok;
  ok.comm_channel = 218;
  // A ping may reach a new player before its server info.
  server.replyTo(SngNet::LOGIN,
                 {{{SngNet::PING}, 0, true}, {sngMessage(SngNet::SERVER_INFO, info).bytes, 0, true}});
  server.replyTo(SngNet::CONNECT,
                 {{{SngNet::NEW_AIRCRAFT}, 0, true}, {sngMessage(SngNet::RESULT_OK, ok).bytes, 0, true}});
  connectClient();

  const QvLoginAnswer login = client.loginAndWait(1, 8, 7, "Pilot", "Nick", kDeadline);
  ASSERT_TRUE(login.accepted());
  EXPECT_EQ(login.info->player, 4);
  EXPECT_EQ(login.info->scenery_name, "Alps");
  ASSERT_EQ(login.info->task.size(), 1u);
  EXPECT_EQ(login.info->task[0].name, "Start");
  EXPECT_EQ(client.countOpcode(SngNet::PING), 1u) << "the ping stays in the inbox";

  SngConnectMsg connect;
  connect.player = 4;
  const QvJoinAnswer join = client.joinAndWait(connect, kDeadline);
  ASSERT_TRUE(join.accepted());
  EXPECT_EQ(join.ok->comm_channel, 218);
}

TEST_F(ClientLoopback, LoginAndJoinHelpersReportRefusals) {
  server.replyTo(SngNet::LOGIN, {{{SngNet::RESULT_VERSION_TOO_OLD}, 0, true}});
  server.replyTo(SngNet::CONNECT, {{{SngNet::RESULT_UNKNOWN_PLAYER}, 0, true}});
  connectClient();
  const QvLoginAnswer login = client.loginAndWait(1, 7, 7, "Pilot", "Nick", kDeadline);
  EXPECT_TRUE(login.answered);
  EXPECT_FALSE(login.accepted());
  EXPECT_EQ(login.opcode, SngNet::RESULT_VERSION_TOO_OLD);
  const QvJoinAnswer join = client.joinAndWait(SngConnectMsg{}, kDeadline);
  EXPECT_TRUE(join.answered);
  EXPECT_FALSE(join.accepted());
  EXPECT_EQ(join.opcode, SngNet::RESULT_UNKNOWN_PLAYER);
}

TEST(ClientConnect, FailsAtItsDeadlineWhenNobodyAnswers) {
  QvClient client;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(client.connect("127.0.0.1", freeUdpPort(), 300ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
  EXPECT_FALSE(client.connected());
  EXPECT_NE(client.lastError(), "");
  EXPECT_FALSE(client.login(1, 8, 1, "P", "N"));
}

}  // namespace
