// LAN scans against the real server from loopback, which is a local source, through the test client's scan.
#include "ProtocolFixture.h"
#include "QvScan.h"

namespace {

using Scan = ProtocolE2E;

TEST_F(Scan, AnsweredOnlyWithLanOneRequestOfOneByteAtATimeWithinItsRate) {
  writeSituation("QVServer.stn", "mp_server_address = " + std::string(100, 'a') + "\nmp_max_players = 50\ntask {\n"
                                 " turnpoint {\n  lat = 46.0\n  lon = 7.0\n }\n turnpoint {\n  lat = 47.0\n  lon = 7.0\n }\n}\n");
  ASSERT_TRUE(sceneryBuilt && start({"-lan"}) && waitForText(logPath(), "Starting main loop..."));
  const Pilot pilots[] = {joinClient(0xA, "alice"), joinClient(0xB, "bob"), joinClient(0xC, "carol")};
  dropUntilIdle(*pilots[2].client, "(carol) is idle");
  // Two bytes are never answered: one reply, and the log names only the one-byte request.
  const auto answers = qvScan("127.0.0.1", scanPort, 1500ms, {{0xFF, 0xFF}, {0xFF}});
  ASSERT_EQ(answers.size(), 1u);
  const SngScanReply& r = answers[0].reply;
  EXPECT_EQ(std::tie(answers[0].from, r.server_name, r.scenery_name, r.port, r.num_players, r.max_players, r.task_km),
            std::tuple("127.0.0.1:" + std::to_string(scanPort), "Test server", "test", port, 2, 50, 111));
  EXPECT_EQ(r.server_address, std::string(63, 'a'));  // every string is cut: the reply stays small
  EXPECT_EQ(countOf(readText(logPath()), "Scan port: received (-1) from 127.0.0.1:"), 1u);
  // A flood from one source gets its burst and then one reply a second.
  const size_t answered = qvScan("127.0.0.1", scanPort, 1500ms, std::vector<std::vector<uint8_t>>(30, {1})).size();
  EXPECT_TRUE(answered >= 10 && answered <= 13) << answered;  // the burst of 10 plus what a few seconds regain
  ASSERT_TRUE(stopWithKillFile());
  EXPECT_THAT(readText(logPath()), HasSubstr("Scan requests refused: 0 from outside the local network"));
}

TEST_F(Scan, WithoutLanTheSocketIsOpenButNothingIsAnswered) {
  startServer();
  EXPECT_TRUE(qvScan("127.0.0.1", scanPort, 1000ms).empty());
  ASSERT_TRUE(stopWithKillFile());  // the server ran passes with the request waiting
  EXPECT_EQ(countOf(readText(logPath()), "Scan port: received"), 0u);
}

}  // namespace
