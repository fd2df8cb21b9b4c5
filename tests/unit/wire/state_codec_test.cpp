// The 59-byte aircraft-state body: hand-written bytes both ways, round trips within a step, values the
// fields cannot hold, and bodies that end early.
#include "unit/wire/WireTest.h"

namespace {

using namespace ::testing;
constexpr double kPi = 3.141592653589793;

// time 100.0, lat 0.5, lon -2.5, alt 1.0; roll -32767, pitch 16384, heading 65535 steps;
// vel: scale 400; 32767, -32767, 0. vec2: scale 1000; 16384, 0, 1. vec3: scale 0.
// vec4: scale 65535; 32767, -32768, 0. Control nibbles from 0 up 0 8 F 0 F 5 1, an unused F;
// flag bits 1, 3, 5 and the unused 6.
const Bytes kBody =
    hex("0000C842 0000003F 000020C0 0000803F 0180 0040 FFFF 9001 FF7F 0180 0000 E803 0040 0000 0100"
        "0000 FF7F FF7F FF7F FFFF FF7F 0080 0000 800F5FF1 6A");

TEST(AircraftStateDecode, ScalesEveryFieldAndACutBodyLeavesStateAndCursorAlone) {
  SngPacket p(kBody);
  SngAircraftState s;
  ASSERT_TRUE(decodeAircraftState(p, s));
  EXPECT_EQ(p.cursor, 59u);
  EXPECT_EQ(std::tie(s.time, s.lat, s.lon, s.alt), std::make_tuple(100.0, 0.5, -2.5, 1.0));
  EXPECT_THAT((std::array{s.roll, s.pitch, s.heading}),
              ElementsAre(DoubleEq(-kPi), DoubleEq(kPi * 16384 / 32767), DoubleEq(2 * kPi)));
  // Component ranges: 400/200 = 2, 1000/500 = 2, 0, 65535/500 = 131.07.
  EXPECT_THAT(s.vel, ElementsAre(DoubleEq(2.0), DoubleEq(-2.0), 0.0));
  EXPECT_THAT(s.vec2, ElementsAre(DoubleEq(2.0 * 16384 / 32767), 0.0, DoubleEq(2.0 / 32767)));
  EXPECT_THAT(s.vec3, ElementsAre(0.0, 0.0, 0.0));
  EXPECT_THAT(s.vec4, ElementsAre(DoubleEq(131.07), DoubleEq(-131.07 * 32768 / 32767), 0.0));
  EXPECT_THAT(s.controls,
              Pointwise(FloatEq(), std::array{-8.0f / 7, 0.0f, 1.0f, 0.0f, 1.0f, 1.0f / 3, -1.0f}));
  EXPECT_EQ(s.flags, (std::array{false, true, true, false, true, false}));  // bits 0 1 3 4 5 2
  SngPacket fresh;  // a cut body must not touch even a state that was never set
  encodeAircraftState(fresh, SngAircraftState{});
  for (size_t n = 0; n < kBody.size(); ++n) {
    SngPacket cut = behindOpcode(kBody, n), after;
    SngAircraftState t;
    EXPECT_FALSE(decodeAircraftState(cut, t)) << "cut at " << n;
    EXPECT_EQ(cut.cursor, 1u);
    encodeAircraftState(after, t);
    EXPECT_EQ(after.bytes, fresh.bytes) << "state changed by a cut at " << n;
  }
}

// Rounded to the nearest step: the roll of 0.35 rad is 3650.52 steps, -0.75 m/s in vel (scale 600 for
// 3 m/s) is -8191.75 steps, 0.65 is 9.75 fifteenths. The heading of -pi/2 wraps to 49151.25 steps. An
// all-zero vector takes the smallest scale; vec3's is 250, vec4's 351 (350.5 rounded up). Nibbles
// 15 0 11 10 5 0 1; flag bits 0, 4, 2.
TEST(AircraftStateEncode, WritesHandCheckedBytesThatReadBackWithinAStep) {
  SngAircraftState in;
  std::tie(in.time, in.lat, in.lon, in.alt, in.roll, in.pitch, in.heading) =
      std::make_tuple(0.5, 1.0, -2.5, 100.0, 0.35, -kPi, -kPi / 2);
  in.vel = {3.0, -0.75, 0.0};
  in.vec3 = {0.5, 0.0, -0.5};
  in.vec4 = {-0.701, 0.0, 0.1};
  in.controls = {1.0f, -8.0f / 7, 3.0f / 7, 0.65f, 1.0f / 3, 0.0f, -1.0f};
  in.flags = {true, false, false, true, false, true};
  SngPacket p;
  encodeAircraftState(p, in);
  EXPECT_EQ(p.bytes, hex("0000003F 0000803F 000020C0 0000C842 430E 0180 FFBF 5802 FF7F 00E0 0000"
                         "0100 0000 0000 0000 FA00 FF7F 0000 0180 5F01 3080 0000 3C12 0FAB0501 15"));
  SngAircraftState out;
  ASSERT_TRUE(decodeAircraftState(p, out));
  EXPECT_EQ(std::tie(out.time, out.lat, out.lon, out.alt), std::tie(in.time, in.lat, in.lon, in.alt));
  EXPECT_THAT((std::array{out.roll, out.pitch}),
              Pointwise(DoubleNear(kPi / 32767 / 2), std::array{in.roll, in.pitch}));
  EXPECT_NEAR(out.heading, 3 * kPi / 2, kPi / 65535);
  // A vector's step is its range / 32767, the range being at most its largest component + 1/divisor.
  EXPECT_THAT(out.vel, Pointwise(DoubleNear((3.0 + 1.0 / 200) / 32767 / 2), in.vel));
  EXPECT_THAT(out.vec2, ElementsAre(0.0, 0.0, 0.0));
  EXPECT_THAT(out.vec3, Pointwise(DoubleNear((0.5 + 1.0 / 500) / 32767 / 2), in.vec3));
  EXPECT_THAT(out.vec4, Pointwise(DoubleNear((0.701 + 1.0 / 500) / 32767 / 2), in.vec4));
  EXPECT_THAT(out.controls, Pointwise(FloatNear(1.0f / 30), in.controls));  // half a fifteenth
  EXPECT_EQ(out.flags, in.flags);
}

TEST(AircraftStateEncode, ClampsSaturatesAndZeroesWhatTheFieldsCannotHold) {
  SngAircraftState in;
  std::tie(in.time, in.lat, in.roll, in.pitch, in.heading) = std::make_tuple(NAN, 1e300, NAN, -kInf, kInf);
  in.vel = {NAN, kInf, 1.0};
  in.controls = {5.0f, -5.0f, NAN, 2.0f, -1.0f, NAN, 0.0f};
  SngPacket p;
  encodeAircraftState(p, in);
  SngAircraftState out;
  ASSERT_TRUE(decodeAircraftState(p, out));
  EXPECT_TRUE(std::isnan(out.time));
  EXPECT_EQ(std::tie(out.lat, out.roll, out.heading), std::make_tuple(kInf, 0.0, 0.0));
  EXPECT_DOUBLE_EQ(out.pitch, -kPi);
  // An infinite component takes the widest scale and full deflection; 1.0 is then 100 steps.
  EXPECT_THAT(out.vel, ElementsAre(0.0, DoubleEq(65535.0 / 200), DoubleEq(100 * 65535.0 / 200 / 32767)));
  EXPECT_THAT(out.controls, Pointwise(FloatEq(), std::array{1.0f, -8.0f / 7, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f}));
}

}  // namespace
