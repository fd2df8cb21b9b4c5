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
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(port);
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) std::abort();
  return fd;
}

inline uint16_t freeUdpPort() {
  const int fd = bindUdpSocket(0);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  close(fd);
  return ntohs(address.sin_port);
}
