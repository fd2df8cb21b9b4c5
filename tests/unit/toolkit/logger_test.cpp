#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "testutil/TempDir.h"
#include "toolkit/BtkLogger.h"

namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// "Thu Nov 19 02:08:16 2026 [info]: text" with the day padded as ctime pads it.
const std::regex kLineFormat(R"(^(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ 1-3][0-9] \d\d:\d\d:\d\d \d{4} \[([a-z]+)\]: (.*)$)");

TEST(Logger, WritesCtimeStampLevelWordAndTextPerLine) {
  TempDir tmp;
  BtkLogger logger;
  ASSERT_TRUE(logger.open(tmp.path("a.log"), BTK_DEBUG, false));
  logger.log(BTK_DEBUG, "value %d", 42);
  logger.write(BTK_FATAL, "fatal is only a word");
  logger.write(7, "odd level");
  logger.write(BTK_WARNING, "ends in newline\n");
  const auto got = lines(readFile(tmp.path("a.log")));
  ASSERT_EQ(got.size(), 5u);  // the message's own "\n" leaves an empty line behind it
  std::smatch m;
  ASSERT_TRUE(std::regex_match(got[0], m, kLineFormat)) << got[0];
  EXPECT_EQ(m[2], "debug");
  EXPECT_EQ(m[3], "value 42");
  ASSERT_TRUE(std::regex_match(got[1], m, kLineFormat));
  EXPECT_EQ(m[2], "fatal");
  ASSERT_TRUE(std::regex_match(got[2], m, kLineFormat));
  EXPECT_EQ(m[2], "unknown");
  ASSERT_TRUE(std::regex_match(got[3], m, kLineFormat));
  EXPECT_EQ(m[2], "warning");
  EXPECT_EQ(got[4], "");
}

TEST(Logger, DropsMessagesBelowThresholdIncludingNegativeLevelsAboveIt) {
  TempDir tmp;
  BtkLogger logger;
  ASSERT_TRUE(logger.open(tmp.path("t.log"), BTK_WARNING, false));
  logger.write(BTK_INFO, "dropped");
  logger.write(-1, "dropped too");
  logger.write(BTK_ERROR, "kept");
  logger.setThreshold(-3);
  logger.write(-2, "negative kept");
  const std::string text = readFile(tmp.path("t.log"));
  EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("dropped")));
  EXPECT_THAT(text, ::testing::HasSubstr("[error]: kept"));
  EXPECT_THAT(text, ::testing::HasSubstr("[unknown]: negative kept"));
}

TEST(Logger, OpenEmptiesAnExistingFileUnlessAppending) {
  TempDir tmp;
  const std::string path = tmp.path("old.log");
  std::ofstream(path) << "from the last run\n";
  {
    BtkLogger logger;
    ASSERT_TRUE(logger.open(path, BTK_DEBUG, false));
    logger.write(BTK_INFO, "fresh");
  }
  std::string text = readFile(path);
  EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("from the last run")));
  EXPECT_THAT(text, ::testing::HasSubstr("fresh"));
  EXPECT_THAT(text, ::testing::HasSubstr("[info]: Log closing"));  // written by the destructor
  {
    BtkLogger logger;
    ASSERT_TRUE(logger.open(path, BTK_DEBUG, true));
    logger.write(BTK_INFO, "appended");
  }
  text = readFile(path);
  EXPECT_THAT(text, ::testing::HasSubstr("fresh"));
  EXPECT_THAT(text, ::testing::HasSubstr("appended"));
}

TEST(Logger, FallsBackToStandardErrorAndKeepsThresholdWhenOpenFails) {
  BtkLogger logger;  // starts on standard error at info
  testing::internal::CaptureStderr();
  logger.write(BTK_DEBUG, "debug before open");
  logger.write(BTK_INFO, "info before open");
  EXPECT_FALSE(logger.open("/nonexistent-dir/x/y.log", BTK_DEBUG, false));
  EXPECT_EQ(logger.threshold(), BTK_INFO);
  std::thread other([&] { logger.write(BTK_INFO, "from another thread"); });  // the lock is free
  other.join();
  logger.write(BTK_DEBUG, "debug after failed open");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_THAT(err, ::testing::Not(::testing::HasSubstr("debug")));
  EXPECT_THAT(err, ::testing::HasSubstr("[info]: info before open"));
  EXPECT_THAT(err, ::testing::HasSubstr("[info]: from another thread"));
}

TEST(Logger, CutsFormattedMessagesAt4095Characters) {
  TempDir tmp;
  BtkLogger logger;
  ASSERT_TRUE(logger.open(tmp.path("long.log"), BTK_DEBUG, false));
  const std::string longText(5000, 'x');
  logger.log(BTK_INFO, "%s", longText.c_str());
  const auto got = lines(readFile(tmp.path("long.log")));
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].size() - got[0].find("]: ") - 3, 4095u);
}

TEST(LogStream, SendsCollectedTextOnFlushAndOnDestructionButNothingWhenEmpty) {
  TempDir tmp;
  BtkLogger logger;
  ASSERT_TRUE(logger.open(tmp.path("s.log"), BTK_DEBUG, false));
  {
    BtkLogStream stream(BTK_WARNING, &logger);
    stream << "100% sure, " << 3600.0 << " s" << btkFlush;  // a percent sign is never a format
    stream << btkFlush;                                     // nothing collected: no line
    stream << "left unsent";
  }
  { BtkLogStream idle(BTK_INFO, &logger); }
  const auto got = lines(readFile(tmp.path("s.log")));
  ASSERT_EQ(got.size(), 2u);
  EXPECT_THAT(got[0], ::testing::EndsWith("[warning]: 100% sure, 3600 s"));
  EXPECT_THAT(got[1], ::testing::EndsWith("[warning]: left unsent"));
}

TEST(Logger, LinesFromManyThreadsNeverInterleave) {
  TempDir tmp;
  BtkLogger logger;
  ASSERT_TRUE(logger.open(tmp.path("mt.log"), BTK_DEBUG, false));
  constexpr int kThreads = 8, kLines = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&logger, t] {
      const std::string payload(200, static_cast<char>('a' + t));
      for (int i = 0; i < kLines; ++i) logger.write(BTK_INFO, payload);
    });
  }
  for (auto& thread : threads) thread.join();
  const auto got = lines(readFile(tmp.path("mt.log")));
  ASSERT_EQ(got.size(), static_cast<size_t>(kThreads * kLines));
  for (const auto& line : got) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, kLineFormat)) << line;
    const std::string text = m[3];
    ASSERT_EQ(text.size(), 200u);
    EXPECT_EQ(text.find_first_not_of(text[0]), std::string::npos) << "mixed line: " << text;
  }
}

}  // namespace
