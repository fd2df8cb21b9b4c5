// The join snapshot and the server's broadcasts. Reads the player table and the session, sends through
// the outbox; sendServerInfo alone runs a nested pass (through the terrain lookup of `host`), so any
// handler may run inside it.
#pragma once

#include <cstdint>
#include <string>

#include "net/SngOutbox.h"
#include "net/SngPlayerTable.h"
#include "net/SngSession.h"
#include "player/SngPlayerHost.h"
#include "wire/SngPacket.h"

class SngBroadcasts {
 public:
  SngBroadcasts(const SngPlayerTable& players, SngOutbox& out, const SngSession& session, SngPlayerHost& host)
      : players_(players), out_(out), session_(session), host_(host) {}

  // A received state, crash or inactive notice, as it came, unreliable to every other player.
  void relayToOthers(uint32_t sender, const uint8_t* data, size_t size);
  void bcastChatMessage(uint32_t sender, const std::string& text);
  // A received voice message, as it came, to the other players on its channel.
  void bcastVoice(uint32_t sender, const uint8_t* data, size_t size, uint16_t channel);
  void bcastPlayerLeft(uint32_t id);
  // LOGIN's answer. Runs one nested pass; the player may be gone afterwards, and then nothing is sent.
  void sendServerInfo(uint32_t id, bool trace = true);
  void sendExistingAircraft(uint32_t id);
  void bcastNewAircraft(uint32_t id);
  void bcastTaskUpdate(uint32_t id);
  void bcastShutdownMessage(const std::string& text);

 private:
  SngPacket buildServerInfo(uint32_t id, bool trace, bool& stillSeated);
  SngPacket buildAircraftMessage(uint8_t opcode, const SngSrvPlayer& player) const;

  const SngPlayerTable& players_;
  SngOutbox& out_;
  const SngSession& session_;
  SngPlayerHost& host_;
};
