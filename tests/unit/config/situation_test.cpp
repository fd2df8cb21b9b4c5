#include <gmock/gmock.h>

#include <random>
#include <sstream>

#include "config/SngSituation.h"
#include "testutil/Files.h"
#include "testutil/TempDir.h"

using testing::HasSubstr;

namespace {

// The fields the reader sets, "name=value;" each.
std::string describe(const SngSituation& s) {
  std::ostringstream o;
  o << "time=" << s.time_zone_mode << " " << s.utc_offset << " " << s.hour << ":" << s.minute << ":"
    << s.second << "; date=" << s.day << "." << s.month << "." << s.year
    << "; gate=" << s.start_gate_open_time << " " << s.start_gate_altitude << " " << s.start_gate_altitude_ref
    << "; ref=" << s.altitudeRef << "; flags=" << s.mp_server_flags << "; speed=" << s.speed << " "
    << s.uav_cruise_speed << "; server=" << s.mp_server << ", " << s.mp_server_name << ", "
    << s.mp_server_port << " " << s.mp_max_players << "; weather=" << s.thermal_strength << " " << s.wind_str
    << " " << s.gen_layers << "; airport=" << s.airport_name << " " << s.runway << "; layers=";
  for (const auto& l : s.wind_layers)
    o << "[" << l.altitude << " " << l.direction << " " << l.strength << "]";
  o << "; turnpoints=";
  for (const SngTurnpoint& t : s.turnpoints)
    o << "[" << t.name << " " << t.lat << " " << t.oz << " " << t.radius << " " << t.angle2 << " "
      << t.actions.size() << "]";
  return o.str() + ";";
}

// Keys are tried in a fixed order and the first that matches takes the line; blocks end at a line with
// "}" that no key takes, and a block cut off by the end of the file adds nothing.
TEST(Situation, KeysAndBlocksSetTheirFields) {
  // clang-format off
  struct Case {
    std::string text, want;
    std::vector<std::string> ignored = {};
    std::string complaint = {};  // from the file reader, none when empty
  } const cases[] = {
      {"time = 14:05:30", "time=0 0 14:5:30;"}, {"time = 1405", "time=0 0 14:5:0;"},
      {"time = 123456789", "time=0 0 12:34:56;"},  // each field takes at most two digits
      {"time = UTC+2", "time=2 2 12:0:0;"}, {"time = gmt-5", "time=2 -5 12:0:0;"},
      {"time = local", "time=1 0 12:0:0;"},
      {"date = 24121999\nstart_gate_open_time = 13:30:00", "date=24.12.1999; gate=48600 "},
      {"date_str = 20230704\nstart_gate_open_time = 3600", "date=4.7.2023; gate=3600 "},
      {"altitudeRef = MSL   # sea\nstart_gate_altitude_ref = QNH", "gate=0 9999 0; ref=0;"},
      {"altitudeRef = qnh\nstart_gate_altitude_ref = ground", "gate=0 9999 1; ref=1;"},
      {"mp_server_flags = 0\nmp_daylight_effects = true\nmp_allow_visual_tracks = TRUE", "flags=34;"},
      {"mp_daylight_effects = true\nmp_server_flags = 0\n", "flags=0;"},
      {"mp_allow_thermal_cheat = false\nmp_allow_visual_tracks = FALSE\nmp_daylight_effects = maybe",
       "flags=252;", {"mp_daylight_effects = maybe"}},
      // "speed" takes the line its name hides in; a failed include ends the reading.
      {"mp_server_name = Go speed racer\nflight_time = 09:00:00\nstart_gate_altitude = 1500\n"
       "uav_cruise_speed = 150\nmp_server = relay\nmp_server_port = 4000\ninclude = none\nmp_max_players = 8",
       "gate=0 1500 0; ref=1; flags=255; speed=0 150; server=relay, Default server, 4000 32;",
       {"flight_time = 09:00:00"}, "BtkCfgFile: include: "},
      {"weather {\n thermal_strength = 3.5\n wind_layer {\n altitude = 1000\n direction = 270\n"
       " strength = 8\n }\n wind_layer \n {\n altitude = 2500\n strength = 12.5\n }\n simple {\n"
       " wind_str = 10\n gen_layers = false\n }\n}\nweather {\n wind_layer {\n altitude = 1\n",
       "weather=3.5 10 0; airport= ; layers=[1000 270 8][2500 0 12.5];"},
      {"task {\n turnpoint {\n name = Start line\n lat = 47.25\n oz = 2\n radius = 1000\n }\n turnpoint {\n"
       " scan {\n scan_width = 80\n }\n name = Ridge # north end\n angle2 = 45\n junk\n }\n turnpoint {\n",
       "turnpoints=[Start line 47.25 2 1000 180 0][Ridge -999 0 500 45 1];", {" junk"}},
      {"airport {\n name = Hilltop\n runway = 27\n}\nresearch {\n thermal_radius = 150\n}\nflight {\n"
       " reg_color = [ 1 0.5 0 ]\n task {\n turnpoint {\n lat = 1\n }\n }\n}\nmp_max_players = 8",
       "1610 8; weather=5 0 1; airport=Hilltop 27; layers=; turnpoints=;"},
      // A block opens on its line or the next; a next line that does not open it is lost.
      {"airport \n name = Hilltop\nairport\n{\n}\n", "airport= ", {"airport ", "airport", "{", "}"}},
      // Operators copy the shipped example: every line is taken.
      {readText(std::string(QV_SOURCE_DIR) + "/examples/QVServer.stn"), "Demo Valley Server, 1610 16;"},
  };
  // clang-format on
  TempDir tmp;
  for (const Case& c : cases) {
    writeText(tmp.path("s.stn"), c.text);
    SngSituation s;
    std::vector<std::string> ignored;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(s.load(tmp.path("s.stn"), &ignored));
    const std::string complaints = testing::internal::GetCapturedStderr();
    SCOPED_TRACE(c.text.substr(0, 200));
    EXPECT_THAT(describe(s), HasSubstr(c.want));
    EXPECT_EQ(ignored, c.ignored);
    EXPECT_THAT(complaints, c.complaint.empty() ? testing::Not(HasSubstr("BtkCfgFile:"))
                                                : testing::Matcher<std::string>(HasSubstr(c.complaint)));
  }
}

// Junk of every byte value and a line far longer than the buffer: the reader gets through to the key. Only
// a file that cannot be opened fails, with the system's reason.
TEST(Situation, ReadsThroughJunkAndFailsOnlyOnAFileItCannotOpen) {
  TempDir tmp;
  std::mt19937 random(20240501);
  std::string text(8 << 20, '\0');
  for (char& byte : text) byte = static_cast<char>(random());
  writeText(tmp.path("junk.stn"),
            text + "\nmp_server_name = " + std::string(8 << 20, 'x') + "\nmp_server_port = 4242\n");
  SngSituation s;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(s.load(tmp.root()) || s.load(tmp.path("gone.stn")));
  EXPECT_TRUE(s.load(tmp.path("junk.stn")));
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_THAT(err,
              HasSubstr("[error]: Couldn't load situation file \"" + tmp.root() + "\": Is a directory\n"));
  EXPECT_THAT(err, HasSubstr("file \"" + tmp.path("gone.stn") + "\": No such file or directory\n"));
  EXPECT_THAT(err, HasSubstr("longer than 4095 characters, skipped"));
  EXPECT_THAT(describe(s), HasSubstr("server=localhost, Default server, 4242 "));
}

}  // namespace
