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
      {-2147483649.0, 2147483647, 2147483647, 0xFFFF, -1, 255}, {1e300, 0, 0, 0, 0, 0}, {NAN, 0, 0, 0, 0, 0},
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
  EXPECT_TRUE(std::isnan(sngToF32(NAN)));
}

// A cylinder (zone type 0) carries neither sector angle and a line (2) only the first: the absent ones
// read as 0 and 180 degrees. The block's bytes both ways and cut at every length: the CONNECT record.
TEST(PacketTask, ReadReplacesTheTaskDefaultsAbsentAnglesAndEmptiesTheTaskWhenCut) {
  const Bytes block = hex("02 0000803F 000020C0 FDFF 00 7B00 4100 0000003F 00000040 F401 02 6400 0E01 00");
  std::vector<SngTurnpoint> task(7);
  SngPacket p(block);
  ASSERT_TRUE(p.getTask(task) && task.size() == 2);
  EXPECT_EQ(std::tie(task[0].angle1, task[0].angle2, task[1].angle1, task[1].angle2),
            std::make_tuple(0.0, 180.0, 270.0, 180.0));
  SngPacket cut = behindOpcode(block, block.size() - 1);
  EXPECT_FALSE(cut.getTask(task));
  EXPECT_EQ(std::pair(task.size(), cut.cursor), std::pair(size_t{0}, 1u));
}

// Only the count's low 8 bits go out, and exactly that many turnpoints follow.
TEST(PacketTask, CarriesUpTo255TurnpointsAnd256AsNone) {
  for (size_t count : {255, 256}) {
    SngPacket p;
    p.putTask(std::vector<SngTurnpoint>(count));
    std::vector<SngTurnpoint> task;
    EXPECT_TRUE(p.getTask(task) && p.remaining() == 0 && task.size() == count % 256) << count;
  }
}

}  // namespace
