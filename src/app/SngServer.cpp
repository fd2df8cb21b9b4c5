#include "app/SngServer.h"

#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include <enet/enet.h>

#include "app/SngAppPaths.h"
#include "net/SngEnetNetwork.h"
#include "terrain/GgCounters.h"
#include "terrain/GgScenery.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr const char* kVersionText = "Quorvane Server v1.20.2";
constexpr const char* kPlatformWord = "LINUX";
constexpr int kProtocolMajor = 1;
constexpr int kProtocolMinor = 8;
constexpr int kLineBufferSize = 1024;  // kill file and message-of-the-day lines: at most 1023 characters

volatile sig_atomic_t pendingStopSignal = 0;

void onStopSignal(int signo) { pendingStopSignal = signo; }

// The situation file name without directory and extension; a leading dot is no extension.
std::string baseName(const std::string& situationName) {
  std::string base = situationName;
  size_t slash = base.rfind('/');
  if (slash == std::string::npos) slash = base.rfind('\\');
  if (slash != std::string::npos) base = base.substr(slash + 1);
  const size_t dot = base.rfind('.');
  if (dot != std::string::npos && dot != 0) base = base.substr(0, dot);
  return base;
}

// One line of at most 1023 characters, as a 1024-byte buffer holds it.
std::string readBoundedLine(std::ifstream& in) {
  char buffer[kLineBufferSize] = "";
  in.getline(buffer, sizeof buffer);
  return buffer;
}

// Leading blanks and a sign allowed, 0 without digits; clamped so that minutes * 60 stays finite.
int parseMinutes(const std::string& line) {
  long value = strtol(line.c_str(), nullptr, 10);
  if (value > INT_MAX / 60) value = INT_MAX / 60;
  if (value < INT_MIN / 60) value = INT_MIN / 60;
  return static_cast<int>(value);
}

}  // namespace

void sngInstallStopSignalHandlers() {
  struct sigaction action {};
  action.sa_handler = &onStopSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

int sngTakeStopSignal() {
  const int signo = pendingStopSignal;
  pendingStopSignal = 0;
  return signo;
}

SngServer::SngServer() {
  if (enet_initialize() != 0) {
    fputs("An error occurred while initializing ENet.\n", stderr);
    abort();
  }
  enet_initialized_ = true;
}

SngServer::~SngServer() {
  players.clear();
  host.reset();
  if (enet_initialized_) enet_deinitialize();
}

std::string SngServer::killFilePath() const { return userDir + "/servers/" + name + ".kill"; }
std::string SngServer::pidFilePath() const { return userDir + "/servers/" + name + ".pid"; }

float SngServer::startTimeOfDay() const {
  return static_cast<float>(situation.hour * 3600 + situation.minute * 60 + situation.second);
}

bool SngServer::init(int argc, char** argv) {
  std::string unknown;
  if (!sngScanOptions(argc, argv, options, &unknown)) {
    fprintf(stderr, "unknown option: %s\n", unknown.c_str());
    return false;
  }
  web_enabled = !options.web.empty();
  lan_only = options.lan;
  web_interval = options.web_interval;

  const std::string logPath = options.log.empty() ? userDir + "/servers/qvserver.log" : options.log;
  if (!btkLogger.open(logPath, BTK_DEBUG, false)) fputs("Couldn't open log file!\n", stderr);

  btkLogger.log(BTK_INFO, "Starting Quorvane server %s (%s), protocol V%d.%02d", kVersionText, kPlatformWord,
                kProtocolMajor, kProtocolMinor);

  name = baseName(options.stn);
  btkLogger.log(BTK_INFO, "server name: %s", name.c_str());
  // A kill file left from an earlier run must not stop this one at once.
  unlink(killFilePath().c_str());

  btkLogger.log(BTK_INFO, "situation file: %s", options.stn.c_str());
  if (!readSituation(options.stn)) return false;

  sim_time = startTimeOfDay();
  btkLogger.log(BTK_INFO, "Simulation time: %02d:%02d:%02d", situation.hour, situation.minute, situation.second);

  readMessageOfTheDay();

  if (!initTerrainModel(situation.terrainId)) {
    fprintf(stderr, "Init terrain model: %s failed!\n", situation.terrainId.c_str());
    return false;
  }
  btkLogger.log(BTK_INFO, "scenery: %s (%s)", situation.terrainId.c_str(), scenery_dir.c_str());
  logScenerySize();
  // The thermal grid is laid over the scenery here.

  // The LAN scan socket (openScanSocket with options.scan_port) comes here.

  if (!openNetwork()) return false;

  default_comm_channel = btkCommChannel(situation.mp_comm_frq);

  // The situation leaves the lower bound open; a table without slots could never serve anybody.
  if (situation.mp_max_players < 1) {
    btkLogger.log(BTK_FATAL, "Invalid mp_max_players = %d in the situation file: at least 1 player is needed",
                  situation.mp_max_players);
    return false;
  }
  players.resize(std::min(kMaxSlots, situation.mp_max_players));

  // The web reporter's session data are handed over here when web_enabled.
  return true;
}

bool SngServer::readSituation(const std::string& situationName) {
  // The name may hold subdirectories; it is always taken under the server directory.
  const std::string path = userDir + "/servers/" + situationName;
  if (!situation.load(path)) {
    btkLogger.log(BTK_FATAL, "Couldn't open situation file: %s", path.c_str());
    return false;
  }
  return true;
}

void SngServer::readMessageOfTheDay() {
  motd.clear();
  if (situation.mp_server_message_file.empty()) return;
  const std::string path = userDir + "/servers/" + situation.mp_server_message_file;
  std::ifstream in(path);
  if (!in) {
    btkError() << "Couldn't open MOTD file: " << path << btkFlush;
    return;
  }
  // Every read is appended, the final empty one too: a file ending in a line feed leaves one more
  // "\n" behind, and a line over 1023 characters ends the message after its first 1023.
  while (in.good()) {
    motd += readBoundedLine(in);
    motd += "\n";
    // Every joining client gets the whole message in SERVER_INFO, whose size the transport limits.
    if (motd.size() > kMaxMotdBytes) {
      motd.resize(kMaxMotdBytes);
      btkLogger.log(BTK_WARNING, "MOTD file %s is longer than %zu bytes: the rest is not sent", path.c_str(),
                    kMaxMotdBytes);
      break;
    }
  }
}

bool SngServer::initTerrainModel(const std::string& scenery) {
  return ggLoadScenery(dataDir, scenery, terrain, scenery_dir);
}

void SngServer::logScenerySize() {
  const double ns = surfaceDistance(terrain->minLat, terrain->minLon, terrain->maxLat, terrain->minLon);
  const double mid = (terrain->minLat + terrain->maxLat) * 0.5;
  const double ew = surfaceDistance(mid, terrain->minLon, mid, terrain->maxLon);
  btkLogger.log(BTK_DEBUG, "Total area: %.1f km NS, %.1f km EW", ns / 1000.0, ew / 1000.0);
  // Cells of at most 20 km each way.
  const int rows = 1 + static_cast<int>(ns / 20000.0);
  const int cols = 1 + static_cast<int>(ew / 20000.0);
  btkLogger.log(BTK_DEBUG, "Cell size: %lf x %lf", ns / rows, ew / cols);
  btkLogger.log(BTK_DEBUG, "Thermal grid: %d x %d", rows, cols);
}

bool SngServer::openNetwork() {
  host.reset(SngEnetNetwork::create(static_cast<uint16_t>(situation.mp_server_port)));
  if (!host) {
    fputs("An error occurred while trying to create an ENet server host.\n", stderr);
    btkLogger.log(BTK_ERROR, "An error occurred while trying to create an ENet server host.");
    return false;
  }
  return true;
}

void SngServer::startLoopClocks() {
  btkLogger.log(BTK_DEBUG, "Starting main loop...");
  clock.start();
  periodic_timer_.start();
  stats_timer_.start();
  start_time = btkWallClockMs();
  // The web reporter thread starts here when web_enabled.
}

void SngServer::run() {
  startLoopClocks();
  for (;;) loopIteration(kLoopWaitMs);
}

void SngServer::loopIteration(int timeoutMs) {
  if (force_periodic || periodic_timer_.elapsedMs() >= kPeriodicIntervalMs) periodicWork();
  const uint64_t eventsBefore = numEvents;
  BtkTimer passTimer;
  passTimer.start();
  update(timeoutMs);
  const double ms = passTimer.elapsedMs();
  ++stats_passes_;
  if (numEvents != eventsBefore) {
    ++stats_busy_passes_;
    if (ms > stats_worst_busy_ms_) stats_worst_busy_ms_ = ms;
  }
  if (stats_timer_.elapsedMs() >= kLoopStatsIntervalMs) logLoopStatistics();
}

void SngServer::logLoopStatistics() {
  btkLogger.log(BTK_DEBUG,
                "Loop statistics: %llu passes, %llu with network events, worst of those %.3f ms; skipped nested "
                "passes %llu, refused sends %llu, foreign messages %llu, unrecorded states %llu",
                static_cast<unsigned long long>(stats_passes_), static_cast<unsigned long long>(stats_busy_passes_),
                stats_worst_busy_ms_, static_cast<unsigned long long>(numSkippedNestedPasses),
                static_cast<unsigned long long>(numDroppedSends), static_cast<unsigned long long>(numForeignMessages),
                static_cast<unsigned long long>(numUnrecordedStates));
  stats_passes_ = stats_busy_passes_ = 0;
  stats_worst_busy_ms_ = 0.0;
  stats_timer_.lapMs();
}

void SngServer::periodicWork() {
  // The thermal update (with sim_time) comes here; until then no thermal exists.
  const int totalThermals = 0;
  if (totalThermals == 0 && playerCount() == 0 && sim_time > situation.start_gate_open_time) {
    sim_time = startTimeOfDay();
    btkDebug() << "Timer reset: curr_time = " << sim_time << btkFlush;
  }
  periodic_timer_.lapMs();
  force_periodic = false;
  cleanupTerrainCache();
  maintainConnections();
}

void SngServer::cleanupTerrainCache() {
  if (!terrain) return;
  const int32_t before = memSize();
  terrain->cleanup();
  const int32_t after = memSize();
  btkLogger.log(BTK_DEBUG, "Terrain cache cleanup: memsize = %d K max = %d K (freed %d K)", after / 1000,
                maxMemSize() / 1000, before / 1000 - after / 1000);
}

void SngServer::update(int timeoutMs) {
  PassScope pass(*this);
  const float dt = static_cast<float>(clock.lapMs() / 1000.0);
  sim_time += dt;

  sync_countdown -= dt;
  if (sync_countdown <= 0.0f) {
    // Set before the burst: a pass nested inside it must not start another one.
    sync_countdown = kSyncIntervalSeconds;
    sendPingAndTime();
  }

  updatePlayers(dt);

  task_update_countdown -= dt;
  if (task_update_countdown <= 0.0f) {
    broadcastTaskProgress();
    task_update_countdown = kTaskUpdateSeconds;
  }

  if (shutdown_countdown > kNoShutdown) {
    shutdown_countdown -= dt;
    if (shutdown_countdown <= 0.0f) shutdown();
  }

  kill_poll_countdown -= dt;
  handleStopSignal();
  if (shutdown_countdown == kNoShutdown && kill_poll_countdown < 0.0f) {
    pollKillFile();
    kill_poll_countdown = 1.0f;
  }

  web_countdown -= dt;
  if (web_countdown <= 0.0f) {
    // sendWebUpdate comes here; until then the countdown stays expired, as for a busy reporter.
  }

  ++pass_count;
  handleNetworkEvents(timeoutMs);
  // With lan_only, one scan answer (pollScanSocket) comes here.
}

void SngServer::updatePlayers(float dt) {
  for (size_t slot = 0; slot < players.size(); ++slot) {
    SngSrvPlayer* player = players[slot].get();
    if (!player) continue;
    player->update(dt);
    if (player->idle && player->idle_time_left <= 0.0f) {
      btkLogger.log(BTK_INFO, "Idle timeout for player %zu, disconnecting\n", slot);
      disconnectPlayer(static_cast<uint32_t>(slot));
    }
  }
}

void SngServer::broadcastTaskProgress() {
  for (size_t slot = 0; slot < players.size(); ++slot) {
    SngSrvPlayer* player = players[slot].get();
    if (!player || player->idle || player->task.turnpoints.empty()) continue;
    if (player->task.finished && !player->finish_reported) {
      web_countdown = 0.0f;  // the web trigger of this same pass reports the finish
      player->finish_reported = true;
    }
    bcastTaskUpdate(static_cast<uint32_t>(slot));  // logs "Send task update"
  }
}

void SngServer::handleStopSignal() {
  const int signo = sngTakeStopSignal();
  if (signo == 0) return;
  btkLogger.log(BTK_INFO, "Received %s, shutting down", signo == SIGINT ? "SIGINT" : "SIGTERM");
  btkLogger.log(BTK_INFO, "Shutdown: %d min, msg = %s", 0, "(no message)");
  // Also cuts short a shutdown already announced for later: the operator wants the server gone now.
  shutdown_countdown = 0.0f;
}

void SngServer::pollKillFile() {
  std::ifstream in(killFilePath());
  if (!in) return;  // the normal case: nobody asked for a shutdown
  const std::string first = readBoundedLine(in);
  std::string message = in ? readBoundedLine(in) : std::string();
  // A file written on another system may end its lines with CR LF.
  if (!message.empty() && message.back() == '\r') message.pop_back();
  const int minutes = parseMinutes(first);
  if (!message.empty()) bcastShutdownMessage(message);
  shutdown_countdown = static_cast<float>(minutes) * 60.0f;
  btkLogger.log(BTK_INFO, "Shutdown: %d min, msg = %s", minutes, message.empty() ? "(no message)" : message.c_str());
}

void SngServer::shutdown() {
  btkLogger.log(BTK_INFO, "Server Shutdown\n");
  logLoopStatistics();
  unlink(killFilePath().c_str());
  unlink(pidFilePath().c_str());
  host.reset();
  if (enet_initialized_) {
    enet_deinitialize();
    enet_initialized_ = false;
  }
  players.clear();
  btkExit(0);
}
