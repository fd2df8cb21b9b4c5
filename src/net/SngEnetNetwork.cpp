#include "net/SngEnetNetwork.h"

SngEnetNetwork* SngEnetNetwork::create(uint16_t port) {
  ENetAddress address{};
  address.host = ENET_HOST_ANY;
  address.port = port;
  ENetHost* host = enet_host_create(&address, kMaxPeers, kChannels, 0, 0);
  if (!host) return nullptr;
  host->maximumPacketSize = kMaxPacketBytes;
  host->maximumWaitingData = kMaxWaitingBytes;
  return new SngEnetNetwork(host);
}

SngEnetNetwork::~SngEnetNetwork() { enet_host_destroy(host_); }

namespace {

// The connection's serial lives in the peer's user data from the connect event to the disconnect
// event: ENet resets everything else of a peer before it reports the disconnect, and its connectID
// is chosen by the client, so one client could give many connections the same one.
uint64_t serialOf(const ENetPeer* peer) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(peer->data)); }

SngPeer toPeer(ENetPeer* peer) {
  SngPeer result;
  result.handle = peer;
  result.serial = serialOf(peer);
  result.address = peer->address.host;
  return result;
}

SngPeerInfo rawInfo(const ENetPeer* raw) {
  SngPeerInfo result;
  result.round_trip_ms = raw->roundTripTime;
  result.packet_loss = raw->packetLoss;
  result.packets_sent = raw->packetsSent;
  result.packets_lost = raw->packetsLost;
  result.incoming_bandwidth = raw->incomingBandwidth;
  result.outgoing_bandwidth = raw->outgoingBandwidth;
  result.outgoing_peer_id = raw->outgoingPeerID;
  result.incoming_peer_id = raw->incomingPeerID;
  return result;
}

}  // namespace

bool SngEnetNetwork::service(int timeoutMs, SngNetEvent& event) {
  ENetEvent raw;
  event = SngNetEvent();
  if (enet_host_service(host_, &raw, static_cast<enet_uint32>(timeoutMs > 0 ? timeoutMs : 0)) <= 0) return false;
  switch (raw.type) {
    case ENET_EVENT_TYPE_CONNECT:
      raw.peer->data = reinterpret_cast<void*>(static_cast<uintptr_t>(++lastSerial_));
      event.type = SngNetEvent::CONNECT;
      event.peer = toPeer(raw.peer);
      event.info = rawInfo(raw.peer);
      break;
    case ENET_EVENT_TYPE_DISCONNECT:
      event.type = SngNetEvent::DISCONNECT;
      event.peer = toPeer(raw.peer);
      event.info = rawInfo(raw.peer);
      raw.peer->data = nullptr;
      break;
    case ENET_EVENT_TYPE_RECEIVE:
      event.type = SngNetEvent::RECEIVE;
      event.peer = toPeer(raw.peer);
      event.channel = raw.channelID;
      event.data.assign(raw.packet->data, raw.packet->data + raw.packet->dataLength);
      enet_packet_destroy(raw.packet);
      break;
    default: return false;
  }
  return true;
}

ENetPeer* SngEnetNetwork::livePeer(const SngPeer& peer) const {
  auto* raw = static_cast<ENetPeer*>(peer.handle);
  if (!raw || raw < host_->peers || raw >= host_->peers + host_->peerCount) return nullptr;
  // ENet reuses peer objects: the same object may now carry another client's connection.
  if (serialOf(raw) != peer.serial || raw->state != ENET_PEER_STATE_CONNECTED) return nullptr;
  return raw;
}

size_t SngEnetNetwork::send(const SngPeer* peers, size_t count, const uint8_t* data, size_t size, bool reliable) {
  if (count == 0) return 0;
  ENetPacket* packet = enet_packet_create(data, size, reliable ? ENET_PACKET_FLAG_RELIABLE : 0);
  if (!packet) return 0;
  const enet_uint8 channel = reliable ? kReliableChannel : kUnreliableChannel;
  size_t taken = 0;
  for (size_t i = 0; i < count; ++i) {
    ENetPeer* raw = livePeer(peers[i]);
    if (raw && enet_peer_send(raw, channel, packet) == 0) ++taken;
  }
  // Every peer that took the packet holds a reference; nobody took it: it is ours to free.
  if (packet->referenceCount == 0) enet_packet_destroy(packet);
  return taken;
}

SngPeerInfo SngEnetNetwork::info(const SngPeer& peer) {
  const ENetPeer* raw = livePeer(peer);
  return raw ? rawInfo(raw) : SngPeerInfo();
}

bool SngEnetNetwork::isConnected(const SngPeer& peer) { return livePeer(peer) != nullptr; }

void SngEnetNetwork::disconnect(const SngPeer& peer) {
  if (ENetPeer* raw = livePeer(peer)) enet_peer_disconnect(raw, 0);
}
