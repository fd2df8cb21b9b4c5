// Operators copy the shipped situation files: every one must load, and every line in it must mean
// something to the reader (a misspelt key or a value that does not parse is silently ignored otherwise).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "config/SngSituation.h"
#include "testutil/Files.h"

using testing::ElementsAre;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> shippedSituations() {
  std::vector<fs::path> found;
  for (const char* dir : {"examples", "deploy"}) {
    const fs::path root = fs::path(QV_SOURCE_DIR) / dir;
    if (!fs::is_directory(root)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(root))
      if (entry.is_regular_file() && entry.path().extension() == ".stn") found.push_back(entry.path());
  }
  return found;
}

TEST(ShippedSituations, EveryFileLoadsCompletelyWithAUsableSession) {
  const auto files = shippedSituations();
  ASSERT_FALSE(files.empty());
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.string());
    SngSituation s;
    std::vector<std::string> ignored;
    CaptureStderr();  // the reader's include and wind-layer notes
    const bool loaded = s.load(file.string(), &ignored);
    const std::string notes = GetCapturedStderr();
    ASSERT_TRUE(loaded);
    EXPECT_THAT(ignored, ElementsAre()) << "lines no key took";
    EXPECT_EQ(notes.find("BtkCfgFile:"), std::string::npos) << notes;
    EXPECT_FALSE(s.terrainId.empty());
    EXPECT_GE(s.mp_server_port, 1);
    EXPECT_LE(s.mp_server_port, 65535);
    EXPECT_GE(s.mp_max_players, 1);
    for (const SngTurnpoint& tp : s.turnpoints) {
      EXPECT_FALSE(tp.name.empty());
      EXPECT_LE(std::abs(tp.lat), 90.0);
      EXPECT_LE(std::abs(tp.lon), 180.0);
    }
    // The server reads the message of the day from the directory the situation file lies in.
    if (!s.mp_server_message_file.empty()) {
      EXPECT_TRUE(fileExists((file.parent_path() / s.mp_server_message_file).string()))
          << s.mp_server_message_file;
    }
  }
}

// The values the example's comments describe, worked out from the text by hand.
TEST(ShippedSituations, ExampleServerFileHoldsWhatItsCommentsSay) {
  SngSituation s;
  CaptureStderr();
  ASSERT_TRUE(s.load(std::string(QV_SOURCE_DIR) + "/examples/QVServer.stn"));
  EXPECT_EQ(GetCapturedStderr(), "wind layer 0: wind layer 1: ");
  EXPECT_EQ(s.terrainId, "demo");
  EXPECT_EQ(std::make_tuple(s.day, s.month, s.year, s.hour, s.minute, s.second),
            std::make_tuple(15, 7, 2024, 11, 30, 0));
  EXPECT_EQ(std::make_tuple(s.airport_name, s.runway), std::make_tuple("Demo Field", "27"));
  EXPECT_EQ(std::make_tuple(s.thermal_strength, s.thermal_radius, s.max_num_thermals, s.thermal_area),
            std::make_tuple(3.5, 250.0, 2000, 40.0));
  EXPECT_EQ(std::make_tuple(s.wind_str, s.wind_dir), std::make_tuple(5, 270));
  ASSERT_EQ(s.wind_layers.size(), 2u);
  EXPECT_EQ(std::make_tuple(s.wind_layers[0].altitude, s.wind_layers[1].strength),
            std::make_tuple(1500.0, 15.0));
  EXPECT_EQ(std::make_tuple(s.start_gate_open_time, s.competition_mode, s.start_gate_altitude_ref),
            std::make_tuple(12 * 3600, true, 0));
  ASSERT_EQ(s.turnpoints.size(), 4u);
  EXPECT_EQ(std::make_tuple(s.turnpoints[0].name, s.turnpoints[0].oz),
            std::make_tuple("Demo Field Start", 2));
  EXPECT_EQ(s.turnpoints[3].name, "Demo Field Finish");
  EXPECT_EQ(std::make_tuple(s.mp_server_name, s.mp_server_port, s.mp_max_players, s.mp_server_message_file),
            std::make_tuple("Demo Valley Server", 1610, 16, "motd.txt"));
  EXPECT_EQ(s.defaultCommChannel(), 180);  // (122.50 - 118) * 40
  EXPECT_EQ(s.mp_server_flags, 254u);      // 255 without bit 0
}

}  // namespace
