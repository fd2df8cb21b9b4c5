// Small file helpers for tests.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void writeText(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline bool fileExists(const std::string& path) {
  struct stat info{};
  return stat(path.c_str(), &info) == 0;
}
