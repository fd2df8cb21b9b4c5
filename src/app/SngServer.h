// The server: start-up, the main loop and shutdown. It owns the session (what start-up read, and the
// simulated time) and the protocol, which it hands the session and its own pass as the nested pass.
// One object, built by main and alive until the process ends.
#pragma once

#include <cstdint>
#include <string>

#include "app/SngOptions.h"
#include "net/SngProtocol.h"
#include "net/SngScanResponder.h"
#include "net/SngSession.h"
#include "toolkit/BtkTimer.h"

class SngServer {
 public:
  static constexpr double kPeriodicIntervalMs = 2000.0;
  static constexpr int kLoopWaitMs = 100;  // network wait of a main-loop pass
  static constexpr float kTaskUpdateSeconds = 15.0f;
  static constexpr float kSyncIntervalSeconds = 5.0f;
  static constexpr double kLoopStatsIntervalMs = 600000.0;  // a statistics line every 10 minutes
  static constexpr size_t kMaxMotdBytes = 16 * 1024;

  SngServer();
  ~SngServer();
  SngServer(const SngServer&) = delete;
  SngServer& operator=(const SngServer&) = delete;

  // The start-up sequence; false means the process must end with exit code 1.
  bool init(int argc, char** argv);
  // The main loop; never returns (the process ends through shutdown).
  [[noreturn]] void run();
  // One service pass; timeoutMs is the longest wait for a network event. Passes may nest.
  void update(int timeoutMs);
  // The orderly stop; never returns.
  [[noreturn]] void shutdown();

  // What run() does once per turn: the periodic work when due, then one pass. Split out so that
  // tests drive the loop with an injected clock and no network wait.
  void loopIteration(int timeoutMs);
  // Starts the loop's clocks as run() does, without entering the loop.
  void startLoopClocks();

  std::string killFilePath() const;
  std::string pidFilePath() const;
  const std::string& name() const { return name_; }

  SngSession& session() { return session_; }
  SngProtocol& protocol() { return protocol_; }

  SngOptions options;

 private:
  void periodicWork();
  bool readSituation(const std::string& situationName);
  void readMessageOfTheDay();
  void logScenerySize();
  bool openNetwork();
  void updatePlayers(float dt);
  void broadcastTaskProgress();
  void pollKillFile();
  void handleStopSignal();
  void cleanupTerrainCache();
  float startTimeOfDay() const;
  void logLoopStatistics();

  SngSession session_;
  SngProtocol protocol_;
  SngScanResponder scan_{session_, protocol_.players()};
  bool lan_only_ = false;  // "-lan": answer scans
  std::string name_;  // the situation file's base name: names the kill and pid files
  bool enet_initialized_ = false;

  // The loop's own clocks and countdowns (seconds unless named otherwise).
  BtkTimer clock_;
  BtkTimer periodic_timer_;
  bool force_periodic_ = false;
  float sync_countdown_ = 1.0f;
  float task_update_countdown_ = kTaskUpdateSeconds;
  bool shutdown_announced_ = false;
  float shutdown_countdown_ = 0.0f;
  float kill_poll_countdown_ = 1.0f;
  bool kill_file_warned_ = false;  // a kill file that is no regular file is reported once
  // Runs out when a web report is due; a finish sets it to 0 so that the report goes out at once.
  float web_countdown_ = 0.0f;

  // Time spent in main-loop passes that handled an event (those never wait for the network).
  BtkTimer stats_timer_;
  uint64_t stats_passes_ = 0;
  uint64_t stats_busy_passes_ = 0;
  double stats_worst_busy_ms_ = 0.0;
};

// SIGTERM and SIGINT start the same orderly shutdown as a kill file of 0 minutes; the handler only
// records the signal, the next pass acts on it.
void sngInstallStopSignalHandlers();
// The signal recorded by the handler and not yet acted on (0: none); clears it.
int sngTakeStopSignal();
