#include "toolkit/BtkLogger.h"

#include <cstdarg>
#include <ctime>

BtkLogger btkLogger;

BtkLogger::BtkLogger() : out_(stderr) {}

BtkLogger::~BtkLogger() {
  if (out_) log(BTK_INFO, "Log closing\n");
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (out_ && out_ != stderr) fclose(out_);
  out_ = stderr;
}

const char* BtkLogger::levelWord(int level) {
  switch (level) {
    case BTK_DEBUG: return "debug";
    case BTK_INFO: return "info";
    case BTK_WARNING: return "warning";
    case BTK_ERROR: return "error";
    case BTK_FATAL: return "fatal";
    default: return "unknown";
  }
}

int BtkLogger::threshold() {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  return threshold_;
}

void BtkLogger::setThreshold(int threshold) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  threshold_ = threshold;
}

void BtkLogger::log(int level, const char* format, ...) {
  if (level < threshold()) return;  // below the threshold costs no formatting
  char buffer[kMaxMessage + 1];
  va_list args;
  va_start(args, format);
  vsnprintf(buffer, sizeof buffer, format, args);  // cuts at 4095 characters
  va_end(args);
  write(level, buffer);
}

void BtkLogger::write(int level, const std::string& text) {
  if (level < threshold()) return;
  char stamp[64] = "";
  const time_t now = time(nullptr);
  if (!ctime_r(&now, stamp)) stamp[0] = '\0';
  stamp[sizeof stamp - 1] = '\0';
  for (char* p = stamp; *p; ++p) {
    if (*p == '\n' || *p == '\r') {
      *p = '\0';
      break;
    }
  }
  std::lock_guard<std::recursive_mutex> guard(lock_);
  // One call per line under the lock: lines from different threads never interleave.
  fprintf(out_, "%s [%s]: %s\n", stamp, levelWord(level), text.c_str());
  fflush(out_);
}

bool BtkLogger::open(const std::string& path, int threshold, bool append) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  FILE* file = fopen(path.c_str(), append ? "a" : "w");
  if (out_ && out_ != stderr) fclose(out_);
  if (!file) {
    out_ = stderr;
    return false;
  }
  out_ = file;
  threshold_ = threshold;
  return true;
}

void BtkLogger::closeFile() {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (out_ && out_ != stderr) fclose(out_);
  out_ = stderr;
}

BtkLogStream::BtkLogStream(BtkLogStream&& other) noexcept
    : level_(other.level_), logger_(other.logger_), text_(std::move(other.text_)) {
  other.text_.str(std::string());
}

void BtkLogStream::flush() {
  std::string text = text_.str();
  if (text.empty() || !logger_) return;
  logger_->write(level_, text);
  text_.str(std::string());
}

BtkLogStream& btkFlush(BtkLogStream& stream) {
  stream.flush();
  return stream;
}

BtkLogStream btkDebug() { return BtkLogStream(BTK_DEBUG, &btkLogger); }
BtkLogStream btkInfo() { return BtkLogStream(BTK_INFO, &btkLogger); }
BtkLogStream btkWarning() { return BtkLogStream(BTK_WARNING, &btkLogger); }
BtkLogStream btkError() { return BtkLogStream(BTK_ERROR, &btkLogger); }
