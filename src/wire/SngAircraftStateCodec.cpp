#include "wire/SngAircraftStateCodec.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kAttitudeSteps = 32767.0;   // i16 steps per pi radians
constexpr double kHeadingSteps = 65535.0;    // u16 steps per 2 pi radians
constexpr double kComponentSteps = 32767.0;  // i16 steps per scale range
constexpr double kVelScaleDivisor = 200.0;   // a scale word s covers +-s/200
constexpr double kVecScaleDivisor = 500.0;   // vec2..vec4: +-s/500

// Wire bit of each entry of SngAircraftState::flags.
constexpr std::array<int, 6> kFlagBits = {0, 1, 3, 4, 5, 2};

bool getVector(SngPacket& packet, double divisor, std::array<double, 3>& out) {
  uint16_t scale;
  std::array<int16_t, 3> raw;
  if (!packet.getU16(scale) || !packet.getI16(raw[0]) || !packet.getI16(raw[1]) || !packet.getI16(raw[2])) {
    return false;
  }
  for (size_t i = 0; i < 3; ++i) out[i] = raw[i] * (scale / divisor) / kComponentSteps;
  return true;
}

// Controls c0..c2 and c6 are signed nibbles (n - 8) / 7, c3..c5 unsigned n / 15; nibble 7 is unused.
bool isSignedControl(size_t k) {
  return k < 3 || k == 6;
}

void decodeControls(uint32_t word, std::array<float, 7>& out) {
  for (size_t k = 0; k < out.size(); ++k) {
    const int nibble = static_cast<int>((word >> (4 * k)) & 15u);
    out[k] = isSignedControl(k) ? static_cast<float>(nibble - 8) / 7.0f : static_cast<float>(nibble) / 15.0f;
  }
}

void decodeFlags(uint8_t bits, std::array<bool, 6>& out) {
  for (size_t i = 0; i < out.size(); ++i) out[i] = ((bits >> kFlagBits[i]) & 1) != 0;
}

double orZero(double value) {
  return std::isnan(value) ? 0.0 : value;
}

long clampRound(double value, double lo, double hi) {
  return std::lround(std::clamp(orZero(value), lo, hi));
}

void putVector(SngPacket& packet, double divisor, const std::array<double, 3>& v) {
  double largest = 0.0;
  for (double c : v) largest = std::max(largest, std::fabs(orZero(c)));
  const double scale = std::clamp(std::ceil(largest * divisor), 1.0, 65535.0);
  const double range = scale / divisor;
  packet.putU16(static_cast<uint16_t>(scale));
  for (double c : v) {
    packet.putI16(static_cast<int16_t>(
        clampRound(orZero(c) / range * kComponentSteps, -kComponentSteps, kComponentSteps)));
  }
}

uint32_t encodeControls(const std::array<float, 7>& controls) {
  uint32_t word = 0;
  for (size_t k = 0; k < controls.size(); ++k) {
    const double c = controls[k];
    const long nibble =
        isSignedControl(k) ? clampRound(orZero(c) * 7.0 + 8.0, 0, 15) : clampRound(c * 15.0, 0, 15);
    word |= static_cast<uint32_t>(nibble) << (4 * k);
  }
  return word;
}

uint8_t encodeFlags(const std::array<bool, 6>& flags) {
  uint8_t bits = 0;
  for (size_t i = 0; i < flags.size(); ++i) {
    if (flags[i]) bits = static_cast<uint8_t>(bits | (1u << kFlagBits[i]));
  }
  return bits;
}

uint16_t encodeHeading(double heading) {
  double h = std::fmod(orZero(heading), 2 * kPi);  // NaN for an infinity, which clampRound makes 0
  if (h < 0) h += 2 * kPi;
  return static_cast<uint16_t>(clampRound(h * kHeadingSteps / (2 * kPi), 0, kHeadingSteps));
}

int16_t encodeAttitude(double radians) {
  return static_cast<int16_t>(clampRound(radians * kAttitudeSteps / kPi, -kAttitudeSteps, kAttitudeSteps));
}

}  // namespace

bool decodeAircraftState(SngPacket& packet, SngAircraftState& out) {
  const uint32_t start = packet.cursor;
  SngAircraftState state;
  float time, lat, lon, alt;
  int16_t roll, pitch;
  uint16_t heading;
  uint32_t controls;
  uint8_t flags;
  const bool complete =
      packet.getF32(time) && packet.getF32(lat) && packet.getF32(lon) && packet.getF32(alt) &&
      packet.getI16(roll) && packet.getI16(pitch) && packet.getU16(heading) &&
      getVector(packet, kVelScaleDivisor, state.vel) && getVector(packet, kVecScaleDivisor, state.vec2) &&
      getVector(packet, kVecScaleDivisor, state.vec3) && getVector(packet, kVecScaleDivisor, state.vec4) &&
      packet.getU32(controls) && packet.getU8(flags);
  if (!complete) {
    packet.cursor = start;
    return false;
  }
  state.time = time;
  state.lat = lat;
  state.lon = lon;
  state.alt = alt;
  state.roll = roll * kPi / kAttitudeSteps;
  state.pitch = pitch * kPi / kAttitudeSteps;
  state.heading = heading * (2 * kPi) / kHeadingSteps;
  decodeControls(controls, state.controls);
  decodeFlags(flags, state.flags);
  out = state;
  return true;
}

void encodeAircraftState(SngPacket& packet, const SngAircraftState& state) {
  packet.putF32(sngToF32(state.time));
  packet.putF32(sngToF32(state.lat));
  packet.putF32(sngToF32(state.lon));
  packet.putF32(sngToF32(state.alt));
  packet.putI16(encodeAttitude(state.roll));
  packet.putI16(encodeAttitude(state.pitch));
  packet.putU16(encodeHeading(state.heading));
  putVector(packet, kVelScaleDivisor, state.vel);
  putVector(packet, kVecScaleDivisor, state.vec2);
  putVector(packet, kVecScaleDivisor, state.vec3);
  putVector(packet, kVecScaleDivisor, state.vec4);
  packet.putU32(encodeControls(state.controls));
  packet.putU8(encodeFlags(state.flags));
}
