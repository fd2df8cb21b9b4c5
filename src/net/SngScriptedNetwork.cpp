#include "net/SngScriptedNetwork.h"

SngPeer SngScriptedNetwork::connect(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  SngPeer peer;
  uintptr_t handle;
  if (!freeHandles_.empty()) {
    handle = freeHandles_.back();
    freeHandles_.pop_back();
  } else {
    handle = nextHandle_;
    nextHandle_ += 0x10;
  }
  peer.handle = reinterpret_cast<void*>(handle);
  peer.serial = nextSerial_++;
  peer.address = static_cast<uint32_t>(a) | static_cast<uint32_t>(b) << 8 | static_cast<uint32_t>(c) << 16 |
                 static_cast<uint32_t>(d) << 24;
  live_[peer.serial] = peer;
  SngNetEvent event;
  event.type = SngNetEvent::CONNECT;
  event.peer = peer;
  events_.push_back(event);
  return peer;
}

void SngScriptedNetwork::receive(const SngPeer& peer, std::vector<uint8_t> data, uint8_t channel) {
  SngNetEvent event;
  event.type = SngNetEvent::RECEIVE;
  event.peer = peer;
  event.data = std::move(data);
  event.channel = channel;
  events_.push_back(std::move(event));
}

void SngScriptedNetwork::drop(const SngPeer& peer) {
  if (live_.erase(peer.serial) == 0) return;
  freeHandles_.push_back(reinterpret_cast<uintptr_t>(peer.handle));
  SngNetEvent event;
  event.type = SngNetEvent::DISCONNECT;
  event.peer = peer;
  events_.push_back(event);
}

bool SngScriptedNetwork::service(int, SngNetEvent& event) {
  ++serviceCalls;
  if (onService) onService(serviceCalls);
  if (events_.empty()) return false;
  event = std::move(events_.front());
  events_.pop_front();
  return true;
}

size_t SngScriptedNetwork::send(const SngPeer* peers, size_t count, const uint8_t* data, size_t size, bool reliable) {
  size_t taken = 0;
  for (size_t i = 0; i < count; ++i) {
    if (!isConnected(peers[i])) continue;
    sent.push_back({peers[i], std::vector<uint8_t>(data, data + size),
                    reliable ? kReliableChannel : kUnreliableChannel, reliable});
    ++taken;
  }
  return taken;
}

SngPeerInfo SngScriptedNetwork::info(const SngPeer&) {
  SngPeerInfo result;
  result.round_trip_ms = roundTripMs;
  return result;
}

bool SngScriptedNetwork::isConnected(const SngPeer& peer) {
  auto it = live_.find(peer.serial);
  return it != live_.end() && it->second == peer;
}

void SngScriptedNetwork::disconnect(const SngPeer& peer) {
  if (!isConnected(peer)) return;
  serverDisconnected.push_back(peer);
  drop(peer);
}
