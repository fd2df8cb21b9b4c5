// Shared by the wire tests: the headers under test, hand-written bytes, and messages cut short as the
// dispatcher hands them over.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <source_location>
#include <string>
#include <tuple>
#include <type_traits>

#include "wire/SngAircraftStateCodec.h"
#include "wire/SngMessages.h"

using Bytes = std::vector<uint8_t>;
constexpr double kInf = std::numeric_limits<double>::infinity();

// Hex pairs; spaces are only for the reader.
inline Bytes hex(std::string text) {
  std::erase(text, ' ');
  Bytes out;
  for (size_t i = 0; i < text.size(); i += 2) out.push_back(uint8_t(std::stoul(text.substr(i, 2), nullptr, 16)));
  return out;
}

// The first `n` bytes of `body` behind an opcode, with the cursor past the opcode: a start other than 0
// shows whether a failed read puts the cursor back where it was or merely at 0.
inline SngPacket behindOpcode(const Bytes& body, size_t n, uint8_t opcode = 0xEE) {
  SngPacket packet(Bytes{opcode});
  packet.bytes.insert(packet.bytes.end(), body.begin(), body.begin() + static_cast<std::ptrdiff_t>(n));
  packet.cursor = 1;
  return packet;
}
