// Bounds-checked little-endian reading of the terrain files. Every read says whether the bytes were
// there; callers compare counts from a file with bytesLeft() before they allocate for them.
#pragma once

#include "toolkit/BtkBytes.h"

#include <cstdint>
#include <cstdio>
#include <string>

class GgFile {
 public:
  GgFile() = default;
  ~GgFile() { close(); }
  GgFile(const GgFile&) = delete;
  GgFile& operator=(const GgFile&) = delete;

  bool open(const std::string& path);
  void close();
  bool isOpen() const { return file_ != nullptr; }

  uint64_t size() const { return size_; }
  uint64_t tell() const { return pos_; }
  uint64_t bytesLeft() const { return pos_ <= size_ ? size_ - pos_ : 0; }
  // False (position unchanged) past the end of the file.
  bool seek(uint64_t pos);
  bool skip(uint64_t bytes) { return bytes <= bytesLeft() && seek(pos_ + bytes); }

  // False, position unchanged, when fewer than the asked bytes are left.
  bool read(void* out, size_t bytes);
  bool getU8(uint8_t& out);
  bool getU16(uint16_t& out);
  bool getI16(int16_t& out);
  bool getU32(uint32_t& out);
  bool getI32(int32_t& out);
  bool getF32(float& out);
  bool getF64(double& out);
  // Reads up to and including a zero byte; false when the file ends first.
  bool getText(std::string& out);

 private:
  FILE* file_ = nullptr;
  uint64_t size_ = 0;
  uint64_t pos_ = 0;
};


