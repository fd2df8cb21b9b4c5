// The player record against a stand-in server: the on-ground test, the track cadence, the
// competition hold, and the thermal queue.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "player/SngSrvPlayer.h"

// Turnpoints are written as designated initialisers; the fields they leave out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

constexpr double kMetresPerDegree = 3437.746770784939 * 1852.0 * M_PI / 180.0;  // along a meridian

class FakeServer : public SngPlayerHost {
 public:
  float simTime() const override { return now; }
  bool competitionMode() const override { return competition; }
  int32_t startGateOpenTime() const override { return gate; }
  bool findTerrainTriangle(double, double, GgTriangle& t) override {
    t.height = groundHeight;
    if (onLookup) onLookup();
    return true;
  }
  bool isSeated(const SngSrvPlayer&) const override { return seated; }
  void sendThermal(const SngPeer&, const SngSrvThermal& thermal) override { sent.push_back(&thermal); }
  bool traceAllowed(const SngPeer&) override { return true; }

  float now = 43200.0f;
  bool competition = false;
  int32_t gate = 0;
  double groundHeight = 500.0;
  bool seated = true;
  std::function<void()> onLookup;
  std::vector<const SngSrvThermal*> sent;
};

SngAircraftState at(double time, double lat, double lon, double alt) {
  return {.time = time, .lat = lat, .lon = lon, .alt = alt};
}

class Player : public ::testing::Test {
 protected:
  FakeServer server;
  SngSrvPlayer player{&server, SngPeer(), 3, 0xABC};
};

TEST_F(Player, ARepeatedTimeKeepsTheLastSpeedCourseAndGroundTest) {
  player.updateState(at(100.0, 46.0, 7.0, 1000.0));
  player.updateState(at(120.0, 46.0 + 1000.0 / kMetresPerDegree, 7.0, 1000.0));
  ASSERT_NEAR(player.ground_speed, 50.0, 0.01);
  // Moved, but no time passed: no speed can be measured, and the slow-and-low test must not fire.
  player.updateState(at(120.0, 46.0 + 1000.0 / kMetresPerDegree, 7.0, server.groundHeight));
  EXPECT_NEAR(player.ground_speed, 50.0, 0.01);
  EXPECT_NEAR(std::fmod(player.course, 360.0), 0.0, 1e-3);
  EXPECT_FALSE(player.on_ground);
}

TEST_F(Player, AFullTrackStopsRecordingAndScoring) {
  player.task.turnpoints = {SngTurnpoint{.lat = 46.0, .lon = 7.0}, SngTurnpoint{.lat = 47.0, .lon = 7.0}};
  // A client whose clock runs far ahead: one point per state.
  double t = 0.0;
  for (size_t i = 0; i < SngSrvPlayer::kMaxTrackPoints; ++i, t += 2.0) player.updateState(at(t, 46.0, 7.0, 1000.0));
  ASSERT_EQ(player.track.size(), SngSrvPlayer::kMaxTrackPoints);
  EXPECT_GE(SngSrvPlayer::kMaxTrackPoints * SngSrvPlayer::kTrackIntervalSeconds, 14 * 3600.0f);
  const double distance = player.task.distance;
  player.updateState(at(t + 2.0, 46.5, 7.0, 1000.0));  // halfway: would score 55 km
  EXPECT_EQ(player.track.size(), SngSrvPlayer::kMaxTrackPoints);
  EXPECT_EQ(player.task.distance, distance);
  EXPECT_TRUE(player.track_full);
}

TEST_F(Player, GroundSpeedAndCourseComeFromTheLastTwoStates) {
  ASSERT_TRUE(player.updateState(at(43200.0, 46.0, 7.0, 1000.0)));
  EXPECT_EQ(player.ground_speed, 0.0);  // the first state has nothing to compare with
  EXPECT_EQ(player.track.size(), 1u);
  // 1000 m due north in 20 s: 50 m/s, course 360 - 0 measured the flight model's way, i.e. 360.
  player.updateState(at(43220.0, 46.0 + 1000.0 / kMetresPerDegree, 7.0, 1000.0));
  EXPECT_NEAR(player.ground_speed, 50.0, 0.01);
  EXPECT_NEAR(std::fmod(player.course, 360.0), 0.0, 1e-3);  // acos near 1 is coarse
  // Then due east on the same parallel: course 90.
  const double eastDeg = 1000.0 / (kMetresPerDegree * std::cos(46.0 * M_PI / 180.0));
  player.updateState(at(43240.0, 46.0 + 1000.0 / kMetresPerDegree, 7.0 + eastDeg, 1000.0));
  EXPECT_NEAR(player.course, 90.0, 0.01);
  EXPECT_NEAR(player.ground_speed, 50.0, 0.05);
}

TEST_F(Player, OnGroundNeedsBothSlowAndLow) {
  struct Case {
    double kmh, heightAboveGround;
    bool onGround;
  } cases[] = {{2.0, 1.9, true}, {4.0, 1.9, false}, {1.0, 2.0, false}, {0.0, -3.0, true}};
  for (const Case& c : cases) {
    FakeServer host;
    SngSrvPlayer p(&host, SngPeer(), 0, 0);
    const double alt = host.groundHeight + c.heightAboveGround;
    p.updateState(at(100.0, 46.0, 7.0, alt));
    const double metres = c.kmh / 3.6 * 10.0;  // ten seconds at that speed
    p.updateState(at(110.0, 46.0 + metres / kMetresPerDegree, 7.0, alt));
    EXPECT_EQ(p.on_ground, c.onGround) << c.kmh << " km/h at " << c.heightAboveGround << " m";
    EXPECT_EQ(p.track.back().flags & SNG_TRACK_ON_GROUND, c.onGround ? SNG_TRACK_ON_GROUND : 0);
  }
}

TEST_F(Player, TrackPointsAreAtLeastTwoSecondsApartAndCarryFlagBit2) {
  player.updateState(at(100.0, 46.0, 7.0, 1000.0));
  player.updateState(at(101.5, 46.0, 7.0, 1000.0));
  EXPECT_EQ(player.track.size(), 1u);
  SngAircraftState s = at(102.0, 46.0, 7.0, 1000.0);
  s.flags[5] = true;  // the message's bit 2
  player.updateState(s);
  ASSERT_EQ(player.track.size(), 2u);
  EXPECT_EQ(player.track[1].flags, SNG_TRACK_STATE_BIT2);
  s = at(104.7, 46.0, 7.0, 1000.0);
  s.flags[3] = true;  // bit 4: launch in progress
  player.updateState(s);
  EXPECT_TRUE(player.launching);
  EXPECT_EQ(player.track.back().time, 104.0f);  // whole seconds
}

TEST_F(Player, CompetitionModeHoldsScoringUntilTheGateOpens) {
  player.task.turnpoints = {SngTurnpoint{.lat = 46.0, .lon = 7.0, .radius = 1000.0},
                            SngTurnpoint{.lat = 46.2, .lon = 7.0}};
  server.competition = true;
  server.gate = 43500;
  server.now = 43500.0f;  // not yet past the gate
  player.updateState(at(43500.0, 46.0, 7.0, 1000.0));
  EXPECT_EQ(player.task.curr_tp, 0);
  server.now = 43501.0f;
  player.updateState(at(43502.0, 46.0, 7.0, 1000.0));
  EXPECT_EQ(player.task.curr_tp, 1);  // armed in the start zone
  EXPECT_TRUE(player.task.in_start_zone);
}

BtkRef<SngSrvThermal> thermal(float lat, float lon, float birth, float life) {
  return btkMakeRef<SngSrvThermal>(lat, lon, 1000.0f, 1500.0f, 300.0f, 3.0f, 0.5f, life, birth);
}

TEST_F(Player, ThermalsQueueByDistanceAndEqualKeysKeepTheirOrder) {
  player.updateState(at(100.0, 46.0, 7.0, 1000.0));
  auto far = thermal(46.2f, 7.0f, 43000.0f, 3600.0f);
  auto near = thermal(46.01f, 7.0f, 43000.0f, 3600.0f);
  auto nearToo = thermal(45.99f, 7.0f, 43000.0f, 3600.0f);  // the same squared distance
  for (const auto& t : {far, near, nearToo}) player.addThermal(t);
  std::vector<SngSrvThermal*> queued;
  for (const auto& t : player.pending_thermals) queued.push_back(t.get());
  EXPECT_EQ(queued, (std::vector<SngSrvThermal*>{near.get(), nearToo.get(), far.get()}));
}

TEST_F(Player, OneReachableThermalIsSentPerPassAndTheRestWait) {
  player.updateState(at(100.0, 46.0, 7.0, 1000.0));
  server.now = 43200.0f;
  // 60 s of life left: reachable within 60 x 83.3 = 5 km. 30 km away is dropped, 3 km away is sent.
  auto expired = thermal(46.0f, 7.0f, 42000.0f, 600.0f);
  auto tooFar = thermal(46.0f + 30000.0f / 111195.0f, 7.0f, 42660.0f, 600.0f);
  auto close = thermal(46.0f + 3000.0f / 111195.0f, 7.0f, 42660.0f, 600.0f);
  auto later = thermal(46.0f + 3500.0f / 111195.0f, 7.0f, 42660.0f, 600.0f);
  player.addThermals({expired, tooFar, close, later});
  player.update(0.1f);
  ASSERT_EQ(server.sent.size(), 1u);
  EXPECT_EQ(server.sent[0], close.get());
  EXPECT_EQ(player.pending_thermals.size(), 1u);  // the expired and the far one were dropped
  player.update(0.1f);
  EXPECT_EQ(server.sent.size(), 2u);
  // An idle player only counts down.
  player.idle = true;
  player.idle_time_left = 10.0f;
  player.addThermal(close);
  player.update(2.5f);
  EXPECT_FLOAT_EQ(player.idle_time_left, 7.5f);
  EXPECT_EQ(server.sent.size(), 2u);
}



}  // namespace
