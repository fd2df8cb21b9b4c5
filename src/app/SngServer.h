// The server: the state record of src/net completed by its start-up, main loop and shutdown. One
// object, built by main and alive until the process ends.
#pragma once

#include <string>

#include "app/SngOptions.h"
#include "net/SngServerState.h"
#include "toolkit/BtkTimer.h"

class SngServer : public SngServerState {
 public:
  static constexpr double kPeriodicIntervalMs = 2000.0;
  static constexpr int kLoopWaitMs = 100;  // network wait of a main-loop pass
  static constexpr float kTaskUpdateSeconds = 15.0f;
  static constexpr double kLoopStatsIntervalMs = 600000.0;  // a statistics line every 10 minutes

  SngServer();
  ~SngServer() override;

  // The start-up sequence; false means the process must end with exit code 1.
  bool init(int argc, char** argv);
  // The main loop; never returns (the process ends through shutdown).
  [[noreturn]] void run();
  // One service pass; timeoutMs is the longest wait for a network event. Passes may nest.
  void update(int timeoutMs) override;
  // The orderly stop; never returns.
  [[noreturn]] void shutdown();

  // What run() does once per turn: the periodic work when due, then one pass. Split out so that
  // tests drive the loop with an injected clock and no network wait.
  void loopIteration(int timeoutMs);
  // Starts the loop's clocks as run() does, without entering the loop.
  void startLoopClocks();

  std::string killFilePath() const;
  std::string pidFilePath() const;

  SngOptions options;

 private:
  void periodicWork();
  bool readSituation(const std::string& situationName);
  void readMessageOfTheDay();
  bool initTerrainModel(const std::string& scenery);
  void logScenerySize();
  bool openNetwork();
  void updatePlayers(float dt);
  void broadcastTaskProgress();
  void pollKillFile();
  void handleStopSignal();
  void cleanupTerrainCache();
  float startTimeOfDay() const;

  void logLoopStatistics();

  BtkTimer periodic_timer_;
  // Time spent in main-loop passes that handled an event (those never wait for the network).
  BtkTimer stats_timer_;
  uint64_t stats_passes_ = 0;
  uint64_t stats_busy_passes_ = 0;
  double stats_worst_busy_ms_ = 0.0;
  bool enet_initialized_ = false;
};

// SIGTERM and SIGINT start the same orderly shutdown as a kill file of 0 minutes; the handler only
// records the signal, the next pass acts on it.
void sngInstallStopSignalHandlers();
// The signal recorded by the handler and not yet acted on (0: none); clears it.
int sngTakeStopSignal();
