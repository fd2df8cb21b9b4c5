// Field encodings of the message buffer against bytes written out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "net/SngNet.h"
#include "net/SngPacket.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(PacketFields, WritersAppendLittleEndianBytes) {
  SngPacket p;
  p.putU8(0xAB);
  p.putU16(0x1234);
  p.putI16(-2);
  p.putU32(0x12345678);
  p.putI32(-1000);
  p.putF32(1.0f);
  p.putF32(-2.5f);
  const Bytes expected = {0xAB, 0x34, 0x12, 0xFE, 0xFF, 0x78, 0x56, 0x34, 0x12, 0x18, 0xFC,
                          0xFF, 0xFF, 0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0};
  EXPECT_EQ(p.bytes, expected);
  EXPECT_EQ(p.cursor, 0u);
}

TEST(PacketFields, ReadersTakeLittleEndianFieldsAtOddOffsets) {
  // The leading byte puts every multi-byte field at an odd address.
  const Bytes wire = {0x07, 0x34, 0x12, 0xFE, 0xFF, 0x78, 0x56, 0x34, 0x12,
                      0x18, 0xFC, 0xFF, 0xFF, 0x00, 0x00, 0x20, 0xC0};
  SngPacket p(wire.data(), wire.size());
  uint8_t u8;
  uint16_t u16;
  int16_t i16;
  uint32_t u32;
  int32_t i32;
  float f32;
  ASSERT_TRUE(p.getU8(u8) && p.getU16(u16) && p.getI16(i16) && p.getU32(u32) && p.getI32(i32) &&
              p.getF32(f32));
  EXPECT_EQ(u8, 7);
  EXPECT_EQ(u16, 0x1234);
  EXPECT_EQ(i16, -2);
  EXPECT_EQ(u32, 0x12345678u);
  EXPECT_EQ(i32, -1000);
  EXPECT_EQ(f32, -2.5f);
  EXPECT_EQ(p.remaining(), 0u);
}

TEST(PacketFields, AFieldThatDoesNotFitFailsWithoutMovingTheCursor) {
  const Bytes wire = {0x01, 0x02, 0x03};
  SngPacket p(wire.data(), wire.size());
  uint32_t u32 = 99;
  int32_t i32 = 99;
  float f32 = 99;
  EXPECT_FALSE(p.getU32(u32));
  EXPECT_FALSE(p.getI32(i32));
  EXPECT_FALSE(p.getF32(f32));
  EXPECT_EQ(p.cursor, 0u);
  EXPECT_EQ(u32, 99u);
  uint16_t u16;
  int16_t i16 = 99;
  ASSERT_TRUE(p.getU16(u16));
  EXPECT_EQ(u16, 0x0201);
  EXPECT_FALSE(p.getI16(i16));
  EXPECT_FALSE(p.getU16(u16));
  EXPECT_EQ(p.cursor, 2u);
  EXPECT_EQ(i16, 99);
  uint8_t u8;
  ASSERT_TRUE(p.getU8(u8));
  EXPECT_FALSE(p.getU8(u8));
  EXPECT_EQ(p.remaining(), 0u);

  // A cursor set beyond the end (by a caller's bug) reads nothing rather than out of bounds.
  p.cursor = 100;
  EXPECT_EQ(p.remaining(), 0u);
  EXPECT_FALSE(p.getU8(u8));
}

TEST(PacketStrings, AreTheirBytesAndOneZero) {
  SngPacket p;
  p.putString("");
  p.putString("AB");
  p.putString(std::string("A\0B", 3));  // cut at the 0 byte: a second terminator would split the message
  EXPECT_EQ(p.bytes, (Bytes{0x00, 0x41, 0x42, 0x00, 0x41, 0x00}));
}

TEST(PacketStrings, ReadUpToAndIncludingTheTerminator) {
  const Bytes wire = {0x00, 0x41, 0x00, 0x42, 0x43, 0x00};
  SngPacket p(wire.data(), wire.size());
  std::string a = "x", b, c;
  ASSERT_TRUE(p.getString(a) && p.getString(b) && p.getString(c));
  EXPECT_EQ(a, "");
  EXPECT_EQ(b, "A");
  EXPECT_EQ(c, "BC");
  EXPECT_FALSE(p.getString(a));  // nothing left: fails at once
  EXPECT_EQ(p.cursor, wire.size());
}

TEST(PacketStrings, AnUnterminatedTextFailsButStaysConsumed) {
  const Bytes wire = {0x41, 0x42};
  SngPacket p(wire.data(), wire.size());
  std::string text;
  EXPECT_FALSE(p.getString(text));
  EXPECT_EQ(p.cursor, 2u);
  EXPECT_EQ(text, "AB");
}

TEST(PacketConversions, TruncateTowardZeroAndKeepTheLowBits) {
  EXPECT_EQ(sngTruncU16(-1.0), 0xFFFF);
  EXPECT_EQ(sngTruncU16(70000.9), 4464);  // 70000 - 65536
  EXPECT_EQ(sngTruncI16(-1.9), -1);
  EXPECT_EQ(sngTruncI16(40000.0), -25536);
  EXPECT_EQ(sngTruncU8(-1.0), 255);
  EXPECT_EQ(sngTruncU8(-0.99), 0);
  EXPECT_EQ(sngTruncU32(4294967296.0 + 5.7), 5u);
  EXPECT_EQ(sngTruncU32(1e10), 1410065408u);
  EXPECT_EQ(sngTruncI32(3e9), -1294967296);
  EXPECT_EQ(sngTruncI32(-2147483649.0), 2147483647);
  EXPECT_EQ(sngTruncI32(-123.99), -123);
  EXPECT_EQ(sngScaledU16(2.37, 100.0), 237);
  EXPECT_EQ(sngScaledU16(4.56, 10.0), 45);
  EXPECT_EQ(sngScaledU8(25.5, 10.0), 255);
  EXPECT_EQ(sngScaledU8(25.6, 10.0), 0);  // 256 keeps its low byte
}

TEST(PacketConversions, NonFiniteAndHugeValuesHaveADefinedResult) {
  for (double v : {kNaN, kInf, -kInf}) {
    EXPECT_EQ(sngTruncU32(v), 0u);
    EXPECT_EQ(sngTruncI32(v), 0);
    EXPECT_EQ(sngTruncI16(v), 0);
    EXPECT_EQ(sngScaledU16(v, 10.0), 0);
  }
  // Doubles this large are multiples of 2^32, so their low 32 bits are 0.
  EXPECT_EQ(sngTruncU32(1e300), 0u);
  EXPECT_EQ(sngTruncI32(-std::numeric_limits<double>::max()), 0);
  EXPECT_EQ(sngScaledU8(1e200, 1e200), 0);  // the product overflows to infinity
  EXPECT_EQ(sngToF32(1e300), std::numeric_limits<float>::infinity());
  EXPECT_EQ(sngToF32(-1e300), -std::numeric_limits<float>::infinity());
  EXPECT_TRUE(std::isnan(sngToF32(kNaN)));
  EXPECT_EQ(sngToF32(-2.5), -2.5f);
}

// Three turnpoints, one of each zone type, and the bytes they must give.
std::vector<SngTurnpoint> threeTurnpoints() {
  std::vector<SngTurnpoint> task(3);
  task[0].lat = 1.0, task[0].lon = -2.5, task[0].elev = -3.7, task[0].oz = 0, task[0].radius = 1234.5;
  task[0].angle1 = 33, task[0].angle2 = 44, task[0].name = "A";  // angles not sent for a cylinder
  task[1].lat = 0.5, task[1].lon = 2.0, task[1].elev = 500.7, task[1].oz = 2, task[1].radius = 1000;
  task[1].angle1 = 270.9, task[1].angle2 = 55, task[1].name = "";
  task[2].lat = 10.0, task[2].lon = 100.0, task[2].elev = 40000, task[2].oz = 1, task[2].radius = 5;
  task[2].angle1 = 45, task[2].angle2 = -10, task[2].name = "BC";
  return task;
}

const Bytes kThreeTurnpointBlock = {
    0x03,
    // lat 1.0, lon -2.5, elev -3, oz 0, radius 123, "A"
    0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0, 0xFD, 0xFF, 0x00, 0x7B, 0x00, 0x41, 0x00,
    // lat 0.5, lon 2.0, elev 500, oz 2, radius 100, angle1 270, ""
    0x00, 0x00, 0x00, 0x3F, 0x00, 0x00, 0x00, 0x40, 0xF4, 0x01, 0x02, 0x64, 0x00, 0x0E, 0x01, 0x00,
    // lat 10.0, lon 100.0, elev 40000 (0x9C40), oz 1, radius 0, angle1 45, angle2 0xFFF6, "BC"
    0x00, 0x00, 0x20, 0x41, 0x00, 0x00, 0xC8, 0x42, 0x40, 0x9C, 0x01, 0x00, 0x00, 0x2D, 0x00, 0xF6, 0xFF,
    0x42, 0x43, 0x00};

TEST(PacketTask, WritesAnglesOnlyForTheZoneTypesThatUseThem) {
  SngPacket p;
  p.putTask(threeTurnpoints());
  EXPECT_EQ(p.bytes, kThreeTurnpointBlock);

  SngPacket empty;
  empty.putTask({});
  EXPECT_EQ(empty.bytes, Bytes{0x00});
}

TEST(PacketTask, ReadsTurnpointsWithDefaultsForWhatTheWireLacks) {
  SngPacket p(kThreeTurnpointBlock);
  std::vector<SngTurnpoint> task(7);  // replaced, not appended to
  ASSERT_TRUE(p.getTask(task));
  EXPECT_EQ(p.remaining(), 0u);
  ASSERT_EQ(task.size(), 3u);

  EXPECT_EQ(task[0].lat, 1.0);
  EXPECT_EQ(task[0].lon, -2.5);
  EXPECT_EQ(task[0].elev, -3.0);
  EXPECT_EQ(task[0].radius, 1230.0);  // 1234.5 m went out as 123
  EXPECT_EQ(task[0].angle1, 0.0);
  EXPECT_EQ(task[0].angle2, 180.0);
  EXPECT_EQ(task[0].name, "A");

  EXPECT_EQ(task[1].oz, 2);
  EXPECT_EQ(task[1].angle1, 270.0);
  EXPECT_EQ(task[1].angle2, 180.0);
  EXPECT_EQ(task[1].radius, 1000.0);
  EXPECT_EQ(task[1].name, "");

  EXPECT_EQ(task[2].oz, 1);
  EXPECT_EQ(task[2].elev, -25536.0);  // 40000 does not fit a signed 16-bit field
  EXPECT_EQ(task[2].angle1, 45.0);
  EXPECT_EQ(task[2].angle2, 65526.0);  // -10 went out as its low 16 bits, read back unsigned
  EXPECT_EQ(task[2].radius, 0.0);
  EXPECT_EQ(task[2].name, "BC");

  for (const SngTurnpoint& tp : task) {
    EXPECT_EQ(tp.max_alt, 99999.0);
    EXPECT_EQ(tp.id, -1);
    EXPECT_TRUE(tp.actions.empty());
  }
}

TEST(PacketTask, EveryTruncatedBlockFailsCleanly) {
  for (size_t n = 0; n < kThreeTurnpointBlock.size(); ++n) {
    SngPacket p(kThreeTurnpointBlock.data(), n);
    std::vector<SngTurnpoint> task(2);
    EXPECT_FALSE(p.getTask(task)) << "prefix of " << n << " bytes";
    EXPECT_TRUE(task.empty());
    EXPECT_EQ(p.cursor, 0u);
  }
}

TEST(PacketTask, CountKeepsItsLowEightBitsAndThatManyTurnpointsFollow) {
  std::vector<SngTurnpoint> task(257);
  SngPacket p;
  p.putTask(std::vector<SngTurnpoint>(task.begin(), task.begin() + 256));
  EXPECT_EQ(p.bytes, Bytes{0x00});

  SngPacket q;
  q.putTask(task);  // count 1, one cylinder turnpoint of 4+4+2+1+2+1 bytes
  ASSERT_EQ(q.bytes.size(), 15u);
  EXPECT_EQ(q.bytes[0], 1);
}

// Regression: a zone type of 257 went out as the byte 1 without the two angles that byte announces.
TEST(PacketTask, AZoneTypeBeyondOneByteStillGivesAReadableBlock) {
  std::vector<SngTurnpoint> task(2);
  task[0].oz = 257;  // the byte 1: a sector, both angles
  task[0].angle1 = 10, task[0].angle2 = 20;
  task[1].name = "Z";
  SngPacket p;
  p.putTask(task);
  std::vector<SngTurnpoint> back;
  ASSERT_TRUE(p.getTask(back));
  EXPECT_EQ(p.remaining(), 0u);
  EXPECT_EQ(back[0].oz, 1);
  EXPECT_EQ(back[0].angle2, 20.0);
  EXPECT_EQ(back[1].name, "Z");
}

TEST(PacketTask, OutOfRangeCoordinatesBecomeInfinityRatherThanUndefined) {
  std::vector<SngTurnpoint> task(1);
  task[0].lat = 1e300;
  task[0].lon = kNaN;
  task[0].elev = kInf;
  task[0].radius = -kInf;
  SngPacket p;
  p.putTask(task);
  const Bytes head = {0x01, 0x00, 0x00, 0x80, 0x7F};
  ASSERT_GE(p.bytes.size(), head.size());
  EXPECT_TRUE(std::equal(head.begin(), head.end(), p.bytes.begin()));
  std::vector<SngTurnpoint> back;
  ASSERT_TRUE(p.getTask(back));
  EXPECT_TRUE(std::isnan(back[0].lon));
  EXPECT_EQ(back[0].elev, 0.0);
  EXPECT_EQ(back[0].radius, 0.0);
}

TEST(NetConstants, ClientOpcodesAreExactlyThoseTheServerHandles) {
  const std::vector<int> handled = {1, 3, 4, 7, 11, 14, 16, 17, 18, 19, 21};
  for (int op = 0; op < 256; ++op) {
    const bool expected = std::find(handled.begin(), handled.end(), op) != handled.end();
    EXPECT_EQ(SngNet::isClientOpcode(static_cast<uint8_t>(op)), expected) << op;
  }
}

}  // namespace
