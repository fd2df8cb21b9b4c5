// The one seam between the server and its transport: a service step that yields at most one event,
// and sends. The server backs it with ENet (SngEnetNetwork); in-process tests and the fuzzer back it
// with scripted events and captured sends (SngScriptedNetwork), so that any message sequence, nested
// passes included, can be driven without sockets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "player/SngPeer.h"

// What the log reports about a connection.
struct SngPeerInfo {
  uint32_t round_trip_ms = 0;
  uint32_t packet_loss = 0;  // 65536 = 100 %
  uint32_t packets_sent = 0;
  uint32_t packets_lost = 0;
  uint32_t incoming_bandwidth = 0;
  uint32_t outgoing_bandwidth = 0;
  uint16_t outgoing_peer_id = 0;
  uint16_t incoming_peer_id = 0;
};

struct SngNetEvent {
  enum Type { NONE, CONNECT, DISCONNECT, RECEIVE };
  Type type = NONE;
  SngPeer peer;
  std::vector<uint8_t> data;  // RECEIVE: the message, copied out of the transport's packet
  uint8_t channel = 0;
  SngPeerInfo info;           // CONNECT and DISCONNECT: the connection as it was at the event
};

class SngNetwork {
 public:
  static constexpr uint8_t kReliableChannel = 0;
  static constexpr uint8_t kUnreliableChannel = 1;

  virtual ~SngNetwork() = default;
  // One service step, waiting up to timeoutMs for an event; false when none came.
  virtual bool service(int timeoutMs, SngNetEvent& event) = 0;
  // Sends one message to every listed connection: built once, shared by all. Reliable messages go on
  // channel 0, unreliable ones on channel 1. Returns how many connections took it; a connection that is
  // gone (or reused for another client) or a message over the size limit is refused, never queued.
  virtual size_t send(const SngPeer* peers, size_t count, const uint8_t* data, size_t size, bool reliable) = 0;
  virtual SngPeerInfo info(const SngPeer& peer) = 0;
  // Whether the connection still exists (the transport may have reused its peer object).
  virtual bool isConnected(const SngPeer& peer) = 0;
  // Closes a connection from the server's side; its disconnect event follows later.
  virtual void disconnect(const SngPeer& peer) = 0;
};
