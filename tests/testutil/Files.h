// Small file helpers for tests.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeText(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline bool fileExists(const std::string& path) {
  return std::filesystem::exists(path);
}
