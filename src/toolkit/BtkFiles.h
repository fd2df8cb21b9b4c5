// Directory listing by the wildcard pattern that terrain start-up uses.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// Appends the names in dir that match "*" + infix + "*" (files and directories alike, in the order the
// file system returns them; "." and ".." never) and returns the size of names afterwards, or -1 with
// names unchanged when nothing matches or dir can't be read.
int btkListDirectory(const std::string& dir, const std::string& infix, std::vector<std::string>& names);

enum class BtkFileRead { OK, MISSING, NOT_REGULAR };

// Reads at most maxBytes of a regular file into out. Never blocks: a FIFO, device or directory at the
// path is refused unread (NOT_REGULAR), so an operator's mistake cannot stall the caller. MISSING
// when the file cannot be opened.
BtkFileRead btkReadRegularFile(const std::string& path, size_t maxBytes, std::string& out);

// Splits text into lines the way a 1024-byte line buffer reads a stream: a line is cut at 1023
// characters, and a line that long without its line feed ends the reading (the cut line is still
// returned). `good` turns false with the last line read; `failed` when no line could be read at all
// (the text had ended) or a line was too long.
class BtkLineReader {
 public:
  static constexpr size_t kMaxLine = 1023;

  explicit BtkLineReader(std::string text) : text_(std::move(text)) {}
  // The next line, without its line feed; "" once the text has ended.
  std::string next();
  bool good() const { return !eof_ && !failed_; }
  bool failed() const { return failed_; }
  // Whether the line returned last ended with a line feed.
  bool lastHadLineFeed() const { return had_line_feed_; }

 private:
  std::string text_;
  size_t pos_ = 0;
  bool eof_ = false;
  bool failed_ = false;
  bool had_line_feed_ = false;
};
