// How a flood from one client delays everyone else: the real server on loopback, one client sending
// states, chats and unknown opcodes as fast as it can, a second saying one chat line per iteration and a
// third timing how long each line takes to arrive. The iteration time is that delay; the counters give
// the worst of them, the flood's rate and the server's own loop statistics.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>

#include "testutil/Pilots.h"
#include "testutil/ServerWorld.h"

namespace {

using Clock = std::chrono::steady_clock;

// The figure after `label` in the server's "Loop statistics" line; -1 when it is missing.
double loopStatistic(const std::string& log, const std::string& label) {
  const size_t line = log.rfind("Loop statistics:");
  const size_t at = line == std::string::npos ? line : log.find(label, line);
  double value = -1.0;
  if (at != std::string::npos) std::sscanf(log.c_str() + at + label.size(), "%lf", &value);
  return value;
}

void BM_ChatLineDelayDuringAFlood(benchmark::State& state) {
  ServerWorld world;
  world.writeSituation("QVServer.stn");
  if (!world.sceneryBuilt || !world.start() || !waitForText(world.logPath(), "Starting main loop...")) {
    state.SkipWithError("the server did not start");
    return;
  }
  auto flooder = connectPilot(world.port), talker = connectPilot(world.port),
       listener = connectPilot(world.port);
  const uint8_t a = loginAndJoin(*flooder, 0xA, "flooder"), b = loginAndJoin(*talker, 0xB, "talker");
  if (a == 255 || b == 255 || loginAndJoin(*listener, 0xC, "listener") == 255) {
    state.SkipWithError("the pilots could not join");
    return;
  }
  int64_t offered = 0, lost = 0;
  const auto flood = [&] {
    for (int i = 0; i < 50; ++i, ++offered) {
      flooder->sendState(a, stateAt(43300.0 + offered * 0.01));
      if (i % 5 == 0) ++offered, flooder->chat(a, "spam");
      if (i % 10 == 0) ++offered, flooder->sendRaw({0x55, 1, 2, 3}, false, 1);
    }
    flooder->service(0);
    flooder->clearInbox();
  };
  const auto fromTalker = [b](const QvMessage& m) {
    return m.opcode == SngNet::CHAT_MSG && m.bytes.at(1) == b;
  };
  double worstMs = 0.0;
  const auto start = Clock::now();
  for (auto _ : state) {
    for (int burst = 0; burst < 10; ++burst) flood();  // a queue to get through first
    const auto spoken = Clock::now();
    talker->chat(b, "line");
    talker->service(0);
    bool heard = false;
    while (!heard && Clock::now() - spoken < std::chrono::seconds(5)) {
      flood();  // the flood goes on while the line is on its way
      heard = listener->waitFor(fromTalker, std::chrono::milliseconds(1)).has_value();
    }
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - spoken).count();
    lost += heard ? 0 : 1;
    worstMs = std::max(worstMs, ms);
    state.SetIterationTime(ms / 1000.0);
    listener->clearInbox();
    talker->clearInbox();
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  world.stopWithKillFile();
  const std::string log = readText(world.logPath());
  state.counters["worst_line_ms"] = worstMs;
  state.counters["lines_lost"] = static_cast<double>(lost);
  state.counters["flood_msgs_per_s"] = static_cast<double>(offered) / seconds;
  state.counters["server_passes"] = loopStatistic(log, "Loop statistics: ");
  state.counters["server_worst_pass_ms"] = loopStatistic(log, "worst of those ");
  state.counters["skipped_nested_passes"] = loopStatistic(log, "skipped nested passes ");
  state.counters["refused_sends"] = loopStatistic(log, "refused sends ");
  state.counters["log_kib"] = static_cast<double>(log.size()) / 1024.0;
}

BENCHMARK(BM_ChatLineDelayDuringAFlood)->Iterations(100)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
