// A transport without sockets for in-process tests and the fuzzer: events are queued by the test (or
// produced by a hook at the moment the server services the network, to land inside a nested pass),
// and every send is captured with its channel and reliability.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "net/SngNetwork.h"

class SngScriptedNetwork : public SngNetwork {
 public:
  struct Sent {
    SngPeer peer;
    std::vector<uint8_t> data;
    uint8_t channel;
    bool reliable;
  };

  // A new connection from the IPv4 address a.b.c.d; the server learns of it with the next service step.
  SngPeer connect(uint8_t a = 127, uint8_t b = 0, uint8_t c = 0, uint8_t d = 1);
  void receive(const SngPeer& peer, std::vector<uint8_t> data, uint8_t channel = kReliableChannel);
  void drop(const SngPeer& peer);  // the connection is lost: a disconnect event follows
  // Called at every service step before the queue is looked at; lets a test inject events exactly
  // when a nested pass services the network. The argument counts service steps from 1.
  std::function<void(int)> onService;

  bool service(int timeoutMs, SngNetEvent& event) override;
  size_t send(const SngPeer* peers, size_t count, const uint8_t* data, size_t size, bool reliable) override;
  SngPeerInfo info(const SngPeer& peer) override;
  bool isConnected(const SngPeer& peer) override;
  void disconnect(const SngPeer& peer) override;

  size_t pending() const { return events_.size(); }

  std::vector<Sent> sent;
  std::vector<SngPeer> serverDisconnected;  // connections the server closed
  int serviceCalls = 0;
  uint32_t roundTripMs = 20;

 private:
  std::deque<SngNetEvent> events_;
  std::map<uint64_t, SngPeer> live_;  // by serial
  uint64_t nextSerial_ = 1;
  // Handles are fake addresses that are never dereferenced; like ENet, a handle is reused after a drop.
  std::vector<uintptr_t> freeHandles_;
  uintptr_t nextHandle_ = 0x1000;
};
