// The 59-byte aircraft-state body: hand-written bytes both ways, round trips, values the
// fields cannot hold, and bodies that end early.
#include "unit/wire/WireTest.h"

namespace {

using namespace ::testing;
constexpr double kPi = 3.141592653589793;

Bytes encoded(const SngAircraftState& state) {
  SngPacket p;
  encodeAircraftState(p, state);
  return p.bytes;
}

// Reads a whole body; one that fails to read or reads short fails the test.
SngAircraftState decoded(const Bytes& body) {
  SngPacket p(body);
  SngAircraftState s;
  EXPECT_TRUE(decodeAircraftState(p, s) && p.cursor == 59u);
  return s;
}

// Every field in the order of the body, the flags as 0 and 1: one comparison names each field that is off.
std::vector<double> fields(const SngAircraftState& s) {
  std::vector<double> out{s.time, s.lat, s.lon, s.alt, s.roll, s.pitch, s.heading};
  for (const auto& v : {s.vel, s.vec2, s.vec3, s.vec4}) out.insert(out.end(), v.begin(), v.end());
  out.insert(out.end(), s.controls.begin(), s.controls.end());
  out.insert(out.end(), s.flags.begin(), s.flags.end());
  return out;
}

// time 100.0, lat 0.5, lon -2.5, alt 1.0; roll -32767, pitch 16384, heading 65535 steps;
// vel: scale 400; 32767, -32767, 0. vec2: scale 1000; 16384, 0, 1. vec3: scale 0.
// vec4: scale 65535; 32767, -32768, 0. Control nibbles from 0 up 0 8 F 0 F 5 1, an unused F;
// flag bits 1, 3, 5 and the unused 6.
const Bytes kBody =
    hex("0000C842 0000003F 000020C0 0000803F 0180 0040 FFFF 9001 FF7F 0180 0000 E803 0040 0000 0100"
        "0000 FF7F FF7F FF7F FFFF FF7F 0080 0000 800F5FF1 6A");

TEST(AircraftStateDecode, ScalesEveryFieldAndACutBodyLeavesStateAndCursorAlone) {
  // Vector ranges: 400/200 = 2, 1000/500 = 2, 0, 65535/500 = 131.07. Flags in the order of bits 0 1 3 4 5 2.
  EXPECT_THAT(fields(decoded(kBody)), Pointwise(DoubleNear(1e-9), std::vector<double>{
      100.0, 0.5, -2.5, 1.0, -kPi, kPi * 16384 / 32767, 2 * kPi, 2.0, -2.0, 0.0, 2.0 * 16384 / 32767, 0.0,
      2.0 / 32767, 0.0, 0.0, 0.0, 131.07, -131.07 * 32768 / 32767, 0.0,
      -8.0f / 7, 0.0f, 1.0f, 0.0f, 1.0f, 1.0f / 3, -1.0f, 0, 1, 1, 0, 1, 0}));
  for (size_t n = 0; n < kBody.size(); ++n) {
    SngPacket cut = behindOpcode(kBody, n);
    SngAircraftState t;  // a cut body must not touch even a state that was never set
    EXPECT_EQ(std::pair(decodeAircraftState(cut, t), cut.cursor), std::pair(false, 1u)) << "cut at " << n;
    EXPECT_EQ(fields(t), fields({})) << "state changed by a cut at " << n;
  }
}

// Rounded to the nearest step: the roll of 0.35 rad is 3650.52 steps, -0.75 m/s in vel (scale 600 for
// 3 m/s) is -8191.75 steps, 0.65 is 9.75 fifteenths. The heading of -pi/2 wraps to 49151.25 steps. An
// all-zero vector takes the smallest scale; vec3's is 250, vec4's 351 (350.5 rounded up). Nibbles
// 15 0 11 10 5 0 1; flag bits 0, 4, 2.
TEST(AircraftStateEncode, WritesHandCheckedBytesThatReadBackToThemselves) {
  const SngAircraftState in{.time = 0.5, .lat = 1.0, .lon = -2.5, .alt = 100.0, .roll = 0.35, .pitch = -kPi,
                            .heading = -kPi / 2, .vel = {3.0, -0.75, 0.0}, .vec3 = {0.5, 0.0, -0.5},
                            .vec4 = {-0.701, 0.0, 0.1},
                            .controls = {1.0f, -8.0f / 7, 3.0f / 7, 0.65f, 1.0f / 3, 0.0f, -1.0f},
                            .flags = {true, false, false, true, false, true}};
  const Bytes bytes = encoded(in);
  EXPECT_EQ(bytes, hex("0000003F 0000803F 000020C0 0000C842 430E 0180 FFBF 5802 FF7F 00E0 0000"
                       "0100 0000 0000 0000 FA00 FF7F 0000 0180 5F01 3080 0000 3C12 0FAB0501 15"));
  // What reads back lies within half a step of each value sent, so it writes the same bytes again.
  EXPECT_EQ(encoded(decoded(bytes)), bytes);
}

// NaN goes out as 0 (the time as the float NaN), values beyond a field are clamped, an infinite vector
// component takes the widest scale and full deflection; 1.0 is then 100 steps.
TEST(AircraftStateEncode, ClampsSaturatesAndZeroesWhatTheFieldsCannotHold) {
  const SngAircraftState in{.time = NAN, .lat = 1e300, .roll = NAN, .pitch = -kInf, .heading = kInf,
                            .vel = {NAN, kInf, 1.0}, .controls = {5.0f, -5.0f, NAN, 2.0f, -1.0f, NAN, 0.0f}};
  EXPECT_THAT(fields(decoded(encoded(in))), Pointwise(NanSensitiveDoubleNear(1e-9), std::vector<double>{
      NAN, kInf, 0, 0, 0, -kPi, 0, 0, 65535.0 / 200, 100 * 65535.0 / 200 / 32767, 0, 0, 0, 0, 0, 0, 0, 0, 0,
      1.0f, -8.0f / 7, 0, 1.0f, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

}  // namespace
