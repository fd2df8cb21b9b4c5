#include "terrain/GgFile.h"

#include <cstring>

bool GgFile::open(const std::string& path) {
  close();
  file_ = fopen(path.c_str(), "rb");
  if (!file_) return false;
  if (fseeko(file_, 0, SEEK_END) != 0) {
    close();
    return false;
  }
  const off_t end = ftello(file_);
  if (end < 0 || fseeko(file_, 0, SEEK_SET) != 0) {
    close();
    return false;
  }
  size_ = static_cast<uint64_t>(end);
  pos_ = 0;
  return true;
}

void GgFile::close() {
  if (file_) fclose(file_);
  file_ = nullptr;
  size_ = 0;
  pos_ = 0;
}

bool GgFile::seek(uint64_t pos) {
  if (!file_ || pos > size_) return false;
  if (pos == pos_) return true;
  if (fseeko(file_, static_cast<off_t>(pos), SEEK_SET) != 0) return false;
  pos_ = pos;
  return true;
}

bool GgFile::read(void* out, size_t bytes) {
  if (!file_ || bytes > bytesLeft()) return false;
  if (bytes == 0) return true;
  if (fread(out, 1, bytes, file_) != bytes) {
    // The file shrank under us: put the stream back where the caller believes it is.
    fseeko(file_, static_cast<off_t>(pos_), SEEK_SET);
    return false;
  }
  pos_ += bytes;
  return true;
}

bool GgFile::getU8(uint8_t& out) {
  return read(&out, 1);
}

bool GgFile::getU16(uint16_t& out) {
  uint8_t b[2];
  if (!read(b, sizeof b)) return false;
  out = btkLoadLittleU16(b);
  return true;
}

bool GgFile::getI16(int16_t& out) {
  uint16_t u;
  if (!getU16(u)) return false;
  out = static_cast<int16_t>(u);
  return true;
}

bool GgFile::getU32(uint32_t& out) {
  uint8_t b[4];
  if (!read(b, sizeof b)) return false;
  out = btkLoadLittleU32(b);
  return true;
}

bool GgFile::getI32(int32_t& out) {
  uint32_t u;
  if (!getU32(u)) return false;
  out = static_cast<int32_t>(u);
  return true;
}

bool GgFile::getF32(float& out) {
  uint32_t u;
  if (!getU32(u)) return false;
  memcpy(&out, &u, sizeof out);
  return true;
}

bool GgFile::getF64(double& out) {
  uint8_t b[8];
  if (!read(b, sizeof b)) return false;
  const uint64_t u = btkLoadLittleU64(b);
  memcpy(&out, &u, sizeof out);
  return true;
}

bool GgFile::getText(std::string& out) {
  out.clear();
  uint8_t c;
  while (getU8(c)) {
    if (c == 0) return true;
    out.push_back(static_cast<char>(c));
  }
  return false;
}
