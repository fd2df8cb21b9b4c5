// The process-wide log sink and its stream front end. Safe from every thread.
#pragma once

#include <cstdio>
#include <mutex>
#include <sstream>
#include <string>

#include "toolkit/BtkObject.h"

enum BtkLogLevel { BTK_DEBUG = 0, BTK_INFO = 1, BTK_WARNING = 2, BTK_ERROR = 3, BTK_FATAL = 4 };

class BtkLogger : public BtkObject {
 public:
  static constexpr size_t kMaxMessage = 4095;  // characters; longer text is cut

  BtkLogger();
  ~BtkLogger() override;

  void log(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
  // The text is written as it is, never used as a format.
  void write(int level, const std::string& text);
  // Truncates (append false) or appends; on failure the sink falls back to standard error and keeps
  // its threshold.
  bool open(const std::string& path, int threshold, bool append);
  int threshold();
  void setThreshold(int threshold);
  // Back to standard error, closing a log file; used by tests that reuse the process-wide logger.
  void closeFile();

  static const char* levelWord(int level);

 private:
  std::recursive_mutex lock_;
  FILE* out_;
  int threshold_ = BTK_INFO;
};

extern BtkLogger btkLogger;

class BtkLogStream {
 public:
  BtkLogStream(int level, BtkLogger* logger) : level_(level), logger_(logger) {}
  BtkLogStream(BtkLogStream&& other) noexcept;
  BtkLogStream(const BtkLogStream&) = delete;
  BtkLogStream& operator=(const BtkLogStream&) = delete;
  // Text left unsent at the end of a statement is still written.
  ~BtkLogStream() { flush(); }

  template <class T>
  BtkLogStream& operator<<(const T& value) {
    text_ << value;
    return *this;
  }
  BtkLogStream& operator<<(BtkLogStream& (*manipulator)(BtkLogStream&)) { return manipulator(*this); }

  // Sends the collected text, if any, and starts over.
  void flush();

 private:
  int level_;
  BtkLogger* logger_;
  std::ostringstream text_;
};

BtkLogStream& btkFlush(BtkLogStream& stream);
BtkLogStream btkDebug();
BtkLogStream btkInfo();
BtkLogStream btkWarning();
BtkLogStream btkError();
