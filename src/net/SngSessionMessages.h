// The messages of a client that has logged in: CONNECT, states, crash and inactive notices, chat,
// voice, radio channel, LOGOUT and the scan request. Each is decoded by its message record; the
// handlers change the sender's own record (found through the connections, which decide who may speak
// for a player), relay or broadcast, and answer CONNECT. Every line a client's message causes is
// under its connection's diagnostic budget.
#pragma once

#include <cstdint>

#include "net/SngBroadcasts.h"
#include "net/SngConnections.h"
#include "net/SngOutbox.h"
#include "net/SngPlayerTable.h"
#include "net/SngSession.h"
#include "wire/SngPacket.h"

class SngSessionMessages {
 public:
  SngSessionMessages(SngPlayerTable& players, SngOutbox& out, SngConnections& connections,
                     SngBroadcasts& broadcasts, const SngSession& session)
      : players_(players), out_(out), connections_(connections), broadcasts_(broadcasts), session_(session) {}

  void handleConnect(SngPacket& packet, const SngPeer& peer);
  // AIRCRAFT_STATE is recorded (a nested pass runs inside) and relayed; EXTRA_AIRCRAFT_STATE only relayed.
  void handleAircraftState(SngPacket& packet, const SngPeer& peer, uint8_t opcode);
  void handleCrashOrInactive(SngPacket& packet, const SngPeer& peer, uint8_t opcode);
  void handleChat(SngPacket& packet, const SngPeer& peer);
  void handleVoice(SngPacket& packet, const SngPeer& peer);
  void handleCommFrq(SngPacket& packet, const SngPeer& peer);
  void handleLogout(SngPacket& packet, const SngPeer& peer);
  void handleServerScan(const SngPeer& peer);
  void handleUnknownOpcode(const SngPeer& peer, uint8_t opcode);

  // Set by an accepted CONNECT, so that the main loop runs its periodic work at once.
  bool player_joined = false;
  uint64_t numUnrecordedStates = 0;  // non-finite or off-the-globe states: relayed, not recorded

 private:
  // The client's task as the player keeps it: in competition mode the first turnpoint's height limit
  // is the start gate's.
  SngTaskProgress playerTask(const std::vector<SngTurnpoint>& turnpoints) const;

  SngPlayerTable& players_;
  SngOutbox& out_;
  SngConnections& connections_;
  SngBroadcasts& broadcasts_;
  const SngSession& session_;
};
