// UDP ports for tests: a free one from the kernel's ephemeral range, so that tests running in
// parallel never share a port, and a way to hold a port so that a server finds it taken.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

// A UDP socket bound to the port on every interface (0: a free port of the kernel's choice); the
// caller closes it. Aborts when the port cannot be bound.
inline int bindUdpSocket(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{
      .sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {INADDR_ANY}, .sin_zero = {}};
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) std::abort();
  return fd;
}

// A port that was free a moment ago, and other than `taken` (a server's game and scan ports must differ).
inline uint16_t freeUdpPort(uint16_t taken = 0) {
  for (;;) {
    const int fd = bindUdpSocket(0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    if (ntohs(address.sin_port) != taken) return ntohs(address.sin_port);
  }
}
