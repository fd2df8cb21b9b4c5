// The message buffer of the client protocol: fields appended back to back for sending, read back
// with a cursor that never passes the end. All multi-byte fields are little-endian on any host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "session/SngTurnpoint.h"

// Conversions of doubles to the integer fields of a message: truncation toward zero, then only the
// low bits that fit the field are kept (so -1 becomes 0xFFFF in a u16 and 70000 becomes 4464).
// Defined for every double: NaN and the infinities give 0, and finite values beyond 32 bits are
// reduced modulo 2^32 first, so no out-of-range conversion is ever made.
uint32_t sngTruncU32(double value);
int32_t sngTruncI32(double value);
uint16_t sngTruncU16(double value);
int16_t sngTruncI16(double value);
uint8_t sngTruncU8(double value);
// value × factor, then truncated as above (thermal strength × 100 into a u16, say).
uint16_t sngScaledU16(double value, double factor);
uint8_t sngScaledU8(double value, double factor);
// A double narrowed to a 32-bit float field: values beyond the largest float become the infinity of
// their sign (the conversion itself would be undefined there); NaN stays NaN.
float sngToF32(double value);

struct SngPacket {
  std::vector<uint8_t> bytes;
  uint32_t cursor = 0;  // index of the next byte to read

  SngPacket() = default;
  // A received message: a copy of the bytes, read from the start.
  SngPacket(const uint8_t* data, size_t size);
  explicit SngPacket(std::vector<uint8_t> data);

  // Bytes left to read; 0 when the cursor stands at or beyond the end.
  size_t remaining() const;

  // Writers append at the end and never touch the cursor.
  void putU8(uint8_t value);
  void putU16(uint16_t value);
  void putI16(int16_t value);
  void putU32(uint32_t value);
  void putI32(int32_t value);
  void putF32(float value);
  // The text's bytes and one 0 byte. The wire has no escape for a 0 byte inside a text, so a text is
  // written only up to its first 0 byte; the message stays readable.
  void putString(const std::string& text);
  // Count as one byte, then the turnpoints. Only the low 8 bits of the size are sent and exactly that
  // many turnpoints follow, so a task of 256 turnpoints goes out as an empty task; callers keep
  // tasks at 255 turnpoints or fewer.
  void putTask(const std::vector<SngTurnpoint>& task);

  // Readers return false and leave the cursor where it was when the field does not fit in the
  // remaining bytes; on success they store the value and move the cursor past it.
  bool getU8(uint8_t& out);
  bool getU16(uint16_t& out);
  bool getI16(int16_t& out);
  bool getU32(uint32_t& out);
  bool getI32(int32_t& out);
  bool getF32(float& out);
  // Fails at once when no byte remains. Otherwise takes bytes up to and including a 0 byte (true);
  // at the end of the message without one it returns false with the bytes it took consumed and
  // `out` holding them.
  bool getString(std::string& out);
  // Replaces `out` with the task block at the cursor. Any missing field is a failure: `out` is then
  // empty and the cursor is back at the start of the block. Fields the wire does not carry get the
  // turnpoint defaults; absent sector angles read as 0 and 180 degrees.
  bool getTask(std::vector<SngTurnpoint>& out);

 private:
  bool getTurnpoint(SngTurnpoint& out);
};
