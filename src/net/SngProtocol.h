// The client protocol: the player table, the connections and the handlers of every message, driven
// by one transport service step at a time. The server owns one and hands it the session (read only)
// and a way to run one more server pass from inside the current one. Three operations run such a
// nested pass so that the network stays serviced while they work: LOGIN's SERVER_INFO, every terrain
// triangle lookup that finds a tile, and (with the thermal grid) each new thermal's announcement. Any
// handler can therefore run in the middle of another; code that calls one of them keeps no record
// pointer across the call unless it checks `isSeated` afterwards.
//
// An AIRCRAFT_STATE's road: handleNetworkEvents (one ENet event) -> dispatch -> SngSessionMessages::
// handleAircraftState -> SngConnections::senderPlayer (may this connection speak for the player?) ->
// SngSrvPlayer::updateState (terrain lookup with its nested pass, ground speed, track, task scoring)
// -> SngBroadcasts::relayToOthers (the received bytes, unreliable, to every other player).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "net/SngBroadcasts.h"
#include "net/SngConnections.h"
#include "net/SngNetwork.h"
#include "net/SngOutbox.h"
#include "net/SngPlayerTable.h"
#include "net/SngSession.h"
#include "net/SngSessionMessages.h"
#include "player/SngPlayerHost.h"

class SngProtocol : public SngPlayerHost {
 public:
  static constexpr int kMaxSlots = 32;  // the transport's connection limit
  static constexpr int kPingsPerBurst = 5;
  // A pass nested this deep skips the nested pass it would start: under a packet stream the recursion
  // of passes inside passes has no bound of its own. Depth 1 is the main loop's pass, so up to three
  // passes nest inside it.
  static constexpr int kMaxPassDepth = 4;

  // runPass runs one whole server pass (the main loop's update) with the given network wait.
  SngProtocol(SngSession& session, std::function<void(int timeoutMs)> runPass);
  SngProtocol(const SngProtocol&) = delete;
  SngProtocol& operator=(const SngProtocol&) = delete;

  void setNetwork(std::unique_ptr<SngNetwork> network) { out_.setNetwork(std::move(network)); }
  SngNetwork* network() const { return out_.network(); }

  // One transport service step: handles at most one event, waiting up to timeoutMs.
  void handleNetworkEvents(int timeoutMs);
  // Runs one pass from inside another unless the nesting bound is reached (then counts and skips).
  void runNestedPass(int timeoutMs);
  // The ping burst: five PINGs and a TIME_SYNC to every live player, servicing the network in between.
  void sendPingAndTime();
  // True once after an accepted CONNECT: the main loop then runs its periodic work at once.
  bool takePlayerJoined();

  // Opened by every server pass: counts the nesting, and keeps records removed meanwhile alive.
  class PassScope {
   public:
    explicit PassScope(SngProtocol& protocol) : protocol_(protocol), defer_(protocol.players_) {
      ++protocol_.pass_depth_;
    }
    ~PassScope() { --protocol_.pass_depth_; }
    PassScope(const PassScope&) = delete;
    PassScope& operator=(const PassScope&) = delete;

   private:
    SngProtocol& protocol_;
    SngPlayerTable::DeferScope defer_;
  };
  int passDepth() const { return pass_depth_; }

  SngPlayerTable& players() { return players_; }
  const SngPlayerTable& players() const { return players_; }
  SngConnections& connections() { return connections_; }
  SngBroadcasts& broadcasts() { return broadcasts_; }

  // --- SngPlayerHost ---
  float simTime() const override { return session_.sim_time; }
  bool competitionMode() const override { return session_.situation.competition_mode; }
  int32_t startGateOpenTime() const override { return session_.situation.start_gate_open_time; }
  bool findTerrainTriangle(double lat, double lon, GgTriangle& triangle) override;
  bool isSeated(const SngSrvPlayer& player) const override { return players_.isSeated(player); }
  void sendThermal(const SngPeer& peer, const SngSrvThermal& thermal) override;
  bool traceAllowed(const SngPeer& peer) override { return connections_.traceAllowed(peer); }

  struct Counters {
    uint64_t events = 0;               // transport events handled
    uint64_t skipped_nested_passes = 0;
    uint64_t dropped_sends = 0;        // refused by the transport: connection gone or message too large
    uint64_t foreign_messages = 0;     // named another connection's player, dropped
    uint64_t unrecorded_states = 0;    // non-finite or off-the-globe states: relayed, not recorded
  };
  Counters counters() const;

 private:
  void dispatchMessage(const SngNetEvent& event);

  SngSession& session_;
  std::function<void(int)> runPass_;
  SngPlayerTable players_;
  SngOutbox out_;
  SngBroadcasts broadcasts_;
  SngConnections connections_;
  SngSessionMessages messages_;
  int pass_depth_ = 0;
  uint64_t num_events_ = 0;
  uint64_t num_skipped_nested_passes_ = 0;
};
