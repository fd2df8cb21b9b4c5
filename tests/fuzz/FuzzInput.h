// Shared by the fuzz targets: an input taken apart piece by piece, and the files the readers need on disk,
// kept in a directory private to the process and removed at exit.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// Past the end of the input every read gives zeros or nothing, so a harness never checks what is left.
struct FuzzReader {
  const uint8_t* data;
  size_t size;
  size_t at = 0;

  bool empty() const { return at >= size; }
  uint8_t byte() { return at < size ? data[at++] : 0; }
  uint32_t u32() {  // little-endian
    uint32_t n = 0;
    for (int shift = 0; shift < 32; shift += 8) n |= uint32_t{byte()} << shift;
    return n;
  }
  std::vector<uint8_t> bytes(size_t n) {
    n = std::min(n, size - at);
    at += n;
    return {data + at - n, data + at};
  }
};

// The private directory is also the base of relative includes, so they find nothing by accident.
inline const std::string& fuzzDir() {
  static const struct Dir {
    std::string path = (std::filesystem::temp_directory_path() / "qvfuzz-XXXXXX").string();
    Dir() {
      if (!mkdtemp(path.data())) std::abort();
    }
    ~Dir() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  } dir;
  return dir.path;
}

// Writes the bytes as `name` in the private directory; returns its path.
inline std::string fuzzFile(const std::string& name, const uint8_t* data, size_t size) {
  const std::string path = fuzzDir() + "/" + name;
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), std::streamsize(size));
  return path;
}
inline std::string fuzzFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  return fuzzFile(name, bytes.data(), bytes.size());
}
