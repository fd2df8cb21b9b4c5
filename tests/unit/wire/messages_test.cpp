// Message records against hand-written bytes: every record written, read back and cut at every
// length; for the records a client sends, the field each cut leaves missing.
#include "unit/wire/WireTest.h"

namespace {

// What a cut leaves missing: the field of a record a client sends (Msg::Field), with the launch field for
// CONNECT (a pair; the launch field is named only when the launch block is cut); nothing (int) otherwise.
template <class Missing, class Msg>
bool readNamingMissing(Msg& m, SngPacket& p, Missing& missing) {
  if constexpr (std::is_same_v<Missing, int>) {
    return m.read(p);
  } else if constexpr (std::is_same_v<Msg, SngConnectMsg>) {
    const bool ok = m.read(p, &missing.first, &missing.second);
    if (missing.first != SngConnectMsg::LAUNCH) missing.second = SngLaunchField::METHOD;
    return ok;
  } else {
    return m.read(p, &missing);
  }
}

// Writes `m` behind its opcode: the bytes must be `body`. Then reads every cut of the body from behind
// the opcode: a cut below `shortest` bytes fails with the cursor back, and either leaves the record
// untouched or, for the records a client sends, names the field of the row of `cuts` for that length
// (a row holds from its length up to the next row's) and keeps the fields before it, for the server's
// report. A longer cut reads back the bytes it holds.
template <class Missing = int, class Msg>
void expectRecord(uint8_t opcode, const Msg& m, const Bytes& body,
                  const std::vector<std::pair<size_t, Missing>>& cuts = {}, size_t shortest = SIZE_MAX,
                  std::source_location at = std::source_location::current()) {
  const testing::ScopedTrace trace(at.file_name(), static_cast<int>(at.line()), "record");
  EXPECT_EQ(sngMessage(opcode, m).bytes, behindOpcode(body, body.size(), opcode).bytes);
  for (size_t n = 0; n <= body.size(); ++n) {
    SngPacket p = behindOpcode(body, n);
    Msg back;
    Missing missing = cuts.empty() ? Missing{} : cuts.back().second;  // a read that names nothing fails
    const bool ok = readNamingMissing<Missing>(back, p, missing), whole = n >= std::min(shortest, body.size());
    EXPECT_EQ(std::pair(ok, p.cursor), std::pair(whole, uint32_t(whole ? n + 1 : 1))) << "cut at " << n;
    SngPacket again, fresh;
    back.write(again);
    if (whole) {
      EXPECT_EQ(again.bytes, Bytes(body.begin(), body.begin() + n));
    } else if (cuts.empty()) {
      Msg{}.write(fresh);
      EXPECT_EQ(again.bytes, fresh.bytes) << "record changed by a cut at " << n;
    } else {
      const auto row = std::find_if(cuts.rbegin(), cuts.rend(), [n](const auto& r) { return r.first <= n; });
      EXPECT_EQ(missing, row->second) << "cut at " << n;
      again.bytes.resize(row->first);
      EXPECT_EQ(again.bytes, Bytes(body.begin(), body.begin() + row->first)) << "cut at " << n;
    }
  }
}

// Each row's comment names its bytes' fields.
TEST(MessageRecords, MatchHandWrittenBytesReadBackAndNameWhatACutLeavesMissing) {
  using enum SngConnectMsg::Field;
  using enum SngLaunchField;
  using namespace SngNet;
  using L = SngLoginMsg;
  using V = SngVoiceMsg;
  using Cut = std::pair<SngConnectMsg::Field, SngLaunchField>;
  const SngLaunch winch = {SngLaunch::WINCH, 1000, "", "W", 0.5, 2.0, 100.0, 270};
  const SngLaunch tow = {SngLaunch::AEROTOW, 60, "T", "", 9999.0, 9999.0, 0.0, 0};
  const SngLaunch other = {7, 99, "", "", 9999.0, 9999.0, 0.0, 0};  // carries no block: the rope stays home
  // clang-format off
  // 1.09, hardware ID, "Al", "n"
  expectRecord<L::Field>(LOGIN, L{1, 9, 0xDEADBEEF, "Al", "n"}, hex("01 09 EFBEADDE 416C00 6E00"),
      {{0, L::VERSION}, {2, L::HW_ID}, {6, L::PILOT_NAME}, {9, L::NICK}});
  // Hardware ID, player 5, "G", "R", "C"; winch: 1000 m, "W", 0.5, 2.0, 100.0, direction 270. A task of
  // one turnpoint per zone type, angles only where the type uses them: a cylinder; a line; and 257, which
  // goes out as the byte 1, a sector. 1.0, -2.5, elev -3, cylinder, 123 tens of metres, "A"; 0.5, 2.0,
  // elev 500, line, 100 tens, angle1 270, ""; +inf, 100.0, elev 40000 (as -25536), sector, radius 0,
  // angles 45 and -10 (as 65526), "BC".
  expectRecord<Cut>(CONNECT, SngConnectMsg{0x01020304, 5, "G", "R", "C", winch,
      {{-1, 1.0, -2.5, -3.7, "A", {}, 1234.5, 33, 44, 0, 0}, {-1, 0.5, 2.0, 500.7, "", {}, 1000, 270.9, 55, 0, 2},
       {-1, 1e300, 100, 40000, "BC", {}, -kInf, 45, -10, 0, 257}}},
      hex("04030201 05 4700 5200 4300 02 E803 5700 0000003F 00000040 0000C842 0E01"
          "03 0000803F 000020C0 FDFF 00 7B00 4100 0000003F 00000040 F401 02 6400 0E01 00"
          "0000807F 0000C842 409C 01 0000 2D00 F6FF 424300"),
      {{0, {HW_ID, METHOD}}, {4, {PLAYER, METHOD}}, {5, {AIRCRAFT_ID, METHOD}}, {7, {REGISTRATION, METHOD}},
       {9, {COMP_ID, METHOD}}, {11, {LAUNCH, METHOD}}, {12, {LAUNCH, ROPE_LENGTH}}, {14, {LAUNCH, WINCH_ID}},
       {16, {LAUNCH, WINCH_LAT}}, {20, {LAUNCH, WINCH_LON}}, {24, {LAUNCH, WINCH_ALT}},
       {28, {LAUNCH, WINCH_DIR}}, {30, {TASK, METHOD}}});
  // Hardware ID 7, player 1, "A", "", ""; aerotow: 60 m, "T"; one cylinder at (-999, -999), 500 m, "".
  expectRecord<Cut>(CONNECT, SngConnectMsg{7, 1, "A", "", "", tow, std::vector<SngTurnpoint>(1)},
      hex("07000000 01 4100 00 00 01 3C00 5400 01 00C079C4 00C079C4 0000 00 3200 00"),
      {{0, {HW_ID, METHOD}}, {4, {PLAYER, METHOD}}, {5, {AIRCRAFT_ID, METHOD}}, {7, {REGISTRATION, METHOD}},
       {8, {COMP_ID, METHOD}}, {9, {LAUNCH, METHOD}}, {10, {LAUNCH, ROPE_LENGTH}},
       {12, {LAUNCH, TOWPLANE_ID}}, {14, {TASK, METHOD}}});
  // 2.09, player 3, flags, 14 July, 43200.0 s, "S", "", "09"; thermals 2.37 m/s, 150 m, 2500 m, base
  // 1800 m, 50 of them; wind 5 from 270; layers (1000 m, 90, 4.5) and (-1 m, 360, 0); gate at 46800 s,
  // regatta, -20 m; no task; "Hi".
  expectRecord(SERVER_INFO, SngServerInfoMsg{2, 9, 3, 0x21, 7, 14, 43200.0f, "S", "", "09", 2.379, 150.9,
      2500.0, 1800.2, 50, 5, 270, {{1000.0, 90.5, 4.56}, {-1.0, 360.0, 0.0}}, 46800, true, -20, {}, "Hi"},
      hex("02 09 03 21 07 0E 00C02847 5300 00 303900 ED00 9600 C409 0807 3200 0500 0E01"
          "02 E803 5A00 2D00 FFFF 6801 0000 D0B60000 01 ECFFFFFF 00 486900"));
  // Player 31, "D", "A", "n", "R", "X", launch method 7, no task.
  expectRecord(NEW_AIRCRAFT, SngAircraftMsg{31, "D", "A", "n", "R", "X", other, {}},
      hex("1F 4400 4100 6E00 5200 5800 07 00"));
  // 0.5, 2.0; base 1200 m, height 1500 m, radius 200 m; 30 and 5 tenths; 600 s; born at 43200.0 s.
  expectRecord(THERMAL, SngThermalMsg{0.5f, 2.0f, 1200.7f, 1500.0f, 200.0f, 3.05f, 0.5f, 600.5f, 43200.0f},
      hex("0000003F 00000040 B004 DC05 C800 1E 05 5802 00C02847"));
  expectRecord(TASK_UPDATE, SngTaskUpdateMsg{2, 9, 3, 1, 10}, hex("02 09 03 0000803F 00002041"));
  expectRecord(RESULT_OK, SngResultOkMsg{3, 12, 31, 1, 2, 218}, hex("03 0C 1F 0000803F 02 DA00"));
  expectRecord<SngPlayerMsg::Field>(LOGOUT, SngPlayerMsg{200}, hex("C8"), {{0, SngPlayerMsg::PLAYER}});
  // Player 4, time 10.0, every other field 0: four vectors of scale 1, controls at their middle.
  expectRecord<SngStateMsg::Field>(AIRCRAFT_STATE, SngStateMsg{4, {.time = 10.0}},
      hex("04 00002041 000000000000000000000000 000000000000 0100000000000000 0100000000000000"
          "0100000000000000 0100000000000000 88080008 00"),
      {{0, SngStateMsg::PLAYER}, {1, SngStateMsg::BODY}});
  expectRecord<SngChatMsg::Field>(CHAT_MSG, SngChatMsg{9, "hi"}, hex("09 686900"),
      {{0, SngChatMsg::PLAYER}, {1, SngChatMsg::TEXT}});
  expectRecord<SngCommFrqMsg::Field>(COMM_FRQ, SngCommFrqMsg{1, 760}, hex("01 F802"),
      {{0, SngCommFrqMsg::PLAYER}, {1, SngCommFrqMsg::CHANNEL}});
  // Player 1, channel 218, 2 packets, then 3 bytes of voice: any 5 bytes or more read.
  expectRecord<V::Field>(VOICE_CHAT, V{1, 218, 2, {0xAA, 0x00, 0xBB}}, hex("01 DA00 0200 AA00BB"),
      {{0, V::PLAYER}, {1, V::CHANNEL}, {3, V::NUM_PACKETS}}, 5);
  expectRecord(TIME_SYNC, SngTimeSyncMsg{100.0f}, hex("0000C842"));
  expectRecord(SHUTDOWN_MSG, SngShutdownMsg{"Bye"}, hex("42796500"));
  // A datagram without opcode; 0 stands in for one. "N", "a", "", port 16101, 2 of 50 players, 302 km.
  expectRecord(0, SngScanReply{"N", "a", "", 16101, 2, 50, 302}, hex("4E00 6100 00 E53E 0200 3200 2E01"));
  // clang-format on
}

TEST(TaskUpdateMsg, StatusByteCombinesStartZoneFinishAndOutlanding) {
  for (auto [zone, finished, out, status] : {std::tuple{false, false, false, 1}, {false, true, false, 2},
       {true, false, false, 5}, {true, true, false, 6}, {false, false, true, 9}, {true, true, true, 14}})
    EXPECT_EQ(sngTaskStatus(zone, finished, out), status);
}

}  // namespace
