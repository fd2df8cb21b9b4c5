#include "toolkit/BtkExit.h"

#include <atomic>
#include <cstdlib>

namespace {
std::atomic<BtkExitHandler> exitHandler{nullptr};
}

void btkSetExitHandler(BtkExitHandler handler) { exitHandler.store(handler); }

void btkExit(int code) {
  BtkExitHandler handler = exitHandler.load();
  if (!handler) std::exit(code);
  handler(code);
  std::abort();  // an exit handler must not return
}
