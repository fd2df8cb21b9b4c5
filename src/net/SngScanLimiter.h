// Decides which LAN scans get an answer. A one-byte request earns a reply of up to about 250 bytes, and
// a one-byte request leaves no room for a challenge: unlimited, the responder would be a reflector that
// multiplies whatever a spoofed source sends. Scans come from the local network, so only loopback,
// private and link-local IPv4 sources are answered, each at a bounded rate, and all of them together too.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

class SngScanLimiter {
 public:
  static constexpr double kSourceBurst = 10.0;  // replies a source may have at once ...
  static constexpr double kSourcePerSecond = 1.0;  // ... and regains per second
  static constexpr double kTotalBurst = 20.0;
  static constexpr double kTotalPerSecond = 20.0;
  static constexpr size_t kSources = 256;  // fixed: a flood of sources cannot grow memory

  enum Verdict { ANSWER, NOT_LOCAL, OVER_RATE };

  // address: IPv4, first octet in the highest byte.
  Verdict check(uint32_t address, double nowMs);
  // 127/8, 10/8, 172.16/12, 192.168/16 and 169.254/16.
  static bool isLocalSource(uint32_t address);

 private:
  struct Bucket {
    uint32_t address = 0;
    double tokens = 0.0;
    double last_ms = -1.0;  // -1: unused
  };
  static bool take(double& tokens, double& lastMs, double nowMs, double burst, double perSecond);

  std::array<Bucket, kSources> sources_{};
  double total_tokens_ = kTotalBurst;
  double total_last_ms_ = -1.0;
};
