// The server's command line: scanned the same way by the path set-up and by start-up.
#pragma once

#include <cstdint>
#include <string>

struct SngOptions {
  std::string datadir;                // "-datadir="
  std::string userdir;                // "-userdir="
  std::string stn = "QVServer.stn";   // "-stn=", relative to userDir + "/servers/"
  std::string log;                    // "-log=", empty: userDir + "/servers/qvserver.log"
  std::string web;                    // "-web=", non-empty switches web reporting on
  float web_interval = 10.0f;         // "-web_interval=", seconds
  int nice = 0;                       // "-nice=", accepted and ignored
  uint16_t scan_port = 16101;         // "-scan_port="
  bool lan = false;                   // "-lan"
};

// Scans argv[1..] until the first argument that does not begin with "-". Each argument takes the
// first option text that occurs anywhere inside it; its value is everything after its first "=".
// An argument that matches nothing is ignored when its second character is "d"; otherwise its text
// goes to unknownArgument and the scan fails. With unknownArgument null, unknown arguments are skipped.
bool sngScanOptions(int argc, char** argv, SngOptions& options, std::string* unknownArgument);
