// qvclient: log in to a qvserver by hand, look at its session, join, fly and listen.
#include <csignal>
#include <iostream>

#include "QvClientApp.h"

namespace {

std::atomic<bool> stopRequested{false};

void onSignal(int) {
  stopRequested.store(true);
}

}  // namespace

int main(int argc, char** argv) {
  static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");
  const QvParsedOptions parsed = qvParseClientOptions(std::vector<std::string>(argv + 1, argv + argc));
  if (!parsed.options) {
    std::cerr << "qvclient: " << parsed.error << "\n"
              << "Try qvclient --help\n";
    return kQvExitUsage;
  }
  if (parsed.options->help) {
    std::cout << qvClientUsage();
    return kQvExitOk;
  }
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  return qvRunClient(*parsed.options, std::cout, std::cerr, stopRequested);
}
