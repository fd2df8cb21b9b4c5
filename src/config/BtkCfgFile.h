// Reader of the line-oriented configuration files (situation files and the terrain library's lists):
// hands out logical lines, following includes, and matches assignment lines against keys.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// The caller drives the reading: readLine, then try its keys on the line one after the other (the first
// key that matches takes the line), and for a block findBlock, then lines until isBlockEnd.
// Value matchers look only at the line they are given; the array matchers and findBlock may read more.
class BtkCfgFile {
 public:
  static constexpr size_t kLineSize = 4096;       // bytes, the situation reader's line buffer
  static constexpr size_t kShortLineSize = 512;   // bytes, lines read by the array matchers and findBlock
  static constexpr size_t kMaxIncludeDepth = 32;  // nested includes; a self-including file stops here

  // Opens a regular file for reading; the caller checks isOpen() before reading.
  explicit BtkCfgFile(const std::string& path);
  // Closes every file opened, included ones too.
  ~BtkCfgFile();
  BtkCfgFile(const BtkCfgFile&) = delete;
  BtkCfgFile& operator=(const BtkCfgFile&) = delete;

  bool isOpen() const;
  explicit operator bool() const { return isOpen(); }
  int openError() const { return open_error_; }  // errno of a failed open, 0 when open
  const std::string& baseDir() const { return base_dir; }
  size_t includeDepth() const { return include_stack.size(); }

  // The next logical line (comments, empty lines and include directives consumed) into buf, at most
  // size - 1 characters. False at the end of all input and after a failed include; once false, always
  // false. A line longer than size - 1 characters is skipped with a message on standard error.
  bool readLine(char* buf, size_t size);

  // The first occurrence of key in line stands at the start or after a blank and is followed by a blank.
  static bool matchKey(const char* line, const char* key);
  // "true" / "false" in any case; another word is no match.
  static bool getBool(const char* line, const char* key, bool& value);
  // The run of digits and signs after "=", as atoi reads it (clamped to the int range).
  static bool getInt(const char* line, const char* key, int& value);
  // The run of digits, signs, "." and exponent letters, read in the "C" locale; not a number stores 0.0.
  static bool getDouble(const char* line, const char* key, double& value);
  // The value up to a "#" or the line end, trailing blanks removed; quotation marks are kept.
  static bool getString(const char* line, const char* key, std::string& value);

  // "key = [ v1 v2 ... ]", possibly over several lines; the vector is emptied and refilled.
  bool getIntArray(const char* line, const char* key, std::vector<int>& values);
  bool getDoubleArray(const char* line, const char* key, std::vector<double>& values);
  // Tokens separated by blanks; a token starting with a quotation mark runs to the next one.
  bool getStringArray(const char* line, const char* key, std::vector<std::string>& values);

  // The line names the block and the block is open: "{" on the line, or a next line that starts with
  // "{" after blanks. A next line read and not opening the block is lost to the caller.
  bool findBlock(const char* line, const char* key);
  static bool isBlockEnd(const char* line);

  // atoi's reading (optional sign, digits, stop at the first other character), clamped to the int range.
  static int toInt(const char* text);

 private:
  class Source;
  enum class ArrayLine { kValues, kEnd, kBlank };

  bool beginInclude(const char* line);
  ArrayLine nextArrayLine(char* buf, const char*& cursor);
  template <class T, class ReadToken>
  bool readArray(const char* line, const char* key, std::vector<T>& values, ReadToken readToken);

  std::vector<std::unique_ptr<Source>> include_stack;  // the including files, innermost last
  std::unique_ptr<Source> current;                     // the file lines are read from
  std::string base_dir;                                // the top file's directory, for relative includes
  int open_error_ = 0;
  bool ended_ = false;
};
