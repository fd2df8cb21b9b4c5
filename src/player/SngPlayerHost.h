// What a player record needs from the server that owns it. The server hands itself to every record
// through this narrow interface, so the session library never links the server.
#pragma once

#include <cstdint>

#include "player/SngPeer.h"

struct GgTriangle;
class SngSrvPlayer;
class SngSrvThermal;

class SngPlayerHost {
 public:
  virtual float simTime() const = 0;
  virtual bool competitionMode() const = 0;
  virtual int32_t startGateOpenTime() const = 0;  // s of the day
  // The terrain triangle under a point. When it finds a tile it runs one nested server pass, which may
  // handle any message and remove any player: callers check isSeated afterwards.
  virtual bool findTerrainTriangle(double lat, double lon, GgTriangle& triangle) = 0;
  // Whether the record still holds its slot; a record removed during a nested pass lives on, unseated,
  // until the outermost pass ends.
  virtual bool isSeated(const SngSrvPlayer& player) const = 0;
  virtual void sendThermal(const SngPeer& peer, const SngSrvThermal& thermal) = 0;
  // Whether a line caused by this connection's messages may still be written this minute.
  virtual bool traceAllowed(const SngPeer& peer) = 0;

 protected:
  ~SngPlayerHost() = default;
};
