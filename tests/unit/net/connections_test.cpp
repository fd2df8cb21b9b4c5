// The connection table over the real transport: ENet lets the client choose the ID it sends with a
// connection request, so nothing the server keys on may come from there.
#include <gtest/gtest.h>

#include <enet/enet.h>

#include "net/SngEnetNetwork.h"
#include "net/SngProtocol.h"
#include "testutil/Poll.h"
#include "testutil/Ports.h"

namespace {

struct Client {
  ENetHost* host = enet_host_create(nullptr, 1, 2, 0, 0);
  ENetPeer* peer = nullptr;
  ~Client() { enet_host_destroy(host); }
  void service() {
    for (ENetEvent e; enet_host_service(host, &e, 0) > 0;) {
      if (e.type == ENET_EVENT_TYPE_RECEIVE) enet_packet_destroy(e.packet);
    }
  }
};

TEST(Connections, ClientsThatSendTheSameConnectIdAreStillTwoConnections) {
  ASSERT_EQ(enet_initialize(), 0);
  {
    SngSession session;
    SngProtocol protocol(session, [](int) {});
    const uint16_t port = freeUdpPort();
    protocol.setNetwork(std::unique_ptr<SngNetwork>(SngEnetNetwork::create(port)));
    ASSERT_NE(protocol.network(), nullptr);
    ENetAddress address{};
    enet_address_set_host(&address, "127.0.0.1");
    address.port = port;
    Client a, b;
    for (Client* c : {&a, &b}) {
      c->host->randomSeed = 41;  // both requests carry connectID 42
      c->peer = enet_host_connect(c->host, &address, 2, 0);
      ASSERT_EQ(c->peer->connectID, 42u);
    }
    auto serviceAll = [&] {
      a.service();
      b.service();
      protocol.handleNetworkEvents(1);
    };
    ASSERT_TRUE(pollUntil([&] { return serviceAll(), protocol.connections().size() == 2; }));
    // One leaves: the other's entry, which keeps its diagnostic budget and orphan clock, stays.
    enet_peer_disconnect(a.peer, 0);
    ASSERT_TRUE(pollUntil([&] { return serviceAll(), protocol.connections().size() < 2; }));
    EXPECT_EQ(protocol.connections().size(), 1u);
    EXPECT_EQ(b.peer->state, ENET_PEER_STATE_CONNECTED);
  }
  enet_deinitialize();
}

}  // namespace
