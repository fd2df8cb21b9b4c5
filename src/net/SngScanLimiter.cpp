#include "net/SngScanLimiter.h"

#include <algorithm>

bool SngScanLimiter::isLocalSource(uint32_t a) {
  return (a >> 24) == 127 || (a >> 24) == 10 || (a >> 20) == 0xAC1 || (a >> 16) == 0xC0A8 || (a >> 16) == 0xA9FE;
}

bool SngScanLimiter::take(double& tokens, double& lastMs, double nowMs, double burst, double perSecond) {
  if (lastMs >= 0.0 && nowMs > lastMs) tokens = std::min(burst, tokens + (nowMs - lastMs) / 1000.0 * perSecond);
  lastMs = std::max(lastMs, nowMs);
  if (tokens < 1.0) return false;
  tokens -= 1.0;
  return true;
}

SngScanLimiter::Verdict SngScanLimiter::check(uint32_t address, double nowMs) {
  if (!isLocalSource(address)) return NOT_LOCAL;
  // The source's own bucket, or the one unused longest, which starts afresh for this source.
  Bucket* bucket = &sources_[0];
  for (Bucket& b : sources_) {
    if (b.last_ms >= 0.0 && b.address == address) {
      bucket = &b;
      break;
    }
    if (b.last_ms < bucket->last_ms) bucket = &b;
  }
  if (bucket->address != address || bucket->last_ms < 0.0) *bucket = Bucket{address, kSourceBurst, nowMs};
  // The source pays first: a source over its rate must not use up everybody's share.
  if (!take(bucket->tokens, bucket->last_ms, nowMs, kSourceBurst, kSourcePerSecond)) return OVER_RATE;
  return take(total_tokens_, total_last_ms_, nowMs, kTotalBurst, kTotalPerSecond) ? ANSWER : OVER_RATE;
}
