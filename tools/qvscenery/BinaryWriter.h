// Little-endian output for the scenery files, whatever the host's byte order.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace qvscenery {

class BinaryWriter {
 public:
  void u8(uint8_t v) { bytes_.push_back(v); }
  void u16(uint16_t v) {
    u8(static_cast<uint8_t>(v));
    u8(static_cast<uint8_t>(v >> 8));
  }
  void i16(int16_t v) { u16(static_cast<uint16_t>(v)); }
  void i8(int8_t v) { u8(static_cast<uint8_t>(v)); }
  void u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) u8(static_cast<uint8_t>(v >> (8 * i)));
  }
  void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
  void f32(float v) {
    uint32_t u;
    memcpy(&u, &v, sizeof u);
    u32(u);
  }
  void f64(double v) {
    uint64_t u;
    memcpy(&u, &v, sizeof u);
    for (int i = 0; i < 8; ++i) u8(static_cast<uint8_t>(u >> (8 * i)));
  }
  void raw(const void* data, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    bytes_.insert(bytes_.end(), p, p + size);
  }
  void zeros(size_t count) { bytes_.insert(bytes_.end(), count, 0); }

  const std::vector<uint8_t>& bytes() const { return bytes_; }
  size_t size() const { return bytes_.size(); }
  void clear() { bytes_.clear(); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace qvscenery
