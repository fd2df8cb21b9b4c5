#include "app/SngOptions.h"

#include <cstdlib>
#include <cstring>

namespace {

enum OptionId { DATADIR, USERDIR, STN, LOG, WEB, WEB_INTERVAL, NICE, SCAN_PORT, LAN, NONE };

// Tried in this order; the first text found anywhere in the argument wins ("-x-lan" is "-lan").
constexpr const char* kOptionTexts[] = {"-datadir=", "-userdir=", "-stn=",       "-log=", "-web=",
                                        "-web_interval=", "-nice=", "-scan_port=", "-lan"};

OptionId matchOption(const char* argument) {
  for (int id = DATADIR; id < NONE; ++id) {
    if (strstr(argument, kOptionTexts[id])) return static_cast<OptionId>(id);
  }
  return NONE;
}

std::string valueOf(const char* argument) {
  const char* equals = strchr(argument, '=');
  return equals ? std::string(equals + 1) : std::string();
}

}  // namespace

bool sngScanOptions(int argc, char** argv, SngOptions& options, std::string* unknownArgument) {
  for (int i = 1; i < argc; ++i) {
    const char* argument = argv[i];
    if (argument[0] != '-') break;
    const std::string value = valueOf(argument);
    switch (matchOption(argument)) {
      case DATADIR: options.datadir = value; break;
      case USERDIR: options.userdir = value; break;
      case STN: options.stn = value; break;
      case LOG: options.log = value; break;
      case WEB: options.web = value; break;
      case WEB_INTERVAL: options.web_interval = static_cast<float>(atof(value.c_str())); break;
      case NICE: options.nice = atoi(value.c_str()); break;
      case SCAN_PORT: options.scan_port = static_cast<uint16_t>(atoi(value.c_str())); break;
      case LAN: options.lan = true; break;
      case NONE:
        if (argument[1] == 'd' || !unknownArgument) break;  // "-d..." switches are accepted silently
        *unknownArgument = argument;
        return false;
    }
  }
  return true;
}
