// Everything the server sends goes through here: the transport seam, and the sends to one connection,
// one player or every present player. A message for many recipients is built once and handed to the
// transport once.
#pragma once

#include <cstdint>
#include <memory>

#include "net/SngNetwork.h"
#include "net/SngPlayerTable.h"
#include "wire/SngPacket.h"

class SngOutbox {
 public:
  explicit SngOutbox(const SngPlayerTable& players) : players_(players) {}

  SngNetwork* network() const { return network_.get(); }
  void setNetwork(std::unique_ptr<SngNetwork> network) { network_ = std::move(network); }

  void sendToPeer(const SngPeer& peer, const SngPacket& packet, bool reliable);
  void sendToPlayer(const SngSrvPlayer& player, const SngPacket& packet, bool reliable) {
    sendToPeer(player.peer, packet, reliable);
  }
  // To every present, non-idle player but the excluded slot (-1: none) that passes the filter. Relays
  // hand over the received bytes themselves, never a copy.
  template <class Filter>
  void sendToPlayers(int excludedSlot, const uint8_t* data, size_t size, bool reliable, Filter filter);
  template <class Filter>
  void sendToPlayers(int excludedSlot, const SngPacket& packet, bool reliable, Filter filter) {
    sendToPlayers(excludedSlot, packet.bytes.data(), packet.bytes.size(), reliable, filter);
  }
  void sendToPlayers(int excludedSlot, const SngPacket& packet, bool reliable) {
    sendToPlayers(excludedSlot, packet, reliable, [](const SngSrvPlayer&) { return true; });
  }

  uint64_t numDroppedSends = 0;  // refused by the transport: connection gone or message too large

 private:
  static void logEmptyPeer(const uint8_t* data, size_t size);

  const SngPlayerTable& players_;
  std::unique_ptr<SngNetwork> network_;
};

template <class Filter>
void SngOutbox::sendToPlayers(int excludedSlot, const uint8_t* data, size_t size, bool reliable, Filter filter) {
  std::vector<SngPeer> peers;
  for (size_t slot = 0; slot < players_.size(); ++slot) {
    const SngSrvPlayer* player = players_.at(static_cast<uint32_t>(slot));
    if (!player || player->idle || static_cast<int>(slot) == excludedSlot || !filter(*player)) continue;
    if (!player->peer) {
      logEmptyPeer(data, size);
      continue;
    }
    peers.push_back(player->peer);
  }
  if (peers.empty() || !network_) return;
  const size_t taken = network_->send(peers.data(), peers.size(), data, size, reliable);
  numDroppedSends += peers.size() - taken;
}
