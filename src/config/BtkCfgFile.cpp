#include "config/BtkCfgFile.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isIntChar(char c) {
  return isDigit(c) || c == '+' || c == '-';
}
bool isDoubleChar(char c) {
  return isIntChar(c) || c == '.' || c == 'e' || c == 'E';
}

const char* skipBlanks(const char* p) {
  while (isBlank(*p)) ++p;
  return p;
}

// The line has no more values for an array: its end, or a trailing comment.
bool endsValues(const char* p) {
  return *p == '\0' || *p == '#';
}

// Start of the value of an assignment to key: after the line's first "=" and the blanks that follow.
// Null when the line does not assign key or the value is empty.
const char* valueOf(const char* line, const char* key) {
  if (!line || !BtkCfgFile::matchKey(line, key)) return nullptr;
  const char* equals = strchr(line, '=');
  if (!equals) return nullptr;
  const char* value = skipBlanks(equals + 1);
  return *value ? value : nullptr;
}

// The classic "C" locale's reading of a number, whatever the process locale: from_chars never looks at
// it. Anything that is not a number, or does not fit a double, reads as 0.0.
double parseNumber(const char* begin, const char* end) {
  bool negative = false;
  if (begin < end && (*begin == '+' || *begin == '-')) {
    negative = *begin == '-';
    ++begin;
  }
  double value = 0.0;
  const std::from_chars_result result = std::from_chars(begin, end, value, std::chars_format::general);
  if (result.ec != std::errc()) return 0.0;
  return negative ? -value : value;
}

const char* endOfRun(const char* p, bool (*inRun)(char)) {
  while (inRun(*p)) ++p;
  return p;
}

void reportBadArrayValue(const char* key, const char* at) {
  const char* end = at;
  while (*end && !isBlank(*end) && end - at < 40) ++end;
  fprintf(stderr, "BtkCfgFile: array %s: bad value \"%.*s\"\n", key, static_cast<int>(end - at), at);
}

}  // namespace

// One open file with its own read buffer. Only regular files are read: a FIFO, a device or a
// directory named by an include could block or never end.
class BtkCfgFile::Source {
 public:
  enum class Line { kRead, kTooLong, kEnd };

  static std::unique_ptr<Source> open(const std::string& path, int& error, bool& notRegular) {
    error = 0;
    notRegular = false;
    struct stat info {};
    // stat before open: opening a device can have effects of its own (a tape rewinds, a watchdog arms).
    if (::stat(path.c_str(), &info) != 0) {
      error = errno;
      return nullptr;
    }
    if (!S_ISREG(info.st_mode)) return refuse(S_ISDIR(info.st_mode) ? EISDIR : EINVAL, error, notRegular);
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
      error = errno;
      return nullptr;
    }
    // The name may have been replaced between the two looks; the descriptor is what counts.
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
      ::close(fd);
      return refuse(EINVAL, error, notRegular);
    }
    return std::unique_ptr<Source>(new Source(fd, path));
  }

  ~Source() { ::close(fd_); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  // One physical line without its line end (LF, or CR LF) into buf. A line that does not fit in
  // size - 1 characters is consumed to its end and reported as too long, leaving buf empty.
  Line readRawLine(char* buf, size_t size) {
    size_t length = 0;
    bool anyByte = false, pendingCr = false, tooLong = false;
    const auto store = [&](char c) {
      if (length < size - 1)
        buf[length++] = c;
      else
        tooLong = true;
    };
    for (;;) {
      const int c = nextByte();
      if (c < 0) break;
      anyByte = true;
      if (c == '\n') break;
      if (pendingCr) store('\r');  // a CR that does not end the line is text
      pendingCr = c == '\r';
      if (!pendingCr) store(static_cast<char>(c));
    }
    if (!anyByte) return Line::kEnd;
    ++line_number_;
    buf[tooLong ? 0 : length] = '\0';
    return tooLong ? Line::kTooLong : Line::kRead;
  }

  const std::string& path() const { return path_; }
  long lineNumber() const { return line_number_; }

 private:
  static constexpr size_t kChunkSize = 16384;  // bytes read per system call

  Source(int fd, std::string path) : fd_(fd), path_(std::move(path)), chunk_(new char[kChunkSize]) {}

  static std::unique_ptr<Source> refuse(int code, int& error, bool& notRegular) {
    error = code;
    notRegular = true;
    return nullptr;
  }

  int nextByte() {
    if (pos_ == filled_ && !refill()) return -1;
    return static_cast<unsigned char>(chunk_[pos_++]);
  }

  bool refill() {
    if (at_end_) return false;
    for (;;) {
      const ssize_t got = ::read(fd_, chunk_.get(), kChunkSize);
      if (got > 0) {
        pos_ = 0;
        filled_ = static_cast<size_t>(got);
        return true;
      }
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) fprintf(stderr, "BtkCfgFile: %s: %s\n", path_.c_str(), strerror(errno));
      at_end_ = true;
      return false;
    }
  }

  int fd_;
  std::string path_;
  std::unique_ptr<char[]> chunk_;
  size_t pos_ = 0, filled_ = 0;
  bool at_end_ = false;
  long line_number_ = 0;
};

BtkCfgFile::BtkCfgFile(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) slash = path.rfind('\\');
  base_dir = slash == std::string::npos ? "." : path.substr(0, slash);
  bool notRegular = false;
  current = Source::open(path, open_error_, notRegular);
}

BtkCfgFile::~BtkCfgFile() = default;

bool BtkCfgFile::isOpen() const {
  return current != nullptr;
}

bool BtkCfgFile::readLine(char* buf, size_t size) {
  if (ended_ || !current || !buf || size < 2) return false;
  for (;;) {
    const Source::Line got = current->readRawLine(buf, size);
    if (got == Source::Line::kEnd) {
      if (include_stack.empty()) {
        ended_ = true;
        return false;
      }
      current = std::move(include_stack.back());  // closes the finished file
      include_stack.pop_back();
      continue;
    }
    if (got == Source::Line::kTooLong) {
      fprintf(stderr, "BtkCfgFile: %s line %ld: longer than %zu characters, skipped\n",
              current->path().c_str(), current->lineNumber(), size - 1);
      continue;
    }
    if (buf[0] == '\0' || buf[0] == '#') continue;
    if (!strstr(buf, "include")) return true;
    if (!beginInclude(buf)) {
      ended_ = true;
      return false;
    }
  }
}

// Any line containing "include" names a file after its first "=": read it in place of the directive.
bool BtkCfgFile::beginInclude(const char* line) {
  const char* equals = strchr(line, '=');
  if (!equals) {
    fprintf(stderr, "BtkCfgFile: include: missing \"=\" in %s line %ld!\n", current->path().c_str(),
            current->lineNumber());
    return false;
  }
  const char* name = skipBlanks(equals + 1);
  if (*name == '\0') {
    fputs("BtkCfgFile: include: missing filename!\n", stderr);
    return false;
  }
  fprintf(stderr, "include %s\n", name);
  const std::string path = name[0] == '/' ? std::string(name) : base_dir + "/" + name;
  if (include_stack.size() >= kMaxIncludeDepth) {
    fprintf(stderr, "BtkCfgFile: include: %s nested too deep!\n", path.c_str());
    return false;
  }
  int error = 0;
  bool notRegular = false;
  std::unique_ptr<Source> included = Source::open(path, error, notRegular);
  if (!included) {
    if (notRegular)
      fprintf(stderr, "BtkCfgFile: include: %s is not a regular file!\n", path.c_str());
    else
      fprintf(stderr, "BtkCfgFile: include: %s failed!\n", path.c_str());
    return false;
  }
  include_stack.push_back(std::move(current));
  current = std::move(included);
  fprintf(stderr, "include path = %s\n", path.c_str());
  return true;
}

bool BtkCfgFile::matchKey(const char* line, const char* key) {
  if (!line || !key || *key == '\0') return false;
  const char* at = strstr(line, key);  // the first occurrence only, even when a later one would fit
  if (!at) return false;
  if (at != line && !isBlank(at[-1])) return false;
  return isBlank(at[strlen(key)]);
}

bool BtkCfgFile::getBool(const char* line, const char* key, bool& value) {
  const char* word = valueOf(line, key);
  if (!word) return false;
  const size_t length = static_cast<size_t>(endOfRun(word, isLetter) - word);
  if (length == 4 && strncasecmp(word, "true", 4) == 0) {
    value = true;
    return true;
  }
  if (length == 5 && strncasecmp(word, "false", 5) == 0) {
    value = false;
    return true;
  }
  return false;
}

bool BtkCfgFile::getInt(const char* line, const char* key, int& value) {
  const char* token = valueOf(line, key);
  if (!token) return false;
  value = toInt(token);  // stops where the run of digits and signs would: atoi(token) == atoi(value)
  return true;
}

bool BtkCfgFile::getDouble(const char* line, const char* key, double& value) {
  const char* token = valueOf(line, key);
  if (!token) return false;
  value = parseNumber(token, endOfRun(token, isDoubleChar));
  return true;
}

bool BtkCfgFile::getString(const char* line, const char* key, std::string& value) {
  const char* text = valueOf(line, key);
  if (!text) return false;
  const char* end = strchr(text, '#');
  if (!end) end = text + strlen(text);
  while (end > text && isBlank(end[-1])) --end;
  value.assign(text, end);
  return true;
}

int BtkCfgFile::toInt(const char* text) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;  // atoi's isspace in the "C" locale
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  constexpr int64_t kLimit = static_cast<int64_t>(INT_MAX) + 1;
  int64_t magnitude = 0;
  for (; isDigit(*p); ++p) {
    magnitude = magnitude * 10 + (*p - '0');
    if (magnitude > kLimit) magnitude = kLimit;  // saturate: atoi's overflow is undefined
  }
  if (negative) return static_cast<int>(-magnitude);
  return static_cast<int>(magnitude > INT_MAX ? INT_MAX : magnitude);
}

BtkCfgFile::ArrayLine BtkCfgFile::nextArrayLine(char* buf, const char*& cursor) {
  for (;;) {
    if (!readLine(buf, kShortLineSize)) {
      fputs("missing end tag for int array in config file\n", stderr);
      return ArrayLine::kEnd;
    }
    cursor = skipBlanks(buf);
    if (*cursor == '\0') return ArrayLine::kBlank;
    if (*cursor != '#') return ArrayLine::kValues;
  }
}

// Every pass either consumes text of the current line or ends the matcher, and every new line comes
// from readLine, which ends: the reading always terminates.
template <class T, class ReadToken>
bool BtkCfgFile::readArray(const char* line, const char* key, std::vector<T>& values, ReadToken readToken) {
  if (!line || !matchKey(line, key)) return false;
  const char* open = strchr(line, '[');
  if (!open) return false;
  values.clear();
  char buf[kShortLineSize];
  const char* p = skipBlanks(open + 1);
  if (endsValues(p) && nextArrayLine(buf, p) != ArrayLine::kValues) return false;
  for (;;) {
    T value{};
    if (!readToken(p, value)) return false;
    values.push_back(std::move(value));
    p = skipBlanks(p);
    if (endsValues(p) && nextArrayLine(buf, p) != ArrayLine::kValues) return false;
    if (*p == ']') return true;
  }
}

// A number token is the run of number characters; an empty run counts as 0 only where the list
// closes ("[ ]" holds one 0). Any other character stops the matcher.
bool BtkCfgFile::getIntArray(const char* line, const char* key, std::vector<int>& values) {
  return readArray(line, key, values, [key](const char*& p, int& value) {
    const char* end = endOfRun(p, isIntChar);
    if (end == p && *p != ']') {
      reportBadArrayValue(key, p);
      return false;
    }
    value = toInt(p);
    p = end;
    return true;
  });
}

bool BtkCfgFile::getDoubleArray(const char* line, const char* key, std::vector<double>& values) {
  return readArray(line, key, values, [key](const char*& p, double& value) {
    const char* end = endOfRun(p, isDoubleChar);
    if (end == p && *p != ']') {
      reportBadArrayValue(key, p);
      return false;
    }
    value = parseNumber(p, end);
    p = end;
    return true;
  });
}

// A token runs to the next blank, so a "]" written against it is part of it; a quoted token runs to
// the next quotation mark on the same line and is stored without the marks.
bool BtkCfgFile::getStringArray(const char* line, const char* key, std::vector<std::string>& values) {
  return readArray(line, key, values, [key](const char*& p, std::string& value) {
    if (*p == '"') {
      const char* close = strchr(p + 1, '"');
      if (!close) {
        fprintf(stderr, "BtkCfgFile: array %s: unterminated quotation mark\n", key);
        return false;
      }
      value.assign(p + 1, close);
      p = close + 1;
      return true;
    }
    const char* end = p;
    while (*end && !isBlank(*end)) ++end;
    value.assign(p, end);
    p = end;
    return true;
  });
}

bool BtkCfgFile::findBlock(const char* line, const char* key) {
  if (!line || !matchKey(line, key)) return false;
  if (strchr(line, '{')) return true;
  char buf[kShortLineSize];
  if (!readLine(buf, sizeof buf)) return false;
  return *skipBlanks(buf) == '{';
}

bool BtkCfgFile::isBlockEnd(const char* line) {
  return line && strchr(line, '}') != nullptr;
}
