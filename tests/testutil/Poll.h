// Waiting for a state with a deadline instead of sleeping for a guessed duration.
#pragma once

#include <chrono>
#include <thread>

template <class Pred>
bool pollUntil(Pred pred, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  for (;;) {
    if (pred()) return true;
    if (std::chrono::steady_clock::now() >= end) return pred();
    // Short real sleep between checks: the state comes from another process.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}
