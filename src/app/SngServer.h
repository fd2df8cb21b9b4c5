// The server state record and its start-up, main loop and shutdown. One object, built by main and
// alive until the process ends; every other part of the server is handed it explicitly.
#pragma once

#include <enet/enet.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/SngOptions.h"
#include "config/SngSituation.h"
#include "toolkit/BtkTimer.h"

class SngSrvPlayer;

// The scene-graph context the terrain group would be built on; the server renders nothing.
struct SngRenderContext {};

class SngServer {
 public:
  static constexpr float kNoShutdown = -9999.0f;        // shutdown_countdown when none is announced
  static constexpr double kPeriodicIntervalMs = 2000.0;
  static constexpr int kLoopWaitMs = 100;               // network wait of a main-loop pass
  static constexpr int kMaxSlots = 32;                  // the ENet host's peer limit

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

  int playerCount() const;
  std::string killFilePath() const;
  std::string pidFilePath() const;

  // --- state read directly by every part of the server ---
  ENetHost* host = nullptr;
  BtkTimer clock;
  float sim_time = 0.0f;             // s since midnight
  float sync_countdown = 1.0f;       // s
  int32_t pass_count = 0;
  double start_time = 0.0;           // ms since 1970
  bool force_periodic = false;
  bool web_enabled = false;
  bool lan_only = false;
  std::string name;
  std::string scenery_dir;
  std::string motd;
  SngSituation situation;
  SngRenderContext render_context;
  std::vector<std::unique_ptr<SngSrvPlayer>> players;  // index = player ID; null = free slot
  float web_countdown = 0.0f;           // s
  float web_interval = 10.0f;           // s
  float task_update_countdown = 15.0f;  // s
  float shutdown_countdown = kNoShutdown;  // s
  float kill_poll_countdown = 1.0f;     // s
  uint16_t default_comm_channel = 218;  // 123.450 MHz

  SngOptions options;

 private:
  void periodicWork();
  bool readSituation(const std::string& situationName);
  void readMessageOfTheDay();
  bool openEnetHost();
  void pollKillFile();
  void handleStopSignal();
  void handleNetworkEvents(int timeoutMs);
  float startTimeOfDay() const;

  BtkTimer periodic_timer_;
  bool enet_initialized_ = false;
};

// SIGTERM and SIGINT start the same orderly shutdown as a kill file of 0 minutes; the handler only
// records the signal, the next pass acts on it.
void sngInstallStopSignalHandlers();
// The signal recorded by the handler and not yet acted on (0: none); clears it.
int sngTakeStopSignal();
