// The qvclient program: its command line and what it does with it. Kept apart from main() so that
// the option parsing can be tested.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "QvFlight.h"
#include "wire/SngMessages.h"

struct QvClientOptions {
  std::string host = "127.0.0.1";
  uint16_t port = 1610;
  std::string bind;  // local address to send from; empty: any
  std::string nick = "qvclient";
  std::string name = "Test Pilot";
  std::optional<uint32_t> hw_id;  // a fresh random one when not given
  uint8_t version_major = 1;
  uint8_t version_minor = 8;
  double timeout_s = 5.0;  // for the connection and for each answer

  bool listen = false;
  double seconds = 0.0;  // with --listen or --fly: stop after this long; 0: until Ctrl-C

  bool join = false;
  std::string aircraft = "QV-Trainer";
  std::string registration = "QV-TST";
  std::string comp = "QV";
  SngLaunch launch;
  bool no_task = false;

  bool fly = false;
  double course = 0.0;  // degrees true
  double speed_kmh = 0.0;
  double alt = 1000.0;             // m
  std::optional<QvPosition> from;  // default: the task's first turnpoint
  double rate_hz = 1.0;
  double time_scale = 1.0;

  std::optional<std::string> chat;
  bool logout = true;  // send LOGOUT before leaving
  std::optional<uint16_t> scan_port;  // --scan: list the servers answering LAN scans at --host instead
  bool help = false;
};

struct QvParsedOptions {
  std::optional<QvClientOptions> options;  // empty on a usage error
  std::string error;                       // why, for the usage error
};

// Parses the arguments after the program name. --fly implies --join.
QvParsedOptions qvParseClientOptions(const std::vector<std::string>& args);
// "MAJOR.MINOR" as the simulator shows it: "1.8" and "1.08" are both 1, 8; "1.12" is 1, 12.
bool qvParseVersion(const std::string& text, uint8_t& major, uint8_t& minor);

const char* qvClientUsage();

// Exit codes of the program.
constexpr int kQvExitOk = 0;
constexpr int kQvExitFailed = 1;  // connection failed, lost, or refused
constexpr int kQvExitUsage = 2;

// Runs the program: messages for the operator on `out`, failures on `err`. Returns when done, when
// `stop` is set (Ctrl-C) or when the connection is lost.
int qvRunClient(const QvClientOptions& options, std::ostream& out, std::ostream& err,
                const std::atomic<bool>& stop);
