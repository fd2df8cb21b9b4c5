#include "QvClientApp.h"
#include "QvScan.h"

#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "QvClient.h"
#include "QvDescribe.h"

namespace {

using Clock = std::chrono::steady_clock;

// Between checks of Ctrl-C and the time limit while nothing arrives.
constexpr int kIdlePumpMs = 100;
constexpr double kMaxRateHz = 100.0;

bool parseDouble(const std::string& text, double& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !std::isfinite(value)) return false;
  out = value;
  return true;
}

bool parseUnsigned(const std::string& text, int base, unsigned long long max, unsigned long long& out) {
  // strtoull would also take leading blanks and signs.
  if (text.empty() || !std::isxdigit(static_cast<unsigned char>(text[0]))) return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &end, base);
  if (*end != '\0' || errno != 0 || value > max) return false;
  out = value;
  return true;
}

std::vector<std::string> splitCommas(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t comma = text.find(',', start);
    parts.push_back(text.substr(start, comma - start));
    if (comma == std::string::npos) return parts;
    start = comma + 1;
  }
}

bool isIpv4(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// One option at a time; each returns an empty text when it took the value, else the usage error.
class OptionParser {
 public:
  std::string parse(const std::string& arg, QvClientOptions& o) {
    if (parseSwitch(arg, o)) return "";
    const size_t eq = arg.find('=');
    if (arg.rfind("--", 0) != 0 || eq == std::string::npos) return "unknown option: " + arg;
    const std::string key = arg.substr(0, eq);
    const std::string value = arg.substr(eq + 1);
    seen_.push_back(key);
    if (key == "--host") return text(value, o.host, key);
    if (key == "--port") return port(value, o);
    if (key == "--bind")
      return isIpv4(value) ? text(value, o.bind, key) : "--bind needs an IPv4 address: " + value;
    if (key == "--nick") return text(value, o.nick, key);
    if (key == "--name") return text(value, o.name, key);
    if (key == "--hwid") return hwid(value, o);
    if (key == "--version") {
      return qvParseVersion(value, o.version_major, o.version_minor)
                 ? ""
                 : "--version needs MAJOR.MINOR: " + value;
    }
    if (key == "--timeout") return positive(value, o.timeout_s, key);
    if (key == "--seconds") return positive(value, o.seconds, key);
    if (key == "--aircraft") return text(value, o.aircraft, key);
    if (key == "--registration") return text(value, o.registration, key);
    if (key == "--comp") return text(value, o.comp, key);
    if (key == "--aerotow") return aerotow(value, o);
    if (key == "--winch") return winch(value, o);
    if (key == "--fly") return fly(value, o);
    if (key == "--from") return from(value, o);
    if (key == "--rate") {
      const std::string error = positive(value, o.rate_hz, key);
      return !error.empty() || o.rate_hz <= kMaxRateHz ? error : "--rate is at most 100 states per second";
    }
    if (key == "--time-scale") return positive(value, o.time_scale, key);
    if (key == "--scan") {
      unsigned long long scanPort = 0;
      if (!parseUnsigned(value, 10, 65535, scanPort)) return "--scan needs a port: " + value;
      o.scan_port = static_cast<uint16_t>(scanPort);
      return "";
    }
    if (key == "--chat") {
      o.chat = value;
      return "";
    }
    return "unknown option: " + arg;
  }

  // Options that only make sense together with another.
  std::string checkCombinations(QvClientOptions& o) const {
    if (o.fly) o.join = true;
    for (const char* key : {"--from", "--rate", "--time-scale"}) {
      if (has(key) && !o.fly) return std::string(key) + " needs --fly";
    }
    for (const char* key : {"--aircraft", "--registration", "--comp", "--aerotow", "--winch", "--no-task"}) {
      if (has(key) && !o.join) return std::string(key) + " needs --join (or --fly)";
    }
    if (has("--aerotow") && has("--winch")) return "choose one launch: --aerotow or --winch";
    if (has("--seconds") && !o.listen && !o.fly) return "--seconds needs --listen or --fly";
    return "";
  }

 private:
  // Options without a value.
  bool parseSwitch(const std::string& arg, QvClientOptions& o) {
    if (arg == "--help" || arg == "-h") {
      o.help = true;
    } else if (arg == "--listen") {
      o.listen = true;
    } else if (arg == "--join") {
      o.join = true;
    } else if (arg == "--no-task") {
      o.no_task = true;
      seen_.push_back(arg);
    } else if (arg == "--no-logout") {
      o.logout = false;
    } else if (arg == "--scan") {
      o.scan_port = 16101;
    } else {
      return false;
    }
    return true;
  }

  bool has(const std::string& key) const {
    for (const std::string& k : seen_) {
      if (k == key) return true;
    }
    return false;
  }

  // Any text goes, an empty one included (the server takes an empty nick); only the host must be
  // there.
  static std::string text(const std::string& value, std::string& out, const std::string& key) {
    if (key == "--host" && value.empty()) return "--host needs an address";
    out = value;
    return "";
  }

  static std::string positive(const std::string& value, double& out, const std::string& key) {
    double v = 0.0;
    if (!parseDouble(value, v) || v <= 0.0) return key + " needs a number above 0: " + value;
    out = v;
    return "";
  }

  static std::string port(const std::string& value, QvClientOptions& o) {
    unsigned long long v = 0;
    if (!parseUnsigned(value, 10, 65535, v) || v == 0)
      return "--port needs a number from 1 to 65535: " + value;
    o.port = static_cast<uint16_t>(v);
    return "";
  }

  static std::string hwid(const std::string& value, QvClientOptions& o) {
    std::string digits = value;
    if (digits.rfind("0x", 0) == 0 || digits.rfind("0X", 0) == 0) digits = digits.substr(2);
    unsigned long long v = 0;
    if (!parseUnsigned(digits, 16, 0xFFFFFFFFull, v))
      return "--hwid needs up to 8 hexadecimal digits: " + value;
    o.hw_id = static_cast<uint32_t>(v);
    return "";
  }

  static std::string aerotow(const std::string& value, QvClientOptions& o) {
    const auto parts = splitCommas(value);
    unsigned long long rope = 0;
    if (parts.size() != 2 || !parseUnsigned(parts[0], 10, 65535, rope)) {
      return "--aerotow needs ROPE_M,TOWPLANE: " + value;
    }
    o.launch.method = SngNet::LAUNCH_AEROTOW;
    o.launch.rope_length = static_cast<uint16_t>(rope);
    o.launch.towplane_id = parts[1];
    return "";
  }

  static std::string winch(const std::string& value, QvClientOptions& o) {
    const auto parts = splitCommas(value);
    const std::string error = "--winch needs CABLE_M,ID or CABLE_M,ID,LAT,LON,ALT_M,DIRECTION: " + value;
    unsigned long long cable = 0;
    if ((parts.size() != 2 && parts.size() != 6) || !parseUnsigned(parts[0], 10, 65535, cable)) return error;
    o.launch.method = SngNet::LAUNCH_WINCH;
    o.launch.rope_length = static_cast<uint16_t>(cable);
    o.launch.winch_id = parts[1];
    if (parts.size() == 6) {
      unsigned long long direction = 0;
      if (!parseDouble(parts[2], o.launch.winch_lat) || !parseDouble(parts[3], o.launch.winch_lon) ||
          !parseDouble(parts[4], o.launch.winch_alt) || !parseUnsigned(parts[5], 10, 65535, direction)) {
        return error;
      }
      o.launch.winch_dir = static_cast<uint16_t>(direction);
    }
    return "";
  }

  static std::string fly(const std::string& value, QvClientOptions& o) {
    const auto parts = splitCommas(value);
    const std::string error = "--fly needs COURSE_DEG,SPEED_KMH[,ALT_M]: " + value;
    if (parts.size() != 2 && parts.size() != 3) return error;
    if (!parseDouble(parts[0], o.course) || !parseDouble(parts[1], o.speed_kmh) || o.speed_kmh < 0.0)
      return error;
    if (parts.size() == 3 && !parseDouble(parts[2], o.alt)) return error;
    o.fly = true;
    return "";
  }

  static std::string from(const std::string& value, QvClientOptions& o) {
    const auto parts = splitCommas(value);
    QvPosition p;
    if (parts.size() != 2 || !parseDouble(parts[0], p.lat) || !parseDouble(parts[1], p.lon) ||
        std::fabs(p.lat) > 90.0 || std::fabs(p.lon) > 180.0) {
      return "--from needs LAT,LON in degrees: " + value;
    }
    o.from = p;
    return "";
  }

  std::vector<std::string> seen_;
};

uint32_t randomHwId() {
  std::random_device random;
  return static_cast<uint32_t>(random());
}

std::chrono::milliseconds millis(double seconds) {
  return std::chrono::milliseconds(static_cast<long long>(std::llround(seconds * 1000.0)));
}

// What was sent, shown the way a received message is.
QvMessage sentMessage(const SngPacket& packet, bool reliable) {
  QvMessage message;
  message.bytes = packet.bytes;
  message.opcode = packet.bytes.empty() ? 0 : packet.bytes[0];
  message.reliable = reliable;
  message.channel = reliable ? SngNet::RELIABLE_CHANNEL : SngNet::UNRELIABLE_CHANNEL;
  return message;
}

std::string refusal(uint8_t opcode) {
  char code[16];
  std::snprintf(code, sizeof code, " (%u)", opcode);
  return qvOpcodeName(opcode) + code;
}

// One logged-in client and what the options want it to do.
class ClientRun {
 public:
  ClientRun(const QvClientOptions& o, std::ostream& out, std::ostream& err, const std::atomic<bool>& stop)
      : o_(o), out_(out), err_(err), stop_(stop), timeout_(millis(o.timeout_s)) {}

  int run() {
    const uint32_t hwId = o_.hw_id ? *o_.hw_id : randomHwId();
    char hw[16];
    std::snprintf(hw, sizeof hw, "0x%08X", hwId);
    out_ << "Connecting to " << o_.host << ":" << o_.port << " as '" << o_.nick << "' (hardware ID " << hw
         << ", version " << int(o_.version_major) << "." << int(o_.version_minor) << ")\n";
    if (!o_.bind.empty()) client_.setLocalAddress(o_.bind);
    if (!client_.connect(o_.host, o_.port, timeout_)) {
      err_ << "qvclient: cannot connect to " << o_.host << ":" << o_.port << ": " << client_.lastError()
           << "\n";
      return kQvExitFailed;
    }
    const int result = loggedIn(hwId);
    if (player_ && o_.logout && client_.connected()) client_.logout(*player_);
    client_.disconnect(timeout_);
    return result;
  }

 private:
  int loggedIn(uint32_t hwId) {
    const QvLoginAnswer login =
        client_.loginAndWait(o_.version_major, o_.version_minor, hwId, o_.name, o_.nick, timeout_);
    if (!login.answered) {
      err_ << "qvclient: no answer to LOGIN within " << o_.timeout_s << " s\n";
      return kQvExitFailed;
    }
    if (!login.accepted()) {
      if (login.opcode == SngNet::SERVER_INFO) {
        err_ << "qvclient: the server info could not be read\n";
      } else {
        out_ << "Login refused: " << refusal(login.opcode) << "\n";
      }
      return kQvExitFailed;
    }
    info_ = *login.info;
    player_ = info_.player;
    out_ << qvDescribeServerInfo(info_) << std::flush;
    if (o_.join && !join(hwId)) return kQvExitFailed;
    if (o_.chat) send(sngMessage(SngNet::CHAT_MSG, SngChatMsg{*player_, *o_.chat}), true);
    if (!o_.listen && !o_.fly) return kQvExitOk;
    return stayConnected();
  }

  bool join(uint32_t hwId) {
    SngConnectMsg connect;
    connect.hw_id = hwId;
    connect.player = *player_;
    connect.aircraft_id = o_.aircraft;
    connect.registration = o_.registration;
    connect.comp_id = o_.comp;
    connect.launch = o_.launch;
    if (!o_.no_task) connect.task = info_.task;
    const QvJoinAnswer answer = client_.joinAndWait(connect, timeout_);
    if (!answer.answered) {
      err_ << "qvclient: no answer to CONNECT within " << o_.timeout_s << " s\n";
      return false;
    }
    if (!answer.accepted()) {
      out_ << "Join refused: " << refusal(answer.opcode) << "\n";
      return false;
    }
    joined_ = *answer.ok;
    out_ << "Joined as player " << int(*player_) << " with " << connect.aircraft_id << " "
         << connect.registration << " (" << connect.comp_id << "), task of " << connect.task.size()
         << " turnpoints\n";
    out_ << "  " << qvDescribeResultOk(*answer.ok) << "\n";
    return true;
  }

  void send(const SngPacket& packet, bool reliable) {
    if (client_.sendRaw(packet.bytes, reliable,
                        reliable ? SngNet::RELIABLE_CHANNEL : SngNet::UNRELIABLE_CHANNEL)) {
      out_ << "> " << qvDescribeMessage(sentMessage(packet, reliable)) << "\n";
    } else {
      err_ << "qvclient: could not send: " << client_.lastError() << "\n";
    }
  }

  bool startFlight() {
    QvFlightPlan plan;
    if (o_.from) {
      plan.lat = o_.from->lat;
      plan.lon = o_.from->lon;
    } else if (!info_.task.empty()) {
      plan.lat = info_.task.front().lat;
      plan.lon = info_.task.front().lon;
    } else {
      return false;
    }
    plan.alt = o_.alt;
    plan.course = o_.course;
    plan.speed_kmh = o_.speed_kmh;
    plan.start_time = joined_ ? joined_->sim_time : info_.sim_time;
    plan.step = 1.0 / o_.rate_hz;
    plan.time_scale = o_.time_scale;
    flight_.emplace(plan);
    out_ << "Flying from " << qvLatLon(plan.lat, plan.lon) << " at " << plan.alt << " m, course "
         << plan.course << " deg, " << plan.speed_kmh << " km/h, " << o_.rate_hz << " states/s, time scale "
         << plan.time_scale << "\n";
    return true;
  }

  int stayConnected() {
    if (o_.fly && !startFlight()) {
      err_ << "qvclient: the server has no task; give the start with --from=LAT,LON\n";
      return kQvExitUsage;
    }
    const auto begin = Clock::now();
    const auto end = o_.seconds > 0.0 ? begin + millis(o_.seconds) : Clock::time_point::max();
    auto nextState = begin;
    client_.clearInbox();
    while (!stop_.load()) {
      const auto now = Clock::now();
      if (now >= end) break;
      if (flight_ && now >= nextState) {
        SngStateMsg state{*player_, flight_->next()};
        send(sngMessage(SngNet::AIRCRAFT_STATE, state), false);
        nextState = begin + millis(static_cast<double>(flight_->statesMade()) * flight_->plan().step);
      }
      auto wake = std::min(end, now + std::chrono::milliseconds(kIdlePumpMs));
      if (flight_) wake = std::min(wake, nextState);
      client_.service(static_cast<int>(
          std::max<long long>(0, std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now()).count())));
      if (o_.listen) {
        for (const QvMessage& message : client_.inbox()) out_ << "< " << qvDescribeMessage(message) << "\n";
      }
      client_.clearInbox();
      out_ << std::flush;
      if (!client_.connected()) {
        err_ << "qvclient: the server closed the connection\n";
        return kQvExitFailed;
      }
    }
    return kQvExitOk;
  }

  const QvClientOptions& o_;
  std::ostream& out_;
  std::ostream& err_;
  const std::atomic<bool>& stop_;
  const std::chrono::milliseconds timeout_;
  QvClient client_;
  SngServerInfoMsg info_;
  std::optional<uint8_t> player_;
  std::optional<SngResultOkMsg> joined_;
  std::optional<QvStraightFlight> flight_;
};

}  // namespace

bool qvParseVersion(const std::string& text, uint8_t& major, uint8_t& minor) {
  const size_t dot = text.find('.');
  if (dot == std::string::npos) return false;
  unsigned long long a = 0;
  unsigned long long b = 0;
  if (!parseUnsigned(text.substr(0, dot), 10, 255, a) || !parseUnsigned(text.substr(dot + 1), 10, 255, b)) {
    return false;
  }
  major = static_cast<uint8_t>(a);
  minor = static_cast<uint8_t>(b);
  return true;
}

QvParsedOptions qvParseClientOptions(const std::vector<std::string>& args) {
  QvParsedOptions parsed;
  QvClientOptions options;
  OptionParser parser;
  for (const std::string& arg : args) {
    parsed.error = parser.parse(arg, options);
    if (!parsed.error.empty()) return parsed;
  }
  if (!options.help) parsed.error = parser.checkCombinations(options);
  if (parsed.error.empty()) parsed.options = options;
  return parsed;
}

const char* qvClientUsage() {
  return R"(Usage: qvclient [options]

Logs in to a qvserver and prints its server info (date, time of day, scenery, airport, weather,
start gate, task, message of the day) or the refusal. Optionally joins with an aircraft, flies a
straight line, sends a chat line and prints everything the server sends.

Connection:
  --host=ADDR              server address or name (default 127.0.0.1)
  --port=N                 server port (default 1610)
  --bind=ADDR              local IPv4 address to send from, e.g. 127.0.0.2 (default: any)
  --timeout=SECONDS        wait this long for the connection and for each answer (default 5)
Login:
  --nick=NICK              nick (default qvclient)
  --name=PILOT             pilot name (default "Test Pilot")
  --hwid=HEX               hardware ID, up to 8 hex digits (default: random, printed); the same
                           hardware ID from the same address comes back to the same player slot
  --version=MAJOR.MINOR    protocol version to claim (default 1.8)
Joining the session (CONNECT):
  --join                   join with an aircraft, flying the server's task
  --aircraft=ID            aircraft ID (default QV-Trainer)
  --registration=REG       registration (default QV-TST)
  --comp=ID                competition ID (default QV)
  --aerotow=ROPE_M,TOWPLANE          launch by aerotow
  --winch=CABLE_M,ID[,LAT,LON,ALT_M,DIRECTION]   launch by winch
  --no-task                join without a task
Flying and talking:
  --fly=COURSE_DEG,SPEED_KMH[,ALT_M] join and send states along a straight line (altitude
                           default 1000 m) from the task's first turnpoint
  --from=LAT,LON           start the flight here instead
  --rate=HZ                states per second (default 1)
  --time-scale=K           the client's clock runs K times faster than real time; each state
                           moves K times as far, so the speed the server measures stays the same
  --chat=TEXT              send a chat line (after joining, when joining)
Staying connected:
  --listen                 print one line per message received ("<"); sent ones show as ">"
  --seconds=N              with --listen or --fly: stop after N seconds (default: at Ctrl-C)
  --no-logout              leave without LOGOUT (the server keeps the player idle for a while)
  --scan[=PORT]            list the servers that answer a LAN scan at --host (scan port 16101)
  --help                   this text

Exit status: 0 done, 1 connection failed or lost, or login or join refused, 2 usage error.
)";
}

int qvRunClient(const QvClientOptions& options, std::ostream& out, std::ostream& err,
                const std::atomic<bool>& stop) {
  if (options.scan_port) {
    const auto wait = std::chrono::milliseconds(static_cast<int64_t>(options.timeout_s * 1000.0));
    const std::vector<QvScanAnswer> answers = qvScan(options.host, *options.scan_port, wait);
    for (const QvScanAnswer& a : answers) {
      out << a.from << ": \"" << a.reply.server_name << "\" at " << a.reply.server_address << ", game port "
          << a.reply.port << ", scenery " << a.reply.scenery_name << ", " << a.reply.num_players << " of "
          << a.reply.max_players << " pilots, task " << a.reply.task_km << " km\n";
    }
    if (answers.empty()) err << "qvclient: no server answered a scan at " << options.host << ":" << *options.scan_port << "\n";
    return answers.empty() ? kQvExitFailed : 0;
  }
  ClientRun run(options, out, err, stop);
  return run.run();
}
