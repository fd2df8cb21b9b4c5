#include "net/SngOutbox.h"

#include "toolkit/BtkLogger.h"

void SngOutbox::logEmptyPeer(const uint8_t* data, size_t size) {
  btkLogger.log(BTK_ERROR, "Trying to send data to empty peer");
  if (size == 0) {
    btkLogger.log(BTK_ERROR, "empty packet");
  } else {
    btkLogger.log(BTK_ERROR, "packet signature = 0x%X", data[0]);
  }
}

void SngOutbox::sendToPeer(const SngPeer& peer, const SngPacket& packet, bool reliable) {
  if (!peer) return logEmptyPeer(packet.bytes.data(), packet.bytes.size());
  if (!network_) return;
  if (network_->send(&peer, 1, packet.bytes.data(), packet.bytes.size(), reliable) == 0) ++numDroppedSends;
}
