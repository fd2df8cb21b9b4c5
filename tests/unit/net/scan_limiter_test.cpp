// Which scan requests get an answer: local sources only, each within its rate, all within the total.
#include <gtest/gtest.h>

#include "net/SngScanLimiter.h"

namespace {

constexpr uint32_t ip(uint32_t a, uint32_t b, uint32_t c, uint32_t d) { return a << 24 | b << 16 | c << 8 | d; }

TEST(ScanLimiter, OnlyLoopbackPrivateAndLinkLocalSourcesAreLocal) {
  for (auto [a, local] : {std::pair{ip(127, 0, 0, 1), true}, {ip(10, 1, 2, 3), true}, {ip(172, 16, 0, 1), true},
                          {ip(172, 31, 255, 255), true}, {ip(192, 168, 1, 9), true}, {ip(169, 254, 0, 1), true},
                          {ip(172, 15, 0, 1), false}, {ip(172, 32, 0, 1), false}, {ip(100, 64, 0, 1), false},
                          {ip(192, 0, 2, 1), false}, {ip(192, 169, 0, 1), false}, {ip(0, 0, 0, 0), false}}) {
    EXPECT_EQ(SngScanLimiter::isLocalSource(a), local) << std::hex << a;
  }
}

TEST(ScanLimiter, ASourceGetsItsBurstThenOneASecondAndAllTogetherTheirs) {
  SngScanLimiter limiter;
  int answered = 0;
  for (int i = 0; i < 50; ++i) answered += limiter.check(ip(10, 0, 0, 1), 1000.0) == SngScanLimiter::ANSWER;
  EXPECT_EQ(answered, 10);
  EXPECT_EQ(limiter.check(ip(10, 0, 0, 1), 1999.0), SngScanLimiter::OVER_RATE);
  EXPECT_EQ(limiter.check(ip(10, 0, 0, 1), 2000.0), SngScanLimiter::ANSWER);
  EXPECT_EQ(limiter.check(ip(8, 8, 8, 8), 2000.0), SngScanLimiter::NOT_LOCAL);
  // A flood from a thousand sources, more than the table holds, at one moment: the total's burst of 20
  // (less the one reply just given) and then nothing.
  answered = 0;
  for (uint32_t s = 0; s < 1000; ++s) answered += limiter.check(ip(10, 1, s >> 8, s & 255), 2000.0) == SngScanLimiter::ANSWER;
  EXPECT_EQ(answered, 19);
  answered = 0;
  for (uint32_t s = 0; s < 1000; ++s) answered += limiter.check(ip(10, 2, s >> 8, s & 255), 3000.0) == SngScanLimiter::ANSWER;
  EXPECT_EQ(answered, 20);  // a second later: the rate of 20 a second
}

}  // namespace
