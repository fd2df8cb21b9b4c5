// Byte order of the wire and of the terrain files lives here and only here: little-endian values are
// taken apart and put together byte by byte, so neither the host's byte order nor the alignment of
// a field matters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

inline uint16_t btkLoadLittleU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t btkLoadLittleU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

inline uint64_t btkLoadLittleU64(const uint8_t* p) {
  return static_cast<uint64_t>(btkLoadLittleU32(p)) | (static_cast<uint64_t>(btkLoadLittleU32(p + 4)) << 32);
}

template <class T>
void btkAppendLittle(std::vector<uint8_t>& bytes, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}
