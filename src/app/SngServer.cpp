#include "app/SngServer.h"

#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>

#include <enet/enet.h>

#include "app/SngAppPaths.h"
#include "net/SngEnetNetwork.h"
#include "terrain/GgCounters.h"
#include "terrain/GgScenery.h"
#include "toolkit/BtkFiles.h"
#include "toolkit/BtkClock.h"
#include "toolkit/BtkExit.h"
#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr const char* kVersionText = "Quorvane Server v1.20.2";
constexpr const char* kPlatformWord = "LINUX";
constexpr int kProtocolMajor = 1;
constexpr int kProtocolMinor = 8;
// What is read of a kill file: two lines of at most 1023 characters each fit.
constexpr size_t kMaxKillFileBytes = 4096;

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

SngServer::SngServer() : protocol_(session_, [this](int timeoutMs) { update(timeoutMs); }) {
  if (enet_initialize() != 0) {
    fputs("An error occurred while initializing ENet.\n", stderr);
    abort();
  }
  enet_initialized_ = true;
}

SngServer::~SngServer() {
  protocol_.players().clear();
  protocol_.setNetwork(nullptr);
  if (enet_initialized_) enet_deinitialize();
}

std::string SngServer::killFilePath() const { return userDir + "/servers/" + name_ + ".kill"; }
std::string SngServer::pidFilePath() const { return userDir + "/servers/" + name_ + ".pid"; }

float SngServer::startTimeOfDay() const {
  const SngSituation& situation = session_.situation;
  return static_cast<float>(situation.hour * 3600 + situation.minute * 60 + situation.second);
}

bool SngServer::init(int argc, char** argv) {
  std::string unknown;
  if (!sngScanOptions(argc, argv, options, &unknown)) {
    fprintf(stderr, "unknown option: %s\n", unknown.c_str());
    return false;
  }
  const std::string logPath = options.log.empty() ? userDir + "/servers/qvserver.log" : options.log;
  if (!btkLogger.open(logPath, BTK_DEBUG, false)) fputs("Couldn't open log file!\n", stderr);

  btkLogger.log(BTK_INFO, "Starting Quorvane server %s (%s), protocol V%d.%02d", kVersionText, kPlatformWord,
                kProtocolMajor, kProtocolMinor);

  name_ = baseName(options.stn);
  btkLogger.log(BTK_INFO, "server name: %s", name_.c_str());
  // A kill file left from an earlier run must not stop this one at once.
  unlink(killFilePath().c_str());

  btkLogger.log(BTK_INFO, "situation file: %s", options.stn.c_str());
  if (!readSituation(options.stn)) return false;

  SngSituation& situation = session_.situation;
  session_.sim_time = startTimeOfDay();
  btkLogger.log(BTK_INFO, "Simulation time: %02d:%02d:%02d", situation.hour, situation.minute, situation.second);

  readMessageOfTheDay();

  if (!ggLoadScenery(dataDir, situation.terrainId, session_.terrain, session_.scenery_dir)) {
    fprintf(stderr, "Init terrain model: %s failed!\n", situation.terrainId.c_str());
    return false;
  }
  btkLogger.log(BTK_INFO, "scenery: %s (%s)", situation.terrainId.c_str(), session_.scenery_dir.c_str());
  logScenerySize();

  // Opened whether or not scans are answered: the port is taken, as operators expect from the log line.
  lan_only_ = options.lan;
  scan_.open(options.scan_port);

  if (!openNetwork()) return false;

  session_.default_comm_channel = btkCommChannel(situation.mp_comm_frq);

  // The situation leaves the lower bound open; a table without slots could never serve anybody.
  if (situation.mp_max_players < 1) {
    btkLogger.log(BTK_FATAL, "Invalid mp_max_players = %d in the situation file: at least 1 player is needed",
                  situation.mp_max_players);
    return false;
  }
  protocol_.players().resize(static_cast<size_t>(std::min(SngProtocol::kMaxSlots, situation.mp_max_players)));
  return true;
}

bool SngServer::readSituation(const std::string& situationName) {
  // The name may hold subdirectories; it is always taken under the server directory.
  const std::string path = userDir + "/servers/" + situationName;
  if (!session_.situation.load(path)) {
    btkLogger.log(BTK_FATAL, "Couldn't open situation file: %s", path.c_str());
    return false;
  }
  return true;
}

void SngServer::readMessageOfTheDay() {
  std::string& motd = session_.motd;
  motd.clear();
  const SngSituation& situation = session_.situation;
  if (situation.mp_server_message_file.empty()) return;
  const std::string path = userDir + "/servers/" + situation.mp_server_message_file;
  std::string text;
  // Enough to fill the message even when every line ends in CR LF.
  if (btkReadRegularFile(path, 4 * kMaxMotdBytes, text) != BtkFileRead::OK) {
    btkError() << "Couldn't open MOTD file: " << path << btkFlush;
    return;
  }
  // Every line read is appended, the final empty one too: a file ending in a line feed leaves one more
  // "\n" behind, and a line over 1023 characters ends the message after its first 1023.
  BtkLineReader lines(std::move(text));
  while (lines.good()) {
    std::string line = lines.next();
    // A file written on another system may end its lines with CR LF.
    if (lines.lastHadLineFeed() && !line.empty() && line.back() == '\r') line.pop_back();
    motd += line;
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

void SngServer::logScenerySize() {
  const BtkRef<GgTerrainGroup>& terrain = session_.terrain;
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
  protocol_.setNetwork(
      std::unique_ptr<SngNetwork>(SngEnetNetwork::create(static_cast<uint16_t>(session_.situation.mp_server_port))));
  if (!protocol_.network()) {
    fputs("An error occurred while trying to create an ENet server host.\n", stderr);
    btkLogger.log(BTK_ERROR, "An error occurred while trying to create an ENet server host.");
    return false;
  }
  return true;
}

void SngServer::startLoopClocks() {
  btkLogger.log(BTK_DEBUG, "Starting main loop...");
  clock_.start();
  periodic_timer_.start();
  stats_timer_.start();
}

void SngServer::run() {
  startLoopClocks();
  for (;;) loopIteration(kLoopWaitMs);
}

void SngServer::loopIteration(int timeoutMs) {
  if (protocol_.takePlayerJoined()) force_periodic_ = true;
  if (force_periodic_ || periodic_timer_.elapsedMs() >= kPeriodicIntervalMs) periodicWork();
  const uint64_t eventsBefore = protocol_.counters().events;
  BtkTimer passTimer;
  passTimer.start();
  update(timeoutMs);
  const double ms = passTimer.elapsedMs();
  ++stats_passes_;
  if (protocol_.counters().events != eventsBefore) {
    ++stats_busy_passes_;
    if (ms > stats_worst_busy_ms_) stats_worst_busy_ms_ = ms;
  }
  if (stats_timer_.elapsedMs() >= kLoopStatsIntervalMs) logLoopStatistics();
}

void SngServer::logLoopStatistics() {
  const SngProtocol::Counters c = protocol_.counters();
  btkLogger.log(BTK_DEBUG,
                "Loop statistics: %llu passes, %llu with network events, worst of those %.3f ms; skipped nested "
                "passes %llu, refused sends %llu, foreign messages %llu, unrecorded states %llu",
                static_cast<unsigned long long>(stats_passes_), static_cast<unsigned long long>(stats_busy_passes_),
                stats_worst_busy_ms_, static_cast<unsigned long long>(c.skipped_nested_passes),
                static_cast<unsigned long long>(c.dropped_sends), static_cast<unsigned long long>(c.foreign_messages),
                static_cast<unsigned long long>(c.unrecorded_states));
  stats_passes_ = stats_busy_passes_ = 0;
  stats_worst_busy_ms_ = 0.0;
  stats_timer_.lapMs();
}

void SngServer::periodicWork() {
  // An empty server starts the day again, so that the next pilot finds the situation's time of day.
  // Until thermals exist there are none to wait for.
  const int totalThermals = 0;
  if (totalThermals == 0 && protocol_.players().count() == 0 &&
      session_.sim_time > session_.situation.start_gate_open_time) {
    session_.sim_time = startTimeOfDay();
    btkDebug() << "Timer reset: curr_time = " << session_.sim_time << btkFlush;
  }
  periodic_timer_.lapMs();
  force_periodic_ = false;
  cleanupTerrainCache();
  protocol_.connections().maintain();
}

void SngServer::cleanupTerrainCache() {
  if (!session_.terrain) return;
  const int32_t before = memSize();
  session_.terrain->cleanup();
  const int32_t after = memSize();
  btkLogger.log(BTK_DEBUG, "Terrain cache cleanup: memsize = %d K max = %d K (freed %d K)", after / 1000,
                maxMemSize() / 1000, before / 1000 - after / 1000);
}

void SngServer::update(int timeoutMs) {
  SngProtocol::PassScope pass(protocol_);
  const float dt = static_cast<float>(clock_.lapMs() / 1000.0);
  session_.sim_time += dt;

  sync_countdown_ -= dt;
  if (sync_countdown_ <= 0.0f) {
    // Set before the burst: a pass nested inside it must not start another one.
    sync_countdown_ = kSyncIntervalSeconds;
    protocol_.sendPingAndTime();
  }

  updatePlayers(dt);

  task_update_countdown_ -= dt;
  if (task_update_countdown_ <= 0.0f) {
    broadcastTaskProgress();
    task_update_countdown_ = kTaskUpdateSeconds;
  }

  if (shutdown_announced_) {
    shutdown_countdown_ -= dt;
    if (shutdown_countdown_ <= 0.0f) shutdown();
  }

  kill_poll_countdown_ -= dt;
  handleStopSignal();
  if (!shutdown_announced_ && kill_poll_countdown_ < 0.0f) {
    pollKillFile();
    kill_poll_countdown_ = 1.0f;
  }

  web_countdown_ -= dt;

  ++session_.pass_count;
  protocol_.handleNetworkEvents(timeoutMs);
  if (lan_only_) scan_.poll();
}

void SngServer::updatePlayers(float dt) {
  SngPlayerTable& players = protocol_.players();
  for (size_t slot = 0; slot < players.size(); ++slot) {
    SngSrvPlayer* player = players.at(static_cast<uint32_t>(slot));
    if (!player) continue;
    player->update(dt);
    if (player->idle && player->idle_time_left <= 0.0f) {
      btkLogger.log(BTK_INFO, "Idle timeout for player %zu, disconnecting\n", slot);
      protocol_.connections().disconnectPlayer(static_cast<uint32_t>(slot));
    }
  }
}

void SngServer::broadcastTaskProgress() {
  SngPlayerTable& players = protocol_.players();
  for (size_t slot = 0; slot < players.size(); ++slot) {
    SngSrvPlayer* player = players.at(static_cast<uint32_t>(slot));
    if (!player || player->idle || player->task.turnpoints.empty()) continue;
    if (player->task.finished && !player->finish_reported) {
      web_countdown_ = 0.0f;  // the web trigger of this same pass reports the finish
      player->finish_reported = true;
    }
    protocol_.broadcasts().bcastTaskUpdate(static_cast<uint32_t>(slot));  // logs "Send task update"
  }
}

void SngServer::handleStopSignal() {
  const int signo = sngTakeStopSignal();
  if (signo == 0) return;
  btkLogger.log(BTK_INFO, "Received %s, shutting down", signo == SIGINT ? "SIGINT" : "SIGTERM");
  btkLogger.log(BTK_INFO, "Shutdown: %d min, msg = %s", 0, "(no message)");
  // Also cuts short a shutdown already announced for later: the operator wants the server gone now.
  shutdown_announced_ = true;
  shutdown_countdown_ = 0.0f;
}

void SngServer::pollKillFile() {
  std::string text;
  switch (btkReadRegularFile(killFilePath(), kMaxKillFileBytes, text)) {
    case BtkFileRead::MISSING:  // the normal case: nobody asked for a shutdown
      kill_file_warned_ = false;
      return;
    case BtkFileRead::NOT_REGULAR:
      if (!kill_file_warned_) {
        btkLogger.log(BTK_WARNING, "Kill file %s is not a regular file: ignored", killFilePath().c_str());
      }
      kill_file_warned_ = true;
      return;
    case BtkFileRead::OK: break;
  }
  BtkLineReader lines(std::move(text));
  const std::string first = lines.next();
  std::string message = lines.failed() ? std::string() : lines.next();
  // A file written on another system may end its lines with CR LF.
  if (!message.empty() && message.back() == '\r') message.pop_back();
  const int minutes = parseMinutes(first);
  if (!message.empty()) protocol_.broadcasts().bcastShutdownMessage(message);
  // A negative number means "now", however large.
  shutdown_announced_ = true;
  shutdown_countdown_ = std::max(0.0f, static_cast<float>(minutes) * 60.0f);
  btkLogger.log(BTK_INFO, "Shutdown: %d min, msg = %s", minutes, message.empty() ? "(no message)" : message.c_str());
}

void SngServer::shutdown() {
  btkLogger.log(BTK_INFO, "Server Shutdown\n");
  logLoopStatistics();
  unlink(killFilePath().c_str());
  unlink(pidFilePath().c_str());
  protocol_.setNetwork(nullptr);
  if (enet_initialized_) {
    enet_deinitialize();
    enet_initialized_ = false;
  }
  protocol_.players().clear();
  btkExit(0);
}
