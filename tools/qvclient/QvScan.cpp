#include "QvScan.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

std::vector<QvScanAnswer> qvScan(const std::string& host, uint16_t port, std::chrono::milliseconds wait,
                                 const std::vector<std::vector<uint8_t>>& requests) {
  std::vector<QvScanAnswer> answers;
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (fd < 0) return answers;
  if (inet_pton(AF_INET, host.c_str(), &to.sin_addr) == 1) {
    for (const auto& r : requests) sendto(fd, r.data(), r.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    pollfd readable{fd, POLLIN, 0};
    uint8_t buffer[2048];
    while (poll(&readable, 1, static_cast<int>(wait.count())) == 1) {
      sockaddr_in from{};
      socklen_t length = sizeof from;
      const ssize_t n = recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
      SngPacket packet(buffer, n > 0 ? static_cast<size_t>(n) : 0);
      QvScanAnswer answer;
      if (!answer.reply.read(packet)) continue;
      char text[INET_ADDRSTRLEN] = "";
      inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
      answer.from = std::string(text) + ":" + std::to_string(ntohs(from.sin_port));
      answers.push_back(std::move(answer));
    }
  }
  close(fd);
  return answers;
}
