// Field encodings of the message buffer against bytes written out by hand.
#include "unit/wire/WireTest.h"

namespace {

// The readers' little-endian decoding and their refusal of a field cut short are held to hand-written
// bytes by every message record (messages_test.cpp); a reader that moves the cursor on failure, which no
// caller can see, is left to the fuzz target's check.
TEST(PacketStrings, EndAtTheirFirstZeroByte) {
  SngPacket p;
  p.putString("AB");
  p.putString(std::string("A\0B", 3));  // a second 0 byte on the wire would split the message
  EXPECT_EQ(p.bytes, hex("414200 4100"));
  std::string a, b;
  ASSERT_TRUE(p.getString(a) && p.getString(b));
  EXPECT_EQ(std::tie(a, b), std::make_tuple("AB", "A"));
  EXPECT_FALSE(p.getString(a));
  p.cursor = 100;  // a caller's bug: still nothing is read out of bounds
  EXPECT_EQ(p.remaining(), 0u);
  SngPacket unterminated(hex("4142"));
  EXPECT_FALSE(unterminated.getString(a));
  EXPECT_EQ(std::tie(a, unterminated.cursor), std::make_tuple("AB", 2u));  // consumed and kept
}

TEST(PacketConversions, TruncateScaleAndNarrowEveryDouble) {
  // As u32, i32, u16, i16 and u8: truncated toward zero, low bits kept. Doubles beyond 2^84 are
  // multiples of 2^32; the non-finite ones have no bits to keep.
  // clang-format off
  const std::tuple<double, uint32_t, int32_t, uint16_t, int16_t, uint8_t> rows[] = {
      {-1.9, 0xFFFFFFFF, -1, 0xFFFF, -1, 255}, {-0.99, 0, 0, 0, 0, 0}, {4294967296.0 + 5.7, 5, 5, 5, 5, 5},
      {70000.9, 70000, 70000, 4464, 4464, 112}, {40000.0, 40000, 40000, 40000, -25536, 64},
      {1e10, 1410065408, 1410065408, 58368, -7168, 0}, {3e9, 3000000000, -1294967296, 24064, 24064, 0},
      {-2147483649.0, 2147483647, 2147483647, 0xFFFF, -1, 255}, {1e300, 0, 0, 0, 0, 0}, {kNaN, 0, 0, 0, 0, 0},
      {-std::numeric_limits<double>::max(), 0, 0, 0, 0, 0}, {kInf, 0, 0, 0, 0, 0}, {-kInf, 0, 0, 0, 0, 0}};
  // clang-format on
  for (const auto& [v, u32, i32, u16, i16, u8] : rows) {
    EXPECT_EQ(std::make_tuple(sngTruncU32(v), sngTruncI32(v), sngTruncU16(v), sngTruncI16(v), sngTruncU8(v)),
              std::make_tuple(u32, i32, u16, i16, u8))
        << v;
  }
  // value, factor, as u16 and u8: multiplied first, then truncated; an overflowing product is infinity.
  const std::tuple<double, double, uint16_t, uint8_t> scaled[] = {
      {2.379, 100.0, 237, 237}, {25.6, 10.0, 256, 0}, {-0.1, 10.0, 0xFFFF, 255}, {1e200, 1e200, 0, 0}};
  for (auto [v, f, u16, u8] : scaled)
    EXPECT_EQ(std::pair(sngScaledU16(v, f), sngScaledU8(v, f)), std::pair(u16, u8));
  // To a float: beyond the largest one, the infinity of the value's sign.
  constexpr float kMax = std::numeric_limits<float>::max();
  for (auto [v, f] :
       {std::pair{-2.5, -2.5f}, {kMax, kMax}, {3.5e38, INFINITY}, {-1e300, -INFINITY}, {kInf, INFINITY}}) {
    EXPECT_EQ(sngToF32(v), f) << v;
  }
  EXPECT_TRUE(std::isnan(sngToF32(kNaN)));
}

// One turnpoint per zone type: a cylinder, a line, and 257, which goes out as the byte 1, a sector.
// 1.0, -2.5, elev -3, cylinder, 123 tens of metres, "A"; 0.5, 2.0, elev 500, line, 100 tens, angle1 270, "";
// +inf, 100.0, elev 40000 (as -25536), sector, radius 0, angles 45 and -10 (as 65526), "BC".
TEST(PacketTask, WritesAnglesOnlyForTheZoneTypesThatUseThemAndFailsWhenCut) {
  const Bytes block =
      hex("03 0000803F 000020C0 FDFF 00 7B00 4100 0000003F 00000040 F401 02 6400 0E01 00"
          "0000807F 0000C842 409C 01 0000 2D00 F6FF 424300");
  SngPacket p;
  // id, lat, lon, elev, name, actions, radius, angle1, angle2, max_alt, zone type
  p.putTask({{-1, 1.0, -2.5, -3.7, "A", {}, 1234.5, 33, 44, 0, 0},
             {-1, 0.5, 2.0, 500.7, "", {}, 1000, 270.9, 55, 0, 2},
             {-1, 1e300, 100, 40000, "BC", {}, -kInf, 45, -10, 0, 257}});
  EXPECT_EQ(p.bytes, block);
  std::vector<SngTurnpoint> task(7);  // replaced, not appended to
  ASSERT_TRUE(p.getTask(task));
  ASSERT_EQ(task.size(), 3u);
  SngPacket again;  // every field the wire carries was read
  again.putTask(task);
  EXPECT_EQ(again.bytes, block);
  EXPECT_EQ(std::tie(task[0].angle1, task[0].angle2, task[1].angle2), std::make_tuple(0.0, 180.0, 180.0));
  EXPECT_EQ(std::tie(task[0].radius, task[0].elev, task[2].oz), std::make_tuple(1230.0, -3.0, 1));
  for (size_t n = 0; n < block.size(); ++n) {
    SngPacket cut = behindOpcode(block, n);
    EXPECT_FALSE(cut.getTask(task)) << "cut at " << n;
    EXPECT_EQ(std::pair(task.size(), cut.cursor), std::pair(size_t{0}, 1u)) << "cut at " << n;
  }
}

// Only the count's low 8 bits go out, and exactly that many turnpoints follow.
TEST(PacketTask, CarriesUpTo255TurnpointsAnd256AsNone) {
  for (size_t count : {0, 1, 255, 256}) {
    std::vector<SngTurnpoint> task(count);
    for (size_t i = 0; i < count; ++i) task[i].lat = static_cast<double>(i);
    SngPacket p;
    p.putTask(task);
    EXPECT_EQ(p.bytes.size(), 1 + 14 * (count % 256)) << count;  // the shortest turnpoint is 14 bytes
    ASSERT_TRUE(p.getTask(task)) << count;
    ASSERT_EQ(task.size(), count % 256);
    EXPECT_EQ(task.empty() ? -1.0 : task.back().lat, count % 256 - 1.0);  // the last one is the last sent
  }
}

}  // namespace
