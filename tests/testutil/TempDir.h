// A temporary directory per test, removed with everything in it when the test ends.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TempDir {
 public:
  TempDir() : root_((std::filesystem::temp_directory_path() / "qvtest-XXXXXX").string()) {
    if (!mkdtemp(root_.data())) std::abort();
  }
  ~TempDir() { std::filesystem::remove_all(root_, ignored_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& root() const { return root_; }
  std::string path(const std::string& relative) const { return root_ + "/" + relative; }

 private:
  std::string root_;
  std::error_code ignored_;  // a directory that cannot be removed must not end the test run
};
