// A minimal ENet server on its own thread for testing the client library: it records what arrives
// (bytes, channel, reliability), which addresses connect and how many disconnect, sends what a test
// asks for, and can answer a message kind with canned replies. Every ENet call stays on its thread.
#pragma once

#include <enet/enet.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

struct TestDelivery {
  std::vector<uint8_t> bytes;
  uint8_t channel = 0;
  bool reliable = false;
};

class TestEnetServer {
 public:
  TestEnetServer() {
    if (enet_initialize() != 0) std::abort();
    ENetAddress address{};
    address.host = ENET_HOST_ANY;
    address.port = 0;  // the system picks a free port; ENet reads it back into host->address
    host_ = enet_host_create(&address, 4, 2, 0, 0);
    if (!host_) std::abort();
    port_ = host_->address.port;
    thread_ = std::thread([this] { run(); });
  }
  ~TestEnetServer() {
    stop_ = true;
    thread_.join();
    enet_host_destroy(host_);
  }
  TestEnetServer(const TestEnetServer&) = delete;
  TestEnetServer& operator=(const TestEnetServer&) = delete;

  uint16_t port() const { return port_; }

  // Sent to the most recently connected peer.
  void send(std::vector<uint8_t> bytes, bool reliable, uint8_t channel) {
    std::lock_guard<std::mutex> lock(mutex_);
    outgoing_.push_back({std::move(bytes), channel, reliable});
  }
  // Every later message whose first byte is `opcode` is answered with `replies`, in order.
  void replyTo(uint8_t opcode, std::vector<TestDelivery> replies) {
    std::lock_guard<std::mutex> lock(mutex_);
    replies_[opcode] = std::move(replies);
  }
  // Asks the most recently connected peer to disconnect.
  void disconnectClient() { disconnect_requested_ = true; }

  std::vector<TestDelivery> received() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }
  std::vector<uint32_t> connectedHosts() const {  // IPv4 addresses in network byte order
    std::lock_guard<std::mutex> lock(mutex_);
    return connected_hosts_;
  }
  int disconnects() const { return disconnects_; }

 private:
  void run() {
    while (!stop_) {
      ENetEvent event;
      // Short waits so that queued sends and the stop request are seen promptly.
      if (enet_host_service(host_, &event, 5) > 0) handle(event);
      flushOutgoing();
      if (disconnect_requested_.exchange(false) && last_peer_) enet_peer_disconnect(last_peer_, 0);
    }
  }

  void handle(ENetEvent& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    switch (event.type) {
      case ENET_EVENT_TYPE_CONNECT:
        last_peer_ = event.peer;
        connected_hosts_.push_back(event.peer->address.host);
        break;
      case ENET_EVENT_TYPE_RECEIVE: {
        TestDelivery delivery;
        delivery.bytes.assign(event.packet->data, event.packet->data + event.packet->dataLength);
        delivery.channel = event.channelID;
        delivery.reliable = (event.packet->flags & ENET_PACKET_FLAG_RELIABLE) != 0;
        enet_packet_destroy(event.packet);
        if (!delivery.bytes.empty()) {
          const auto it = replies_.find(delivery.bytes[0]);
          if (it != replies_.end()) outgoing_.insert(outgoing_.end(), it->second.begin(), it->second.end());
        }
        received_.push_back(std::move(delivery));
        break;
      }
      case ENET_EVENT_TYPE_DISCONNECT:
        if (event.peer == last_peer_) last_peer_ = nullptr;
        ++disconnects_;
        break;
      case ENET_EVENT_TYPE_NONE:
        break;
    }
  }

  void flushOutgoing() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!last_peer_) return;
    for (const TestDelivery& out : outgoing_) {
      ENetPacket* packet = enet_packet_create(out.bytes.data(), out.bytes.size(),
                                              out.reliable ? ENET_PACKET_FLAG_RELIABLE : 0);
      if (enet_peer_send(last_peer_, out.channel, packet) != 0) enet_packet_destroy(packet);
    }
    outgoing_.clear();
    enet_host_flush(host_);
  }

  ENetHost* host_ = nullptr;
  uint16_t port_ = 0;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> disconnect_requested_{false};
  std::atomic<int> disconnects_{0};
  mutable std::mutex mutex_;
  ENetPeer* last_peer_ = nullptr;
  std::vector<TestDelivery> outgoing_;
  std::map<uint8_t, std::vector<TestDelivery>> replies_;
  std::vector<TestDelivery> received_;
  std::vector<uint32_t> connected_hosts_;
};
