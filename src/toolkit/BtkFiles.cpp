#include "toolkit/BtkFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

int btkListDirectory(const std::string& dir, const std::string& infix, std::vector<std::string>& names) {
  DIR* handle = opendir(dir.c_str());
  if (!handle) return -1;
  // The pattern's trailing "*.*" means "any name" on the original platform, dot or not, so a block
  // directory such as BLK046N007E01 matches: on POSIX that is a plain "*".
  const std::string pattern = "*" + infix + "*";
  std::vector<std::string> found;
  while (dirent* entry = readdir(handle)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    if (fnmatch(pattern.c_str(), entry->d_name, 0) == 0) found.emplace_back(entry->d_name);
  }
  closedir(handle);
  if (found.empty()) return -1;
  names.insert(names.end(), found.begin(), found.end());
  return static_cast<int>(names.size());
}

BtkFileRead btkReadRegularFile(const std::string& path, size_t maxBytes, std::string& out) {
  out.clear();
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return BtkFileRead::MISSING;
  struct stat info {};
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(fd);
    return BtkFileRead::NOT_REGULAR;
  }
  char buffer[4096];
  while (out.size() < maxBytes) {
    const ssize_t n = read(fd, buffer, std::min(sizeof buffer, maxBytes - out.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  return BtkFileRead::OK;
}

std::string BtkLineReader::next() {
  std::string line;
  had_line_feed_ = false;
  if (!good()) {
    failed_ = true;
    return line;
  }
  size_t i = pos_;
  while (line.size() < kMaxLine && i < text_.size() && text_[i] != '\n') line += text_[i++];
  if (i >= text_.size()) {
    eof_ = true;
    if (line.empty()) failed_ = true;
  } else if (text_[i] == '\n') {
    ++i;
    had_line_feed_ = true;
  } else {
    failed_ = true;
  }
  pos_ = i;
  return line;
}
