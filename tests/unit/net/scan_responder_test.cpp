// The scan responder in-process on a real UDP socket of its own.
#include <gtest/gtest.h>

#include "net/SngScanResponder.h"
#include "testutil/Ports.h"

namespace {

TEST(ScanResponder, TheLongestReplyStaysSmallAndEachPollAnswersOneRequest) {
  SngSession session;
  session.situation.mp_server_name = session.situation.mp_server_address = session.scenery_dir = std::string(4095, 'x');
  SngPlayerTable players;
  SngScanResponder responder(session, players);
  SngPacket packet;
  responder.reply().write(packet);
  EXPECT_LT(packet.bytes.size(), 300u);

  ASSERT_EQ(enet_initialize(), 0);
  responder.open(0);
  // Two requests wait before the first poll (loopback delivers at once): each poll answers one.
  const int fd = bindUdpSocket(0);
  sockaddr_in to{.sin_family = AF_INET, .sin_port = htons(responder.port()), .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
  for (uint8_t request : {1, 2}) sendto(fd, &request, 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  for (uint64_t polls = 1; polls <= 3; ++polls) {
    responder.poll();
    EXPECT_EQ(responder.numAnswered, std::min<uint64_t>(polls, 2));
  }
  close(fd);
  enet_deinitialize();
}

}  // namespace
