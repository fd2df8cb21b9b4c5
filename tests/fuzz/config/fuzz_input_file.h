// The configuration readers take a path, so each fuzz input is written to a file first: one file in a
// directory private to the process, removed after every input, the directory at exit.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

class FuzzInputFile {
 public:
  // The private directory is also the base of relative includes, so they find nothing by accident.
  static FuzzInputFile& instance() {
    static FuzzInputFile file;
    return file;
  }

  // Writes the bytes as the input file; returns its path, or an empty string when that failed.
  std::string write(const uint8_t* data, size_t size) {
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return {};
    size_t done = 0;
    while (done < size) {
      const ssize_t n = ::write(fd, data + done, size - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    ::close(fd);
    return done == size ? path_ : std::string();
  }

  void remove() { ::unlink(path_.c_str()); }

  ~FuzzInputFile() {
    remove();
    ::rmdir(dir_.c_str());
  }

 private:
  FuzzInputFile() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvfuzz-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    dir_ = pattern;
    path_ = dir_ + "/input.cfg";
  }

  std::string dir_, path_;
};
