// The 59-byte aircraft-state body: decoding of hand-written bytes, early ends, and the encoder that
// the test client uses.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "net/SngAircraftStateCodec.h"
#include "net/SngNet.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr double kPi = 3.141592653589793;

const Bytes kBody = {
    0x00, 0x00, 0xC8, 0x42,                          // time 100.0
    0x00, 0x00, 0x00, 0x3F,                          // lat 0.5
    0x00, 0x00, 0x20, 0xC0,                          // lon -2.5
    0x00, 0x00, 0x80, 0x3F,                          // alt 1.0
    0x01, 0x80,                                      // roll -32767
    0x00, 0x40,                                      // pitch 16384
    0xFF, 0xFF,                                      // heading 65535
    0x90, 0x01, 0xFF, 0x7F, 0x01, 0x80, 0x00, 0x00,  // vel: scale 400; 32767, -32767, 0
    0xE8, 0x03, 0x00, 0x40, 0x00, 0x00, 0x01, 0x00,  // vec2: scale 1000; 16384, 0, 1
    0x00, 0x00, 0xFF, 0x7F, 0xFF, 0x7F, 0xFF, 0x7F,  // vec3: scale 0
    0xFF, 0xFF, 0xFF, 0x7F, 0x00, 0x80, 0x00, 0x00,  // vec4: scale 65535; 32767, -32768, 0
    0x80, 0x0F, 0x5F, 0xF1,                          // nibbles from 0 up: 0 8 F 0 F 5 1, and an unused F
    0x54,                                            // bits 2, 4 and the unused 6
};

TEST(AircraftStateDecode, TheBodyIsFiftyNineBytes) {
  EXPECT_EQ(kBody.size(), SngNet::AIRCRAFT_STATE_BODY_SIZE);
}

TEST(AircraftStateDecode, ScalesEveryFieldFromHandWrittenBytes) {
  SngPacket p(kBody);
  SngAircraftState s;
  ASSERT_TRUE(decodeAircraftState(p, s));
  EXPECT_EQ(p.cursor, 59u);
  EXPECT_EQ(s.time, 100.0);
  EXPECT_EQ(s.lat, 0.5);
  EXPECT_EQ(s.lon, -2.5);
  EXPECT_EQ(s.alt, 1.0);
  EXPECT_DOUBLE_EQ(s.roll, -kPi);
  EXPECT_DOUBLE_EQ(s.pitch, kPi * 16384 / 32767);
  EXPECT_DOUBLE_EQ(s.heading, 2 * kPi);

  // Component ranges: 400/200 = 2, 1000/500 = 2, 0, 65535/500 = 131.07.
  EXPECT_DOUBLE_EQ(s.vel[0], 2.0);
  EXPECT_DOUBLE_EQ(s.vel[1], -2.0);
  EXPECT_EQ(s.vel[2], 0.0);
  EXPECT_DOUBLE_EQ(s.vec2[0], 2.0 * 16384 / 32767);
  EXPECT_EQ(s.vec2[1], 0.0);
  EXPECT_DOUBLE_EQ(s.vec2[2], 2.0 / 32767);
  for (double c : s.vec3) EXPECT_EQ(c, 0.0);
  EXPECT_DOUBLE_EQ(s.vec4[0], 131.07);
  EXPECT_DOUBLE_EQ(s.vec4[1], -131.07 * 32768 / 32767);
  EXPECT_EQ(s.vec4[2], 0.0);

  const float expectedControls[7] = {-8.0f / 7, 0.0f, 1.0f, 0.0f, 1.0f, 1.0f / 3, -1.0f};
  for (size_t k = 0; k < 7; ++k) EXPECT_FLOAT_EQ(s.controls[k], expectedControls[k]) << "control " << k;

  // Order bit 0, 1, 3, 4, 5, 2; bit 6 is ignored.
  EXPECT_EQ(s.flags, (std::array<bool, 6>{false, false, false, true, false, true}));
  EXPECT_TRUE(s.launchInProgress());
  EXPECT_TRUE(s.trackFlagBit2());
}

TEST(AircraftStateDecode, FlagBitsLandInTheirOwnSlots) {
  Bytes body(kBody.begin(), kBody.end() - 1);
  body.push_back(0x2B);  // bits 0, 1, 3, 5
  SngPacket p(body);
  SngAircraftState s;
  ASSERT_TRUE(decodeAircraftState(p, s));
  EXPECT_EQ(s.flags, (std::array<bool, 6>{true, true, true, false, true, false}));
  EXPECT_FALSE(s.launchInProgress());
  EXPECT_FALSE(s.trackFlagBit2());
}

TEST(AircraftStateDecode, ABodyThatEndsEarlyLeavesStateAndCursorAlone) {
  Bytes message = {SngNet::AIRCRAFT_STATE, 3};
  message.insert(message.end(), kBody.begin(), kBody.end());
  for (size_t n = 2; n < message.size(); ++n) {
    SngPacket p(message.data(), n);
    p.cursor = 2;
    SngAircraftState s;
    s.time = 12345.0;
    s.lat = 47.0;
    EXPECT_FALSE(decodeAircraftState(p, s)) << "message of " << n << " bytes";
    EXPECT_EQ(p.cursor, 2u);
    EXPECT_EQ(s.time, 12345.0);
    EXPECT_EQ(s.lat, 47.0);
  }
  SngPacket whole(message);
  whole.cursor = 2;
  SngAircraftState s;
  EXPECT_TRUE(decodeAircraftState(whole, s));
  EXPECT_EQ(s.time, 100.0);
}

SngAircraftState sampleState() {
  SngAircraftState s;
  s.time = 0.5;
  s.lat = 1.0;
  s.lon = -2.5;
  s.alt = 100.0;
  s.roll = -kPi;
  s.pitch = 0.0;
  s.heading = 2 * kPi / 5;
  s.vel = {3.0, -0.75, 0.0};
  s.vec2 = {0.0, 0.0, 0.0};
  s.vec3 = {0.5, 0.0, -0.5};
  s.vec4 = {1000.0, 0.0, 0.0};  // beyond the widest scale: saturates
  s.controls = {1.0f, -8.0f / 7, 3.0f / 7, 1.0f, 1.0f / 3, 0.0f, -1.0f};
  s.flags = {true, false, false, true, false, true};
  return s;
}

TEST(AircraftStateEncode, ChoosesScaleWordsThatCoverEachVector) {
  SngPacket p;
  encodeAircraftState(p, sampleState());
  const Bytes expected = {
      0x00, 0x00, 0x00, 0x3F, 0x00, 0x00, 0x80, 0x3F, 0x00,
      0x00, 0x20, 0xC0, 0x00, 0x00, 0xC8, 0x42, 0x01, 0x80,  // -pi
      0x00, 0x00, 0x33, 0x33,                                // 65535 / 5
      0x58, 0x02, 0xFF, 0x7F, 0x00, 0xE0, 0x00, 0x00,        // scale 600 (3 m/s); -0.75 is -8191.75 steps
      0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,        // all zero: the smallest scale
      0xFA, 0x00, 0xFF, 0x7F, 0x00, 0x00, 0x01, 0x80,        // scale 250 (0.5)
      0xFF, 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x00, 0x00,        // widest scale, full deflection
      0x0F, 0xFB, 0x05, 0x01,                                // nibbles 15 0 11 15 5 0 1 0
      0x15,                                                  // bits 0, 4, 2
  };
  EXPECT_EQ(p.bytes, expected);
}

TEST(AircraftStateEncode, RoundTripsWithinHalfAStep) {
  SngAircraftState in;
  in.time = 43210.25;
  in.lat = 46.5;
  in.lon = 7.25;
  in.alt = 1834.0;
  in.roll = 0.3;
  in.pitch = -1.2;
  in.heading = -kPi / 2;  // wraps to 3 pi / 2
  in.vel = {-41.3, 12.0, 0.004};
  in.vec2 = {0.01, -0.02, 0.03};
  in.vec3 = {5.0, 5.0, -5.0};
  in.vec4 = {-0.7, 0.0, 0.1};
  in.controls = {2.0f / 7, -3.0f / 7, 1.0f, 0.2f, 0.4f, 0.6f, 0.0f};
  in.flags = {false, true, true, false, true, false};
  SngPacket p;
  encodeAircraftState(p, in);
  ASSERT_EQ(p.bytes.size(), 59u);
  SngAircraftState out;
  ASSERT_TRUE(decodeAircraftState(p, out));

  EXPECT_EQ(out.time, 43210.25);
  EXPECT_EQ(out.alt, 1834.0);
  EXPECT_NEAR(out.roll, 0.3, kPi / 32767 / 2);
  EXPECT_NEAR(out.pitch, -1.2, kPi / 32767 / 2);
  EXPECT_NEAR(out.heading, 3 * kPi / 2, kPi / 65535);
  // A vector's step is its range / 32767, the range being at most the largest component + 1/divisor.
  auto expectVector = [](const std::array<double, 3>& a, const std::array<double, 3>& b, double divisor) {
    const double largest = std::max({std::fabs(a[0]), std::fabs(a[1]), std::fabs(a[2])});
    const double step = (largest + 1.0 / divisor) / 32767;
    for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(b[i], a[i], step / 2 + 1e-12);
  };
  expectVector(in.vel, out.vel, 200.0);
  expectVector(in.vec2, out.vec2, 500.0);
  expectVector(in.vec3, out.vec3, 500.0);
  expectVector(in.vec4, out.vec4, 500.0);
  EXPECT_FLOAT_EQ(out.controls[0], 2.0f / 7);
  EXPECT_FLOAT_EQ(out.controls[1], -3.0f / 7);
  EXPECT_FLOAT_EQ(out.controls[2], 1.0f);
  EXPECT_NEAR(out.controls[3], 0.2f, 1.0 / 30);  // nearest fifteenth
  EXPECT_NEAR(out.controls[5], 0.6f, 1.0 / 30);
  EXPECT_EQ(out.flags, in.flags);
}

TEST(AircraftStateEncode, NonFiniteValuesEncodeToDefinedFields) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInf = std::numeric_limits<double>::infinity();
  SngAircraftState in;
  in.time = kNaN;
  in.lat = 1e300;
  in.roll = kNaN;
  in.pitch = -kInf;
  in.heading = kInf;
  in.vel = {kNaN, kInf, 1.0};
  in.controls.fill(std::numeric_limits<float>::quiet_NaN());
  SngPacket p;
  encodeAircraftState(p, in);
  SngAircraftState out;
  ASSERT_TRUE(decodeAircraftState(p, out));
  EXPECT_TRUE(std::isnan(out.time));
  EXPECT_TRUE(std::isinf(out.lat));
  EXPECT_EQ(out.roll, 0.0);
  EXPECT_DOUBLE_EQ(out.pitch, -kPi);
  EXPECT_EQ(out.heading, 0.0);
  EXPECT_EQ(out.vel[0], 0.0);
  EXPECT_DOUBLE_EQ(out.vel[1], 65535.0 / 200);  // widest scale, full deflection
  EXPECT_NEAR(out.vel[2], 1.0, 65535.0 / 200 / 32767);
  for (size_t k = 0; k < 7; ++k) EXPECT_EQ(out.controls[k], 0.0f) << "control " << k;
}

}  // namespace
