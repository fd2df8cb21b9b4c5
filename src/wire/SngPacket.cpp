#include "wire/SngPacket.h"

#include "toolkit/BtkBytes.h"

#include <bit>
#include <cmath>
#include <limits>
#include <utility>

namespace {

constexpr double kTwoTo32 = 4294967296.0;

// The shortest turnpoint: lat, lon, elevation, zone type, radius and an empty name.
constexpr size_t kMinTurnpointBytes = 4 + 4 + 2 + 1 + 2 + 1;

// Angles of the sector types: angle1 for sectors and lines, angle2 for sectors only.
bool carriesAngle1(int32_t oz) {
  return oz == SNG_OZ_SECTOR || oz == SNG_OZ_LINE;
}
bool carriesAngle2(int32_t oz) {
  return oz == SNG_OZ_SECTOR;
}

}  // namespace

uint32_t sngTruncU32(double value) {
  if (!std::isfinite(value)) return 0;
  // fmod is exact, so this is the truncated integer modulo 2^32 without any overflowing conversion.
  double reduced = std::fmod(std::trunc(value), kTwoTo32);
  if (reduced < 0) reduced += kTwoTo32;
  return static_cast<uint32_t>(reduced);
}

int32_t sngTruncI32(double value) {
  return static_cast<int32_t>(sngTruncU32(value));
}
uint16_t sngTruncU16(double value) {
  return static_cast<uint16_t>(sngTruncU32(value));
}
int16_t sngTruncI16(double value) {
  return static_cast<int16_t>(sngTruncU16(value));
}
uint8_t sngTruncU8(double value) {
  return static_cast<uint8_t>(sngTruncU32(value));
}
uint16_t sngScaledU16(double value, double factor) {
  return sngTruncU16(value * factor);
}
uint8_t sngScaledU8(double value, double factor) {
  return sngTruncU8(value * factor);
}

float sngToF32(double value) {
  constexpr double kMax = std::numeric_limits<float>::max();
  if (value > kMax) return std::numeric_limits<float>::infinity();
  if (value < -kMax) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);  // NaN stays NaN
}

SngPacket::SngPacket(const uint8_t* data, size_t size) {
  if (data != nullptr && size > 0) bytes.assign(data, data + size);
}

SngPacket::SngPacket(std::vector<uint8_t> data) : bytes(std::move(data)) {}

size_t SngPacket::remaining() const {
  return cursor < bytes.size() ? bytes.size() - cursor : 0;
}

void SngPacket::putU8(uint8_t value) {
  bytes.push_back(value);
}
void SngPacket::putU16(uint16_t value) {
  btkAppendLittle(bytes, value);
}
void SngPacket::putI16(int16_t value) {
  btkAppendLittle(bytes, static_cast<uint16_t>(value));
}
void SngPacket::putU32(uint32_t value) {
  btkAppendLittle(bytes, value);
}
void SngPacket::putI32(int32_t value) {
  btkAppendLittle(bytes, static_cast<uint32_t>(value));
}
void SngPacket::putF32(float value) {
  btkAppendLittle(bytes, std::bit_cast<uint32_t>(value));
}

void SngPacket::putString(const std::string& text) {
  const size_t length = text.find('\0');
  bytes.insert(bytes.end(), text.begin(), length == std::string::npos ? text.end() : text.begin() + length);
  bytes.push_back(0);
}

void SngPacket::putTask(const std::vector<SngTurnpoint>& task) {
  const uint8_t count = static_cast<uint8_t>(task.size());
  putU8(count);
  for (size_t i = 0; i < count; ++i) {
    const SngTurnpoint& tp = task[i];
    putF32(sngToF32(tp.lat));
    putF32(sngToF32(tp.lon));
    putI16(sngTruncI16(tp.elev));
    // The reader picks the angle fields by the byte it sees, so the writer goes by that byte too.
    const uint8_t oz = static_cast<uint8_t>(tp.oz);
    putU8(oz);
    putU16(sngTruncU16(tp.radius / 10.0));
    if (carriesAngle1(oz)) putU16(sngTruncU16(tp.angle1));
    if (carriesAngle2(oz)) putU16(sngTruncU16(tp.angle2));
    putString(tp.name);
  }
}

bool SngPacket::getU8(uint8_t& out) {
  if (remaining() < 1) return false;
  out = bytes[cursor];
  cursor += 1;
  return true;
}

bool SngPacket::getU16(uint16_t& out) {
  if (remaining() < 2) return false;
  out = btkLoadLittleU16(&bytes[cursor]);
  cursor += 2;
  return true;
}

bool SngPacket::getI16(int16_t& out) {
  uint16_t raw;
  if (!getU16(raw)) return false;
  out = static_cast<int16_t>(raw);
  return true;
}

bool SngPacket::getU32(uint32_t& out) {
  if (remaining() < 4) return false;
  out = btkLoadLittleU32(&bytes[cursor]);
  cursor += 4;
  return true;
}

bool SngPacket::getI32(int32_t& out) {
  uint32_t raw;
  if (!getU32(raw)) return false;
  out = static_cast<int32_t>(raw);
  return true;
}

bool SngPacket::getF32(float& out) {
  uint32_t raw;
  if (!getU32(raw)) return false;
  out = std::bit_cast<float>(raw);
  return true;
}

bool SngPacket::getString(std::string& out) {
  if (remaining() < 1) return false;
  out.clear();
  while (remaining() > 0) {
    const uint8_t byte = bytes[cursor++];
    if (byte == 0) return true;
    out.push_back(static_cast<char>(byte));
  }
  return false;
}

bool SngPacket::getTurnpoint(SngTurnpoint& out) {
  float lat, lon;
  int16_t elev;
  uint8_t oz;
  uint16_t radius, angle1 = 0, angle2 = 180;
  if (!getF32(lat) || !getF32(lon) || !getI16(elev) || !getU8(oz) || !getU16(radius)) return false;
  if (carriesAngle1(oz) && !getU16(angle1)) return false;
  if (carriesAngle2(oz) && !getU16(angle2)) return false;
  if (!getString(out.name)) return false;
  out.lat = lat;
  out.lon = lon;
  out.elev = elev;
  out.oz = oz;
  out.radius = radius * 10.0;
  out.angle1 = angle1;
  out.angle2 = angle2;
  return true;
}

bool SngPacket::getTask(std::vector<SngTurnpoint>& out) {
  const uint32_t start = cursor;
  out.clear();
  uint8_t count;
  if (!getU8(count)) return false;
  // Reject a count the bytes cannot hold before allocating for it.
  if (remaining() < count * kMinTurnpointBytes) {
    cursor = start;
    return false;
  }
  out.resize(count);
  for (SngTurnpoint& tp : out) {
    if (!getTurnpoint(tp)) {
      out.clear();
      cursor = start;
      return false;
    }
  }
  return true;
}
