// Arbitrary bytes through every reader of the message buffer: the field getters driven by the input
// itself, the task block, the state decoder and every message record. A record that reads must also
// write something that reads back.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "wire/SngAircraftStateCodec.h"
#include "wire/SngMessages.h"

namespace {

void check(bool condition) {
  if (!condition) abort();
}

// Each selector byte names a getter for the bytes after it; every round consumes at least the
// selector, so the loop ends.
void runGetters(const uint8_t* data, size_t size) {
  SngPacket p(data, size);
  uint8_t selector;
  while (p.getU8(selector)) {
    const uint32_t before = p.cursor;
    uint8_t u8;
    uint16_t u16;
    int16_t i16;
    uint32_t u32;
    int32_t i32;
    float f32;
    std::string text;
    std::vector<SngTurnpoint> task;
    SngAircraftState state;
    bool ok = false;
    // clang-format off
    switch (selector % 9) {
      case 0: ok = p.getU8(u8); break;
      case 1: ok = p.getU16(u16); break;
      case 2: ok = p.getI16(i16); break;
      case 3: ok = p.getU32(u32); break;
      case 4: ok = p.getI32(i32); break;
      case 5: ok = p.getF32(f32); break;
      case 6: ok = p.getString(text); break;  // keeps what it consumed when it fails
      case 7: ok = p.getTask(task); break;
      default: ok = decodeAircraftState(p, state); break;
    }
    // clang-format on
    check(p.cursor <= p.bytes.size());
    if (!ok && selector % 9 != 6) check(p.cursor == before);
    if (!ok && selector % 9 == 7) check(task.empty());
  }
}

// Reads a record from `from` (0 for the scan reply, 1 behind an opcode); a record that reads writes
// back into bytes that read again.
template <class Message>
void readMessage(const uint8_t* data, size_t size, uint32_t from) {
  SngPacket p(data, size);
  p.cursor = from;
  Message m;
  if (!m.read(p)) {
    check(p.cursor == from);
    return;
  }
  check(p.cursor <= p.bytes.size());
  SngPacket again;
  m.write(again);
  Message m2;
  check(m2.read(again));
  check(again.remaining() == 0);
}

template <class... Messages>
void readBehindOpcode(const uint8_t* data, size_t size) {
  (readMessage<Messages>(data, size, 1), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  runGetters(data, size);
  readMessage<SngScanReply>(data, size, 0);
  if (size == 0) return 0;
  readBehindOpcode<SngLoginMsg, SngConnectMsg, SngServerInfoMsg, SngAircraftMsg, SngThermalMsg, SngTaskUpdateMsg,
                   SngResultOkMsg, SngPlayerMsg, SngStateMsg, SngChatMsg, SngCommFrqMsg, SngVoiceMsg,
                   SngTimeSyncMsg, SngShutdownMsg>(data, size);
  return 0;
}
