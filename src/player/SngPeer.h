// A client connection as the player table sees it. The transport reuses its peer objects for later
// connections, so a connection is the pair (handle, serial): the serial is the server's own count of
// connections, never a value that the client chose.
#pragma once

#include <cstdint>
#include <string>

struct SngPeer {
  void* handle = nullptr;  // the transport's peer object; null: no connection
  uint64_t serial = 0;     // unique for every connection the server has accepted
  uint32_t address = 0;    // IPv4 address as the transport stores it (first octet in the lowest byte)

  explicit operator bool() const { return handle != nullptr; }
  friend bool operator==(const SngPeer& a, const SngPeer& b) { return a.handle == b.handle && a.serial == b.serial; }
  // "%d.%d.%d.%d", first octet first.
  std::string hostText() const {
    return std::to_string(address & 0xFF) + "." + std::to_string((address >> 8) & 0xFF) + "." +
           std::to_string((address >> 16) & 0xFF) + "." + std::to_string((address >> 24) & 0xFF);
  }
};
