// Connections, LOGIN and the player registry: how transport events become players, and who may speak
// for a player. Seats and removes records in the player table, answers through the outbox and the
// broadcasts (SERVER_INFO, PLAYER_LEFT), and keeps one entry per live connection so that
// connections nobody uses are closed and what one connection can make the server write is bounded.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "net/SngBroadcasts.h"
#include "net/SngNetwork.h"
#include "net/SngOutbox.h"
#include "net/SngPlayerTable.h"
#include "net/SngSession.h"
#include "player/SngPlayerHost.h"
#include "wire/SngMessages.h"
#include "wire/SngPacket.h"

class SngConnections {
 public:
  static constexpr float kDisconnectIdleSeconds = 360.0f;  // a dropped player's least time to come back
  // Connections that no player record uses (logged out, displaced by a second LOGIN, never logged in)
  // are closed after ENet's own peer time-out (30 s at most) plus as much again, so that they cannot
  // hold the 32 connection slots.
  static constexpr double kOrphanConnectionMs = 60000.0;
  static constexpr int kDiagnosticLinesPerMinute = 50;
  static constexpr double kDiagnosticWindowMs = 60000.0;
  // Records one connection may own. A simulator logs in once, and again after a lost connection (the
  // same hardware ID, which does not count twice); without a bound one connection could LOGIN with
  // new hardware IDs until every slot is taken. Two leave room for a second simulator behind one
  // client that shares the connection.
  static constexpr int kMaxRecordsPerConnection = 2;

  SngConnections(SngPlayerTable& players, SngOutbox& out, SngBroadcasts& broadcasts, const SngSession& session,
                 SngPlayerHost& host)
      : players_(players), out_(out), broadcasts_(broadcasts), session_(session), host_(host) {}

  void onConnect(const SngPeer& peer, const SngPeerInfo& info);
  void onDisconnect(const SngPeer& peer, const SngPeerInfo& info);
  void handleLogin(SngPacket& packet, const SngPeer& peer);
  // LOGIN's registration step: the player ID and RESULT_OK, or RESULT_SERVER_FULL.
  uint8_t loginPlayer(const SngPeer& peer, const SngLoginMsg& login, uint32_t& playerId);
  // PLAYER_LEFT to the others, then the record leaves its slot. `trace` false when the client caused it
  // and its budget is spent.
  void disconnectPlayer(uint32_t id, bool trace = true);
  // A message that names an idle player brings it back with the sender's connection.
  void leaveIdle(SngSrvPlayer& player, const SngPeer& sender, uint8_t opcode);
  // The record a message names, when the sender may speak for it: its own connection, or, while its
  // connection is lost, a connection from its address. Otherwise null (a foreign ID is counted).
  SngSrvPlayer* senderPlayer(uint8_t id, const SngPeer& sender, uint8_t opcode);
  // False once the connection has used up this minute's diagnostic lines (the rest are counted and
  // summed up in one line). Connections the table does not know (in-process callers) always may.
  bool traceAllowed(const SngPeer& peer);
  // Closes connections no record has used for kOrphanConnectionMs; writes pending summary lines.
  void maintain();

  size_t size() const { return connections_.size(); }
  uint64_t numForeignMessages = 0;  // named another connection's player, dropped

 private:
  struct Connection {
    SngPeer peer;
    double orphan_since_ms = -1.0;  // since when no record has it as its peer; -1 while one does
    double diag_window_start_ms = 0.0;
    int diag_lines = 0;              // diagnostic lines written in the current minute
    int diag_suppressed = 0;         // ... and held back after the budget ran out
    uint64_t foreign_messages = 0;   // messages naming another connection's player, dropped
    double foreign_log_ms = -1e300;  // last time such a drop was logged
  };

  Connection* find(const SngPeer& peer);
  int recordsOf(const SngPeer& peer) const;

  SngPlayerTable& players_;
  SngOutbox& out_;
  SngBroadcasts& broadcasts_;
  const SngSession& session_;
  SngPlayerHost& host_;
  std::map<uint64_t, Connection> connections_;  // by the connection's serial
};
