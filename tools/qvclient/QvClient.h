// A client of the multiplayer protocol over ENet, for the end-to-end tests, the load generator and
// operators (the qvclient program). It sends whatever it is told, well-formed or not, and records
// everything it receives, so a test can check both what the server answers and how it was delivered.
// Not thread-safe: one thread drives a client.
#pragma once

#include <enet/enet.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "QvFlight.h"
#include "wire/SngMessages.h"
#include "wire/SngNet.h"

// One received message as ENet delivered it.
struct QvMessage {
  uint8_t opcode = 0;          // first byte; 0 for an empty message too (then `bytes` is empty)
  std::vector<uint8_t> bytes;  // the whole message, opcode included
  uint8_t channel = 0;         // ENet channel it arrived on
  bool reliable = false;       // sent with ENet's reliable flag
};

using QvMessagePredicate = std::function<bool(const QvMessage&)>;

// The body of a received message (after its opcode) read as one of the SngMessages records; empty
// when it does not read. Bytes after the body are not looked at.
template <class Message>
std::optional<Message> qvDecode(const QvMessage& message) {
  if (message.bytes.empty()) return std::nullopt;
  SngPacket packet(message.bytes);
  packet.cursor = 1;
  Message out;
  if (!out.read(packet)) return std::nullopt;
  return out;
}

// Matches every message whose first byte is `opcode` (a bare result byte included).
QvMessagePredicate qvOpcodeIs(uint8_t opcode);

// The answer to LOGIN: SERVER_INFO, or a single result byte.
struct QvLoginAnswer {
  bool answered = false;                 // false: no answer before the deadline, or the connection was lost
  uint8_t opcode = 0;                    // SngNet::SERVER_INFO, or the result byte (166 full, 168 too old)
  std::optional<SngServerInfoMsg> info;  // decoded SERVER_INFO; empty for a refusal or a bad message

  bool accepted() const { return info.has_value(); }
};

// The answer to CONNECT: RESULT_OK with its body, or a single result byte.
struct QvJoinAnswer {
  bool answered = false;
  uint8_t opcode = 0;                // SngNet::RESULT_OK, or the result byte (167 unknown player)
  std::optional<SngResultOkMsg> ok;  // decoded RESULT_OK body

  bool accepted() const { return ok.has_value(); }
};

class QvClient {
 public:
  QvClient();
  // Drops the connection the way dropConnection does, so the server notices at once.
  ~QvClient();
  QvClient(const QvClient&) = delete;
  QvClient& operator=(const QvClient&) = delete;

  // The local IPv4 address to send from ("127.0.0.2" shows the server a second machine on
  // loopback); the port is left to the system. Takes effect at the next connect. False for text
  // that is not an address, or while connected.
  bool setLocalAddress(const std::string& address);

  // Creates a fresh ENet host (1 peer, 2 channels) and connects to host:port, pumping until ENet
  // reports the connection or the deadline passes. `host` is a dotted address or a name. False on
  // failure, with lastError() saying why. An earlier connection is dropped first; the inbox stays.
  bool connect(const std::string& host, uint16_t port, std::chrono::milliseconds deadline);

  // Graceful: asks ENet to disconnect once everything queued has gone out, then pumps until the
  // server confirms or the deadline passes (then the connection is reset). The server sees an
  // ordinary disconnect event. Messages that arrive meanwhile go to the inbox.
  void disconnect(std::chrono::milliseconds deadline = std::chrono::seconds(2));
  // Abrupt: discards whatever is still queued, sends one unreliable disconnect notice and forgets the
  // connection without waiting. The server sees the disconnect at once (on loopback the notice is
  // not lost), as it would when a client process is killed by its user.
  void dropConnection();
  // Silent: forgets the connection and sends nothing, like a client whose network vanished. The
  // server only notices when its ENet peer times out (several seconds, up to about 30 s).
  void resetConnection();

  bool connected() const { return peer_ != nullptr; }
  // Disconnect events received from the server (a server that disconnects us, or confirms our
  // graceful disconnect).
  int disconnectEvents() const { return disconnect_events_; }
  const std::string& lastError() const { return last_error_; }
  // The local port of the ENet host; 0 before the first connect.
  uint16_t localPort() const;
  // Round-trip time that ENet measured, ms; 0 when not connected.
  uint32_t roundTripMs() const;

  // Pumps ENet: waits up to timeoutMs for the first event, then takes every event that is already
  // there without waiting. Received messages go to the inbox; a disconnect event is noted and ends
  // the connection. Returns the number of events handled.
  int service(int timeoutMs);

  // Pumps until the inbox holds a matching message that no earlier waitFor has returned, and returns
  // it; messages received before the call count, so the order of send and wait does not matter.
  // Empty when the deadline passes, or when the connection is gone and nothing matching is left.
  std::optional<QvMessage> waitFor(const QvMessagePredicate& predicate, std::chrono::milliseconds deadline);
  std::optional<QvMessage> waitFor(uint8_t opcode, std::chrono::milliseconds deadline) {
    return waitFor(qvOpcodeIs(opcode), deadline);
  }
  // Pumps until the connection is gone or the deadline passes; true when it is gone.
  bool waitForDisconnect(std::chrono::milliseconds deadline);

  // Everything received since the last clearInbox, in arrival order; a long-running client clears it.
  const std::vector<QvMessage>& inbox() const { return inbox_; }
  void clearInbox();
  size_t countOpcode(uint8_t opcode) const;

  // Sends the bytes as one ENet packet, as they are (empty, cut short or garbage alike), and flushes
  // so they leave at once. False when not connected, channel is not 0 or 1, or ENet refuses.
  bool sendRaw(const std::vector<uint8_t>& bytes, bool reliable, uint8_t channel);

  // Typed senders. Every message goes reliable on channel 0, except the aircraft states, which go
  // unreliable on channel 1 as a real client streams them.
  bool login(uint8_t versionMajor, uint8_t versionMinor, uint32_t hwId, const std::string& pilotName,
             const std::string& nick);
  bool connectAircraft(const SngConnectMsg& message);
  bool sendState(uint8_t playerId, const SngAircraftState& state, bool extra = false);
  bool chat(uint8_t playerId, const std::string& text);
  bool voice(uint8_t playerId, uint16_t radioChannel, uint16_t numPackets, const std::vector<uint8_t>& data);
  bool commFrq(uint8_t playerId, uint16_t radioChannel);
  bool logout(uint8_t playerId);
  bool crash(uint8_t playerId);
  bool inactive(uint8_t playerId);
  bool serverScan();

  // LOGIN, then the first SERVER_INFO or result byte (PINGs and other messages on the way are left
  // in the inbox).
  QvLoginAnswer loginAndWait(uint8_t versionMajor, uint8_t versionMinor, uint32_t hwId,
                             const std::string& pilotName, const std::string& nick,
                             std::chrono::milliseconds deadline);
  // CONNECT, then the first RESULT_OK or result byte.
  QvJoinAnswer joinAndWait(const SngConnectMsg& message, std::chrono::milliseconds deadline);

 private:
  bool sendPacket(const SngPacket& packet, bool reliable);
  void handleEvent(ENetEvent& event);
  void destroyHost();

  ENetHost* host_ = nullptr;
  ENetPeer* peer_ = nullptr;        // set once ENet reports the connection
  ENetPeer* connecting_ = nullptr;  // during connect(): the peer whose connect event we wait for
  std::optional<ENetAddress> local_address_;
  std::vector<QvMessage> inbox_;
  std::vector<bool> returned_;  // per inbox entry: already handed out by waitFor
  int disconnect_events_ = 0;
  std::string last_error_;
};
