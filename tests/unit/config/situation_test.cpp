#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "config/SngSituation.h"
#include "testutil/Files.h"
#include "testutil/TempDir.h"
#include "toolkit/BtkLogger.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

std::tuple<double, double, double> layer(const SngWindLayer& l) {
  return {l.altitude, l.direction, l.strength};
}

class Situation : public testing::Test {
 protected:
  void SetUp() override {
    btkLogger.closeFile();  // log lines go to standard error, where the tests capture them
    savedThreshold_ = btkLogger.threshold();
  }
  void TearDown() override { btkLogger.setThreshold(savedThreshold_); }

  SngSituation loadText(const std::string& text, std::vector<std::string>* ignored = nullptr) {
    writeText(tmp_.path("s.stn"), text);
    SngSituation s;
    EXPECT_TRUE(s.load(tmp_.path("s.stn"), ignored));
    return s;
  }

  TempDir tmp_;
  int savedThreshold_ = BTK_INFO;
};

TEST_F(Situation, EmptyFileGivesTheDefaults) {
  const SngSituation s = loadText("");
  EXPECT_EQ(std::make_tuple(s.hour, s.minute, s.second, s.day, s.month, s.year),
            std::make_tuple(12, 0, 0, 1, 6, 2000));
  EXPECT_EQ(std::make_tuple(s.max_num_thermals, s.thermal_dist, s.mp_max_players, s.mp_server_port),
            std::make_tuple(3750, 5000.0, 32, 1610));
  EXPECT_EQ(s.mp_comm_frq, 123.45);
  EXPECT_EQ(s.defaultCommChannel(), 218);  // (123.45 - 118) * 40 = 218
  EXPECT_EQ(s.mp_server_flags, 255u);
  EXPECT_EQ(s.mp_server_name, "Default server");
  EXPECT_EQ(std::make_tuple(s.altitudeRef, s.start_gate_altitude, s.gen_layers),
            std::make_tuple(1, 9999.0, true));
  EXPECT_FALSE(s.mp_server.empty());
  EXPECT_NE(s.mp_server_admin.find('@'), std::string::npos);
  EXPECT_TRUE(s.turnpoints.empty());
  EXPECT_TRUE(s.wind_layers.empty());
}

TEST_F(Situation, MissingFileIsLoggedAsAnErrorWithTheSystemsReason) {
  SngSituation s;
  CaptureStderr();
  EXPECT_FALSE(s.load(tmp_.path("gone.stn")));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("[error]: Couldn't load situation file \"" +
                                             tmp_.path("gone.stn") + "\": No such file or directory\n"));
}

TEST_F(Situation, KeysTriedEarlierWinLinesTheirNamesHideIn) {
  std::vector<std::string> ignored;
  const SngSituation s = loadText(
      "mp_server_name = Go speed racer\n"  // "speed" is tried first and takes the line
      "flight_time = 09:00:00\n"           // not "time": the word follows an underscore
      "start_gate_altitude = 1500\n"
      "uav_cruise_speed = 150\n"
      "date_str = 20230704\n"
      "mp_server = relay.example\n"
      "mp_server_admin = ops@example.org\n",
      &ignored);
  EXPECT_EQ(s.speed, 0.0);
  EXPECT_EQ(s.mp_server_name, "Default server");
  EXPECT_THAT(ignored, ElementsAre("flight_time = 09:00:00"));
  EXPECT_EQ(std::make_tuple(s.altitude, s.start_gate_altitude, s.uav_cruise_speed),
            std::make_tuple(1000.0, 1500.0, 150.0));
  EXPECT_EQ(std::make_tuple(s.year, s.month, s.day), std::make_tuple(2023, 7, 4));
  EXPECT_EQ(s.mp_server, "relay.example");
  EXPECT_EQ(s.mp_server_admin, "ops@example.org");
}

TEST_F(Situation, TimeOfDayAndTimeZoneForms) {
  struct Case {
    const char* value;
    int mode, offset, hour, minute, second;
  };
  const Case cases[] = {
      {"14:05:30", 0, 0, 14, 5, 30},   {"140530", 0, 0, 14, 5, 30}, {"UTC+2", 2, 2, 12, 0, 0},
      {"gmt-5", 2, -5, 12, 0, 0},      {"local", 1, 0, 12, 0, 0},   {"1405", 0, 0, 14, 5, 0},
      {"123456789", 0, 0, 12, 34, 56},  // each field takes at most two digits
  };
  for (const Case& c : cases) {
    const SngSituation s = loadText(std::string("time = ") + c.value + "\n");
    EXPECT_EQ(s.time_zone_mode, c.mode) << c.value;
    EXPECT_EQ(s.utc_offset, c.offset) << c.value;
    EXPECT_EQ(s.hour * 10000 + s.minute * 100 + s.second, c.hour * 10000 + c.minute * 100 + c.second)
        << c.value;
  }
}

TEST_F(Situation, DateAndStartGateConversions) {
  SngSituation s = loadText("date = 24121999\nstart_gate_open_time = 13:30:00\n");
  EXPECT_EQ(std::make_tuple(s.day, s.month, s.year), std::make_tuple(24, 12, 1999));
  EXPECT_EQ(s.start_gate_open_time, 48600);  // (13 * 60 + 30) * 60
  EXPECT_EQ(loadText("start_gate_open_time = 3600\n").start_gate_open_time, 3600);
}

TEST_F(Situation, AltitudeReferenceIsSeaLevelOnlyForQnhAndMsl) {
  EXPECT_EQ(loadText("altitudeRef = QNH\n").altitudeRef, 0);
  EXPECT_EQ(loadText("altitudeRef = MSL   # sea\n").altitudeRef, 0);
  EXPECT_EQ(loadText("altitudeRef = AGL\n").altitudeRef, 1);
  EXPECT_EQ(loadText("altitudeRef = qnh\n").altitudeRef, 1);
  EXPECT_EQ(loadText("start_gate_altitude_ref = MSL\n").start_gate_altitude_ref, 0);
  EXPECT_EQ(loadText("start_gate_altitude_ref = ground\n").start_gate_altitude_ref, 1);
}

TEST_F(Situation, FlagBitsFollowTheOrderOfTheLines) {
  EXPECT_EQ(loadText("mp_server_flags = 0\nmp_daylight_effects = true\n").mp_server_flags, 32u);
  EXPECT_EQ(loadText("mp_daylight_effects = true\nmp_server_flags = 0\n").mp_server_flags, 0u);
  EXPECT_EQ(loadText("mp_allow_thermal_cheat = false\nmp_allow_visual_tracks = FALSE\n").mp_server_flags,
            252u);
  EXPECT_EQ(loadText("mp_server_flags = 0\nmp_allow_visual_tracks = TRUE\nmp_allow_thermal_cheat = maybe\n")
                .mp_server_flags,
            2u);
}

TEST_F(Situation, WindLayersInFileOrderEachStartingAtZero) {
  CaptureStderr();
  const SngSituation s = loadText(
      "weather {\n"
      "  thermal_strength = 3.5\n"
      "  wind_layer {\n    altitude = 1000\n    direction = 270\n    strength = 8\n  }\n"
      "  wind_layer \n  {\n    altitude = 2500\n    strength = 12.5\n  }\n"
      "  simple {\n    wind_str = 10\n    wind_dir = 240\n    gen_layers = false\n  }\n"
      "}\n");
  EXPECT_EQ(GetCapturedStderr(), "wind layer 0: wind layer 1: ");
  ASSERT_EQ(s.wind_layers.size(), 2u);
  EXPECT_EQ(layer(s.wind_layers[0]), std::make_tuple(1000.0, 270.0, 8.0));
  EXPECT_EQ(layer(s.wind_layers[1]), std::make_tuple(2500.0, 0.0, 12.5));
  EXPECT_EQ(std::make_tuple(s.thermal_strength, s.wind_str, s.wind_dir, s.gen_layers),
            std::make_tuple(3.5, 10, 240, false));
}

TEST_F(Situation, BlocksCutOffByTheEndOfTheFileAddNothing) {
  CaptureStderr();
  const SngSituation s =
      loadText("weather {\n wind_layer {\n altitude = 1000\n }\n wind_layer {\n altitude = 2000\n");
  GetCapturedStderr();
  ASSERT_EQ(s.wind_layers.size(), 1u);
  EXPECT_EQ(s.wind_layers[0].altitude, 1000.0);
  const SngSituation t = loadText("task {\n turnpoint {\n lat = 1\n }\n turnpoint {\n lat = 2\n");
  ASSERT_EQ(t.turnpoints.size(), 1u);
  EXPECT_EQ(t.turnpoints[0].lat, 1.0);
}

TEST_F(Situation, TaskTurnpointsWithAndWithoutScanBlocks) {
  btkLogger.setThreshold(BTK_DEBUG);
  CaptureStderr();
  const SngSituation s = loadText(
      "task {\n"
      "  turnpoint {\n    name = Start line\n    lat = 47.25\n    lon = 11.5\n    oz = 2\n"
      "    radius = 1000\n    angle1 = 90\n  }\n"
      "  turnpoint {\n    scan {\n      scan_width = 80\n      scan_lines = 4\n    }\n"
      "    name = Ridge # north end\n    lat = 47.5\n    lon = 11.75\n    elev = 1200\n"
      "    oz = 1\n    angle1 = 180\n    angle2 = 45\n  }\n"
      "}\n");
  const std::string log = GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("[debug]: Situation: task block found\n"));
  EXPECT_THAT(log, HasSubstr("[debug]: Situation: task turnpoint ScanArea action block found\n"));
  EXPECT_THAT(log, HasSubstr("[debug]: Situation: inserting task action into turnpoint list\n"));
  ASSERT_EQ(s.turnpoints.size(), 2u);
  const SngTurnpoint& start = s.turnpoints[0];
  EXPECT_EQ(start.name, "Start line");
  EXPECT_EQ(std::make_tuple(start.lat, start.lon, start.oz, start.radius, start.angle1, start.angle2),
            std::make_tuple(47.25, 11.5, 2, 1000.0, 90.0, 180.0));
  EXPECT_TRUE(start.actions.empty());
  const SngTurnpoint& ridge = s.turnpoints[1];
  EXPECT_EQ(ridge.name, "Ridge");
  EXPECT_EQ(std::make_tuple(ridge.elev, ridge.radius, ridge.angle2), std::make_tuple(1200.0, 500.0, 45.0));
  ASSERT_EQ(ridge.actions.size(), 1u);
  const auto* scan = dynamic_cast<const SngWaypointActionScanArea*>(ridge.actions[0].get());
  ASSERT_NE(scan, nullptr);
  EXPECT_EQ(std::make_tuple(scan->scan_width, scan->scan_lines, scan->scan_length),
            std::make_tuple(80.0, 4u, 1000.0));
  EXPECT_DOUBLE_EQ(scan->scan_speed, 100.0 / 3.6);
}

TEST_F(Situation, AirportResearchAndFlightBlocks) {
  const SngSituation s = loadText(
      "traffic = 2\n"
      "ai_glider_types = [ LS4 \"ASW 20\" ]\n"
      "airport {\n  name = Hilltop\n  runway = 27\n  lat = 47.1\n  lon = 11.2\n  elev = 640\n}\n"
      "research {\n  fixed_altitude = 800\n  thermal_radius = 150\n  thermal_profile = bell\n}\n"
      "flight {\n  type = AI\n  traffic_level = 2\n  glider_type = LS4\n  reg_color = [ 1 0.5 0 ]\n"
      "  task {\n    turnpoint {\n      lat = 1\n    }\n  }\n}\n"
      "flight {\n  type = IGC\n  traffic_level = 3\n}\n");
  EXPECT_THAT(s.ai_glider_types, ElementsAre("LS4", "ASW 20"));
  EXPECT_EQ(std::make_tuple(s.airport_name, s.runway, s.airport_lat, s.airport_lon, s.airport_elev),
            std::make_tuple("Hilltop", "27", 47.1, 11.2, 640.0));
  EXPECT_EQ(std::make_tuple(s.research, s.fixed_altitude_set, s.fixed_altitude, s.fixed_thermal_radius),
            std::make_tuple(true, true, 800.0, 150.0));
  EXPECT_EQ(s.thermal_radius, 300.0);  // the weather's radius is another field
  EXPECT_EQ(s.thermal_profile, "bell");
  ASSERT_EQ(s.flights.size(), 1u);  // level 3 is above the traffic of 2
  EXPECT_EQ(s.flights[0].type, "AI");
  EXPECT_EQ(s.flights[0].glider_type, "LS4");
  EXPECT_THAT(s.flights[0].reg_color, ElementsAre(1.0, 0.5, 0.0));
  EXPECT_EQ(s.flights[0].turnpoints.size(), 1u);
  EXPECT_TRUE(s.turnpoints.empty());
}

TEST_F(Situation, AFailedIncludeKeepsWhatWasReadBefore) {
  CaptureStderr();
  const SngSituation s = loadText("mp_server_port = 4000\ninclude = missing.stn\nmp_max_players = 8\n");
  EXPECT_THAT(GetCapturedStderr(), HasSubstr(" failed!\n"));
  EXPECT_EQ(s.mp_server_port, 4000);
  EXPECT_EQ(s.mp_max_players, 32);
}

// Junk of every byte value, then a real key: the reader must get through the junk to it.
TEST_F(Situation, LoadsAHundredMegabytesOfJunk) {
  const std::string path = tmp_.path("junk.stn");
  {
    FILE* out = fopen(path.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    std::mt19937 random(20240501);
    std::vector<unsigned char> chunk(1 << 20);
    for (int mb = 0; mb < 100; ++mb) {
      for (unsigned char& byte : chunk) byte = static_cast<unsigned char>(random());
      ASSERT_EQ(fwrite(chunk.data(), 1, chunk.size(), out), chunk.size());
    }
    fputs("\nmp_server_port = 4242\n", out);
    fclose(out);
  }
  SngSituation s;
  CaptureStderr();
  EXPECT_TRUE(s.load(path));
  GetCapturedStderr();
  EXPECT_EQ(s.mp_server_port, 4242);
}

TEST_F(Situation, LoadsOneHugeLineWithoutHoldingIt) {
  const std::string path = tmp_.path("line.stn");
  {
    FILE* out = fopen(path.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    const std::string chunk(1 << 20, 'x');
    fputs("mp_server_name = ", out);
    for (int mb = 0; mb < 64; ++mb) ASSERT_EQ(fwrite(chunk.data(), 1, chunk.size(), out), chunk.size());
    fputs("\nmp_server_port = 4242\n", out);
    fclose(out);
  }
  SngSituation s;
  CaptureStderr();
  EXPECT_TRUE(s.load(path));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("line.stn line 1: longer than 4095 characters, skipped"));
  EXPECT_EQ(s.mp_server_name, "Default server");
  EXPECT_EQ(s.mp_server_port, 4242);
}

}  // namespace
