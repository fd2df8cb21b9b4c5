// Whole shared flights: a full server of 32 pilots, a pilot who drops and resumes through to the
// finish, and a flood from one client while the others keep being served.
#include "e2e/ProtocolFixture.h"

namespace {

using SharedFlight = ProtocolE2E;

TEST_F(SharedFlight, ThirtyTwoPilotsFillTheServerLearnOfEachOtherAndLeave) {
  startServer();
  std::vector<std::unique_ptr<QvClient>> pilots;
  for (int i = 0; i < 32; ++i) {
    pilots.push_back(connectClient());
    ASSERT_EQ(loginAndJoin(*pilots[i], 0x1000 + i, "p" + std::to_string(i)), i);
  }
  pilots[31]->chat(31, "thermal at the ridge");
  for (int i = 0; i < 31; ++i) EXPECT_TRUE(waitForChat(*pilots[i], "thermal at the ridge")) << i;
  // The chat came last: the last joiner learnt of all 31 others, the first heard of all 31 newcomers.
  EXPECT_EQ(pilots[31]->countOpcode(SngNet::EXISTING_AIRCRAFT), 31u);
  EXPECT_EQ(pilots[0]->countOpcode(SngNet::NEW_AIRCRAFT), 31u);
  for (int i = 0; i < 32; ++i) {
    pilots[i]->logout(i);
    pilots[i]->disconnect();  // frees the connection too: the server holds at most 32
  }
  ASSERT_TRUE(waitForText(logPath(), "Player 31 (p31) logged out"));
  EXPECT_EQ(loginClient(0x9999, "after").id, 0);
}

TEST_F(SharedFlight, APilotResumingWithoutConnectKeepsAircraftAndTaskProgressThroughToTheFinish) {
  // A start cylinder, a turnpoint 5 km north and the finish 1.7 km further, on one meridian.
  startServer(
      "task {\n turnpoint {\n  lat = 46.0\n  lon = 7.03\n  radius = 500\n  name = S\n }\n"
      " turnpoint {\n  lat = 46.045\n  lon = 7.03\n  radius = 500\n  name = T\n }\n"
      " turnpoint {\n  lat = 46.06\n  lon = 7.03\n  radius = 500\n  name = F\n }\n}\n");
  auto flyer = connectClient();
  const auto info = flyer->loginAndWait(1, 8, 0xF, "Pilot", "flyer", 5s).info;
  ASSERT_TRUE(info);
  SngConnectMsg join = joinMessage(0xF, info->player);
  std::tie(join.aircraft_id, join.task) = std::tuple("Discus", info->task);
  ASSERT_TRUE(flyer->joinAndWait(join, 5s).accepted());
  // Due north from the start, a state every 2 client seconds (56 m at 100 km/h).
  double t = 43300.0, lat = 46.0;
  for (; lat < 46.02; lat += 0.0005, t += 2.0) flyer->sendState(join.player, stateAt(t, lat));
  ASSERT_TRUE(waitForText(server->stderrPath(), "Started: t ="));
  ASSERT_NO_FATAL_FAILURE(dropUntilIdle(*flyer, "Player 0 (flyer) is idle"));
  // The client comes back: LOGIN again (same hardware, same address), then states, no CONNECT.
  auto again = loginClient(0xF, "flyer").client;
  for (; lat <= 46.0605; lat += 0.0005, t += 2.0) again->sendState(join.player, stateAt(t, lat));
  ASSERT_TRUE(waitForText(logPath(), "Player 0 (flyer) is no longer idle"));
  auto [watcher, w] = joinClient(0x3, "watcher");
  const auto existing =
      qvDecode<SngAircraftMsg>(watcher->waitFor(SngNet::EXISTING_AIRCRAFT, 5s).value_or(QvMessage{}));
  ASSERT_TRUE(existing);
  EXPECT_EQ(std::make_tuple(existing->aircraft_id, existing->task.size()), std::make_tuple("Discus", 3u));
  // The others get the progress by the broadcast every 15 s; the finish counts the start from before the
  // drop.
  const auto finished = [](const QvMessage& m) {
    const auto update = m.opcode == SngNet::TASK_UPDATE ? qvDecode<SngTaskUpdateMsg>(m) : std::nullopt;
    return update && update->status == 2;
  };
  std::optional<QvMessage> update;
  ASSERT_TRUE(pollUntil(
      [&] { return again->service(5), (update = watcher->waitFor(finished, 5ms)).has_value(); }, 20s));
  const auto last = qvDecode<SngTaskUpdateMsg>(*update);
  EXPECT_EQ(std::tie(last->player, last->curr_tp), std::make_tuple(join.player, 2));
  EXPECT_TRUE(!update->reliable && update->channel == 1);
  // A finished task counts from centre to centre: 0.06 degrees of a meridian, 111120 m each.
  EXPECT_NEAR(last->distance, 0.06 * 111120.0, 2.0);
  watcher->chat(w, "marker");
  ASSERT_TRUE(waitForChat(*again, "marker"));
  EXPECT_EQ(again->countOpcode(SngNet::TASK_UPDATE), 0u);  // not to the flyer itself
  // Meanwhile the watcher was pinged in bursts of five, each followed by a TIME_SYNC, all reliable.
  std::string beats;
  for (const QvMessage& m : watcher->inbox())
    if (isBeat(m)) beats += !m.reliable || m.channel ? '?' : m.opcode == SngNet::PING ? 'p' : 's';
  EXPECT_EQ(beats.substr(0, 12), "pppppsppppps");
}

TEST_F(SharedFlight, AnotherPilotsChatArrivesCompleteAndInOrderDuringAFloodFromOneClient) {
  startServer();
  auto [flooder, a] = joinClient(0xA, "flooder");
  auto [talker, b] = joinClient(0xB, "talker");
  auto listener = joinClient(0xC, "listener").client;
  std::vector<std::string> said;
  for (int round = 0, sent = 0; round < 200; ++round) {
    // States, chats and unknown opcodes from one client, as fast as it can send them.
    for (int i = 0; i < 50; ++i, ++sent) {
      flooder->sendState(a, stateAt(43300.0 + sent * 0.01));
      if (i % 5 == 0) flooder->chat(a, "spam " + std::to_string(sent));
      if (i % 10 == 0) flooder->sendRaw({0x55, 1, 2, 3}, false, 1);
    }
    if (round % 10 == 0) talker->chat(b, said.emplace_back("line " + std::to_string(round / 10)));
    flooder->service(0), talker->service(0), listener->service(0);
  }
  // A disconnect waits until the server has acknowledged every line: one the flood made it drop is sent
  // again.
  talker->disconnect(10s);
  const auto fromTalker = [&](const QvMessage& m) { return m.opcode == SngNet::CHAT_MSG && m.bytes[1] == b; };
  // All, once each and in order: the flood ahead of each line is delivered first.
  std::vector<std::string> heard;
  while (const auto line = listener->waitFor(fromTalker, heard.size() < said.size() ? 30s : 0s))
    heard.push_back(qvDecode<SngChatMsg>(*line).value_or(SngChatMsg{}).text);
  EXPECT_EQ(heard, said);
  ASSERT_TRUE(server->running() && stopWithKillFile() && server->exitCode() == 0);
  // Bounded: the flood left a log of a few hundred lines, not one per message.
  EXPECT_LT(readText(logPath()).size(), 512u * 1024u);
}

}  // namespace
