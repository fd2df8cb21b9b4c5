#include <gmock/gmock.h>
#include <sys/stat.h>

#include <regex>
#include <sstream>

#include "config/BtkCfgFile.h"
#include "testutil/Files.h"
#include "testutil/TempDir.h"

using namespace std::string_literals;
using testing::HasSubstr;

namespace {

template <class Range>
std::string joined(const Range& values) {
  std::ostringstream out;
  const char* separator = "";
  for (const auto& value : values) out << std::exchange(separator, "|") << value;
  return out.str();
}

std::string withDir(const std::string& text, const std::string& dir) {  // "@": the test's directory
  return std::regex_replace(text, std::regex("@"), dir);
}

// The key stands at the line start or after a blank, at its first occurrence, and a blank follows it;
// the value starts after the first "=". Numbers read as atoi (saturated) and strtod in the "C" locale.
TEST(CfgValues, MatchersTakeTheValueAfterTheFirstEqualsSign) {
  // clang-format off
  const std::vector<std::pair<std::string, std::string>> cases = {  // line, then bool|int|double|string
      {"k = TRUE", "1|0|0|TRUE"}, {"k = False # no engine", "0|0|0|False"}, {"k = truest", "-|0|0|truest"},
      {"k =  \t ", "-|-|-|-"}, {"k true", "-|-|-|-"}, {"k= 1", "-|-|-|-"},
      {" \tk\t= 30000.5", "-|30000|30000.5|30000.5"}, {"x=7 k = 9", "-|7|7|7 k = 9"},
      {"k = 99999999999999999999", "-|2147483647|1e+20|99999999999999999999"},
      {"k = -99999999999999999999", "-|-2147483648|-1e+20|-99999999999999999999"},
      {"k = -.25km", "-|0|-0.25|-.25km"}, {"k = 2,5", "-|2|2|2,5"},
      {"k = 1e999", "-|1|0|1e999"},  // not a double: 0, never infinity
      {"k = Ridge Runner \t  # the hill", "-|0|0|Ridge Runner"}, {"k = # nothing", "-|0|0|"},
      {"airk = 1 k = 2", "-|-|-|-"},  // the first occurrence decides
      {"mp_server_name = Go k racer", "-|0|0|Go k racer"},
  };
  // clang-format on
  for (const auto& [line, want] : cases) {
    auto read = [&line](auto getter, auto value) -> std::string {
      return getter(line.c_str(), "k", value) ? joined(std::vector{value}) : "-";
    };
    const auto got = {read(BtkCfgFile::getBool, false), read(BtkCfgFile::getInt, 0),
                      read(BtkCfgFile::getDouble, 0.0), read(BtkCfgFile::getString, std::string())};
    EXPECT_EQ(joined(got), want) << line;
  }
}

TEST(CfgArrays, ContinueOverLinesAndStopAtBadTextWithoutEatingTheNextLine) {
  // clang-format off
  struct Case {
    const char *text, kind, *values, *next, *message;  // kind i, d or s; values "!" when the matcher fails
  } const cases[] = {
      {"v = [ 1 2 # two\n# comment line\n   # indented\n  3\t4 ]\nafter", 'i', "1|2|3|4", "after", ""},
      {"v = [\n 0.5 1e-1\n -2 ]\nafter\n", 'd', "0.5|0.1|-2", "after", ""},
      {"v = [ ]\nafter\n", 'i', "0", "after", ""},  // nothing between the brackets reads as one 0
      {"v = [1 2]\n", 'i', "1|2", "<end>", ""},
      {"v = [ \"ASW 20\" LS4 \"\" x#y ]\n", 's', "ASW 20|LS4||x#y", "<end>", ""},
      {"v = [ a b]\n c ]\nafter\n", 's', "a|b]|c", "after", ""},  // "b]" is one token
      {"v = [ 1 2\n# only a comment\n", 'i', "!", "<end>", "missing end tag for int array in config file\n"},
      {"v = [ \"open quote ]\nafter\n", 's', "!", "after", "unterminated quotation mark"},
      {"v = [ 1 x 2 ]\nafter\n", 'i', "!", "after", "bad value \"x\""},
      {"v = [\n    \n 1 ]\n", 'i', "!", " 1 ]", ""},  // a continuation line of blanks ends the list
  };
  // clang-format on
  TempDir tmp;
  for (const Case& c : cases) {
    writeText(tmp.path("a.cfg"), c.text);
    BtkCfgFile cfg(tmp.path("a.cfg"));
    char line[BtkCfgFile::kLineSize];
    ASSERT_TRUE(cfg.readLine(line, sizeof line));
    auto read = [&](auto getter, auto values) -> std::string {  // values hold a 9: emptied and refilled
      return (cfg.*getter)(line, "v", values) ? joined(values) : "!";
    };
    testing::internal::CaptureStderr();
    // clang-format off
    const auto got = c.kind == 'i'   ? read(&BtkCfgFile::getIntArray, std::vector{9})
                     : c.kind == 'd' ? read(&BtkCfgFile::getDoubleArray, std::vector{9.0})
                                     : read(&BtkCfgFile::getStringArray, std::vector<std::string>{"9"});
    // clang-format on
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.message)) << c.text;
    EXPECT_EQ(got, c.values) << c.text;
    EXPECT_EQ(cfg.readLine(line, sizeof line) ? line : "<end>", std::string(c.next)) << c.text;
  }
}

// The case's main.cfg is read, "@" in texts standing for the directory it lies in.
TEST(CfgReadLine, LogicalLinesFollowIncludesAndStopAtTheFirstFailure) {
  const std::string self = joined(std::vector<std::string>(BtkCfgFile::kMaxIncludeDepth + 1, "line"));
  // clang-format off
  struct Case {
    std::string text, lines, message;
    std::vector<std::pair<std::string, std::string>> included = {};
  } const cases[] = {
      {"# comment\n\nkey = 1\n  # indented\n\t\nlast = 2", "key = 1|  # indented|\t|last = 2", ""},
      {"# c\r\nname = Ridge\r\n\r\nv = [ 1\r\n 2 ]\r\n", "name = Ridge|v = [ 1| 2 ]", ""},
      {std::string(4096, 'x') + "\n" + std::string(4095, 'a') + "\r\n" + std::string(600, 'y') + "\nok",
       std::string(4095, 'a') + "|" + std::string(600, 'y') + "|ok",
       "@/main.cfg line 1: longer than 4095 characters"},
      // A stray CR stays text; a NUL ends the line's text; a line starting with NUL reads as empty.
      {"\x01\xff{[\"\r\r\nab\0cd = 3\n\0hidden\nkey = 2\n"s, "\x01\xff{[\"\r|ab|key = 2", ""},
      // Relative names are taken from the top file's directory at every depth.
      {"a = 1\ninclude = parts/one.cfg\nd = 4\n", "a = 1|b = 2|c = 3|d = 4", "include path = @/two.cfg\n",
       {{"parts/one.cfg", "# part\nb = 2\ninclude = two.cfg\ninclude = none.cfg\n"}, {"two.cfg", "c = 3"},
        {"none.cfg", "# nothing but a comment\n"}}},
      // An indented "#" does not make a comment: the line is an include directive.
      {"include = in.cfg\nz = 3\n", "x = 1|y = 2|z = 3", "",
       {{"in.cfg", "  # include = @/abs/x.cfg\ny = 2\n"}, {"abs/x.cfg", "x = 1"}}},
      {"a = 1\ninclude = missing.cfg\nb = 2\n", "a = 1", "BtkCfgFile: include: @/missing.cfg failed!\n"},
      {"a = 1\ninclude =   \nb = 2\n", "a = 1", "BtkCfgFile: include: missing filename!\n"},
      {"a = 1\n  I include nothing\nb = 2\n", "a = 1", "missing \"=\" in @/main.cfg line 2!"},
      {"a = 1\ninclude = @\nb = 2\n", "a = 1", "include: @ is not a regular file!\n"},
      {"a = 1\ninclude = fifo\n", "a = 1", "include: @/fifo is not a regular file!\n"},  // never blocks
      // Regression: a file including itself opened files until the process ran out of descriptors.
      {"line\ninclude = main.cfg\n", self, "BtkCfgFile: include: @/main.cfg nested too deep!\n"},
  };
  // clang-format on
  for (const Case& c : cases) {
    TempDir tmp;
    ASSERT_EQ(mkfifo(tmp.path("fifo").c_str(), 0600), 0);
    writeText(tmp.path("main.cfg"), withDir(c.text, tmp.root()));
    for (const auto& [name, text] : c.included) writeText(tmp.path(name), withDir(text, tmp.root()));
    BtkCfgFile cfg(tmp.path("main.cfg"));
    std::vector<std::string> lines;
    std::vector<char> buf(BtkCfgFile::kLineSize);
    testing::internal::CaptureStderr();
    while (cfg.readLine(buf.data(), buf.size())) lines.emplace_back(buf.data());
    EXPECT_FALSE(cfg.readLine(buf.data(), buf.size()));  // once false, always false
    SCOPED_TRACE(c.text.substr(0, 80));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(withDir(c.message, tmp.root())));
    EXPECT_EQ(joined(lines), c.lines);
  }
}

}  // namespace
