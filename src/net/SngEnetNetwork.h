// The real transport: one ENet host with two channels.
#pragma once

#include <enet/enet.h>

#include <cstdint>

#include "net/SngNetwork.h"

class SngEnetNetwork : public SngNetwork {
 public:
  // Largest message either side may send, in bytes. ENet's own default (32 MB) would let one client
  // make the server buffer 32 MB per message. The largest message the server builds is SERVER_INFO:
  // about 70 fixed bytes, three situation strings of at most 4095 bytes (scenery, airport, runway),
  // 255 wind layers of 6 bytes, 255 turnpoints of at most 16 + 4096 bytes (a name can fill a whole
  // situation line) and the message of the day (at most kMaxMotdBytes): about 1.07 MB. Clients send
  // far less (a CONNECT with 255 turnpoints, a chat line, a voice packet). ENet also applies the limit
  // to sends, so it has to admit SERVER_INFO.
  static constexpr size_t kMaxPacketBytes = 2 * 1024 * 1024;
  // Data one connection may have waiting for the server (fragments and queued packets): two maximum
  // messages, so that a slow fragment stream never blocks a whole message.
  static constexpr size_t kMaxWaitingBytes = 2 * kMaxPacketBytes;
  static constexpr size_t kMaxPeers = 32;
  static constexpr size_t kChannels = 2;

  // Binds port on every local address; null when the host can't be created.
  static SngEnetNetwork* create(uint16_t port);
  ~SngEnetNetwork() override;

  bool service(int timeoutMs, SngNetEvent& event) override;
  size_t send(const SngPeer* peers, size_t count, const uint8_t* data, size_t size, bool reliable) override;
  SngPeerInfo info(const SngPeer& peer) override;
  bool isConnected(const SngPeer& peer) override;
  void disconnect(const SngPeer& peer) override;

  ENetHost* host() const { return host_; }

 private:
  explicit SngEnetNetwork(ENetHost* host) : host_(host) {}
  ENetPeer* livePeer(const SngPeer& peer) const;

  ENetHost* host_;
  uint64_t lastSerial_ = 0;
};
