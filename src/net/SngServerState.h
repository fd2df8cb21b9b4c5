// The server state record: every field that the protocol, the player records and the main loop share.
// The operations that start, run and stop the server complete it in src/app (SngServer); the protocol
// code here reaches them only through update(), the one "run one pass" hook.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/SngSituation.h"
#include "net/SngMessages.h"
#include "net/SngNetwork.h"
#include "net/SngPacket.h"
#include "session/SngPlayerHost.h"
#include "session/SngSrvPlayer.h"
#include "terrain/GgTerrainGroup.h"
#include "toolkit/BtkTimer.h"

// The scene-graph context the terrain group would be built on; the server renders nothing.
struct SngRenderContext {};

// One transport connection, logged in or not. Kept so that connections that belong to no player can
// be closed, and so that what one connection can make the server write is bounded.
struct SngConnection {
  SngPeer peer;
  double orphan_since_ms = -1.0;  // since when no record has it as its peer; -1 while one does
  double diag_window_start_ms = 0.0;
  int diag_lines = 0;             // diagnostic lines written in the current minute
  int diag_suppressed = 0;        // ... and held back after the budget ran out
  uint64_t foreign_messages = 0;  // messages naming another connection's player, dropped
  double foreign_log_ms = -1e300; // last time such a drop was logged
};

class SngServerState : public SngPlayerHost {
 public:
  static constexpr float kNoShutdown = -9999.0f;       // shutdown_countdown when none is announced
  static constexpr int kMaxSlots = 32;                 // the transport's connection limit
  static constexpr float kDisconnectIdleSeconds = 360.0f;  // a dropped player's least time to come back
  static constexpr float kSyncIntervalSeconds = 5.0f;
  static constexpr int kPingsPerBurst = 5;
  // A pass nested this deep skips the nested pass it would start: LOGIN answers, state lookups and
  // thermal announcements run passes inside passes, and under a packet stream that recursion has no
  // bound of its own. Depth 1 is the main loop's pass, so up to three passes nest inside it.
  static constexpr int kMaxPassDepth = 4;
  // Connections that no player record uses (logged out, displaced by a second LOGIN, never logged in)
  // are closed after ENet's own peer time-out (30 s at most) plus as much again, so that they cannot
  // hold the 32 connection slots. Pilots behind one address are not limited.
  static constexpr double kOrphanConnectionMs = 60000.0;
  static constexpr int kDiagnosticLinesPerMinute = 50;
  static constexpr double kDiagnosticWindowMs = 60000.0;
  static constexpr size_t kMaxMotdBytes = 16 * 1024;

  SngServerState();
  virtual ~SngServerState();
  SngServerState(const SngServerState&) = delete;
  SngServerState& operator=(const SngServerState&) = delete;

  // One service pass of the main loop (SngServer::update).
  virtual void update(int timeoutMs) = 0;

  // --- player table ---
  SngSrvPlayer* playerAt(uint32_t id) const;
  int playerCount() const;
  // Frees the slot at once; the record itself lives until the outermost pass ends.
  void removePlayer(uint32_t id);

  // --- nested passes ---
  // Runs one pass from inside another unless the nesting bound is reached (then counts and skips).
  void runNestedPass(int timeoutMs);
  // Marks a stretch of work during which removed records must stay alive (passes, service steps).
  class DeferScope {
   public:
    explicit DeferScope(SngServerState& server) : server_(server) { ++server_.defer_depth_; }
    ~DeferScope();
    DeferScope(const DeferScope&) = delete;
    DeferScope& operator=(const DeferScope&) = delete;

   private:
    SngServerState& server_;
  };
  class PassScope {
   public:
    explicit PassScope(SngServerState& server) : server_(server), defer_(server) { ++server_.pass_depth_; }
    ~PassScope() { --server_.pass_depth_; }
    PassScope(const PassScope&) = delete;
    PassScope& operator=(const PassScope&) = delete;

   private:
    SngServerState& server_;
    DeferScope defer_;
  };
  int passDepth() const { return pass_depth_; }

  // --- sends ---
  void sendToPeer(const SngPeer& peer, const SngPacket& packet, bool reliable);
  void sendToPlayer(const SngSrvPlayer& player, const SngPacket& packet, bool reliable);
  // One message to every present, non-idle player but the excluded slot (-1: none) that passes the
  // filter; the message is built once for all of them.
  // Relays pass the received bytes straight through, without copying them into a packet first.
  template <class Filter>
  void sendToPlayers(int excludedSlot, const uint8_t* data, size_t size, bool reliable, Filter filter);
  template <class Filter>
  void sendToPlayers(int excludedSlot, const SngPacket& packet, bool reliable, Filter filter) {
    sendToPlayers(excludedSlot, packet.bytes.data(), packet.bytes.size(), reliable, filter);
  }
  void sendToPlayers(int excludedSlot, const SngPacket& packet, bool reliable) {
    sendToPlayers(excludedSlot, packet, reliable, [](const SngSrvPlayer&) { return true; });
  }

  // --- connections, login and the player registry ---
  // One transport service step: handles at most one event, waiting up to timeoutMs.
  void handleNetworkEvents(int timeoutMs);
  void dispatchMessage(const SngNetEvent& event);
  // LOGIN's registration step: the player ID and the result (RESULT_OK or RESULT_SERVER_FULL).
  uint8_t loginPlayer(const SngPeer& peer, uint32_t hwId, uint8_t major, uint8_t minor, const std::string& pilotName,
                      const std::string& nick, uint32_t& playerId);
  void disconnectPlayer(uint32_t id);
  // The ping burst: five PINGs and a TIME_SYNC to every live player, servicing the network in between.
  void sendPingAndTime();
  // A message that names an idle player brings it back with the sender's connection.
  void leaveIdle(SngSrvPlayer& player, const SngPeer& sender, uint8_t opcode);

  // --- broadcasts and the join snapshot ---
  void relayToOthers(uint32_t sender, const std::vector<uint8_t>& bytes);
  void bcastChatMessage(uint32_t sender, const std::string& text);
  void bcastVoice(uint32_t sender, const std::vector<uint8_t>& bytes, uint16_t channel);
  void bcastPlayerLeft(uint32_t id);
  void sendServerInfo(uint32_t id);
  void sendExistingAircraft(uint32_t id);
  void sendExistingThermals(uint32_t id);
  void bcastNewAircraft(uint32_t id);
  void bcastTaskUpdate(uint32_t id);
  void bcastShutdownMessage(const std::string& text);

  SngConnection* connection(const SngPeer& peer);
  // CONNECT's registration step: RESULT_OK, or RESULT_UNKNOWN_PLAYER when the slot's record has
  // another hardware ID or address.
  uint8_t connectPlayer(const SngPeer& peer, uint32_t hwId, uint32_t id, const SngConnectMsg& request,
                        SngTaskProgress& task);
  // The record a message names, when the sender may speak for it: its own connection, or, while its
  // connection is lost, a connection from its address. Otherwise null (a foreign ID is counted).
  SngSrvPlayer* senderPlayer(uint8_t id, const SngPeer& sender, uint8_t opcode);
  // False once the connection has used up this minute's diagnostic lines (the rest are counted).
  bool diagnosticAllowed(const SngPeer& peer);
  // Closes connections no record has used for kOrphanConnectionMs; writes pending summary lines.
  void maintainConnections();

  // --- SngPlayerHost ---
  float simTime() const override { return sim_time; }
  bool competitionMode() const override { return situation.competition_mode; }
  int32_t startGateOpenTime() const override { return situation.start_gate_open_time; }
  bool findTerrainTriangle(double lat, double lon, GgTriangle& triangle) override;
  bool isSeated(const SngSrvPlayer& player) const override;
  void sendThermal(const SngPeer& peer, const SngSrvThermal& thermal) override;

  // --- the fields every part of the server reads directly ---
  std::unique_ptr<SngNetwork> host;
  BtkTimer clock;
  float sim_time = 0.0f;        // s since midnight
  float sync_countdown = 1.0f;  // s
  int32_t pass_count = 0;
  double start_time = 0.0;      // ms since 1970
  bool force_periodic = false;
  bool web_enabled = false;
  bool lan_only = false;
  std::string name;
  std::string scenery_dir;
  std::string motd;
  SngSituation situation;
  SngRenderContext render_context;
  BtkRef<GgTerrainGroup> terrain;
  std::vector<std::unique_ptr<SngSrvPlayer>> players;  // index = player ID; null = free slot
  float web_countdown = 0.0f;           // s
  float web_interval = 10.0f;           // s
  float task_update_countdown = 15.0f;  // s
  float shutdown_countdown = kNoShutdown;  // s
  float kill_poll_countdown = 1.0f;     // s
  uint16_t default_comm_channel = 218;  // 123.450 MHz

  std::map<uint32_t, SngConnection> connections;  // by the transport's connect_id
  uint64_t numSkippedNestedPasses = 0;
  uint64_t numDroppedSends = 0;      // refused by the transport: connection gone or message too large
  uint64_t numForeignMessages = 0;   // named another connection's player, dropped
  uint64_t numUnrecordedStates = 0;  // non-finite or off-the-globe states: relayed, not recorded
  uint64_t numEvents = 0;            // transport events handled

 private:
  void releaseRemovedPlayers();
  static void logEmptyPeer(const uint8_t* data, size_t size);
  void handleLogin(SngPacket& packet, const SngPeer& peer);
  void handleConnect(SngPacket& packet, const SngPeer& peer);
  void handleAircraftState(SngPacket& packet, const SngPeer& peer, uint8_t opcode);
  void handleCrashOrInactive(SngPacket& packet, const SngPeer& peer, uint8_t opcode);
  void handleChat(SngPacket& packet, const SngPeer& peer);
  void handleVoice(SngPacket& packet, const SngPeer& peer);
  void handleCommFrq(SngPacket& packet, const SngPeer& peer);
  void handleLogout(SngPacket& packet, const SngPeer& peer);
  void handleServerScan(const SngPeer& peer);
  void handleUnknownOpcode(const SngPeer& peer, uint8_t opcode);
  void onConnect(const SngPeer& peer, const SngPeerInfo& info);
  void onDisconnect(const SngPeer& peer, const SngPeerInfo& info);
  SngPacket buildServerInfo(uint32_t id, bool& stillSeated);
  SngPacket buildAircraftMessage(uint8_t opcode, const SngSrvPlayer& player);

  int pass_depth_ = 0;
  int defer_depth_ = 0;
  std::vector<std::unique_ptr<SngSrvPlayer>> removed_players_;
};

template <class Filter>
void SngServerState::sendToPlayers(int excludedSlot, const uint8_t* data, size_t size, bool reliable, Filter filter) {
  std::vector<SngPeer> peers;
  for (size_t slot = 0; slot < players.size(); ++slot) {
    const SngSrvPlayer* player = players[slot].get();
    if (!player || player->idle || static_cast<int>(slot) == excludedSlot || !filter(*player)) continue;
    if (!player->peer) {
      logEmptyPeer(data, size);
      continue;
    }
    peers.push_back(player->peer);
  }
  if (peers.empty() || !host) return;
  const size_t taken = host->send(peers.data(), peers.size(), data, size, reliable);
  numDroppedSends += peers.size() - taken;
}
