#include "QvClient.h"

#include <cstdlib>
#include <mutex>

namespace {

using Clock = std::chrono::steady_clock;

// A flood must not keep service() from returning; the rest waits for the next call.
constexpr int kMaxEventsPerService = 1000;

// ENet's global set-up does nothing on POSIX systems, but its contract wants it once before use.
bool enetReady() {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(once, [] {
    ready = enet_initialize() == 0;
    if (ready) atexit(enet_deinitialize);
  });
  return ready;
}

int remainingMs(Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

bool isResultByte(uint8_t opcode) {
  return opcode >= SngNet::RESULT_OK && opcode <= SngNet::RESULT_VERSION_TOO_OLD;
}

}  // namespace

QvMessagePredicate qvOpcodeIs(uint8_t opcode) {
  return [opcode](const QvMessage& message) { return !message.bytes.empty() && message.opcode == opcode; };
}

QvClient::QvClient() {
  if (!enetReady()) last_error_ = "ENet could not be initialised";
}

QvClient::~QvClient() {
  destroyHost();
}

void QvClient::destroyHost() {
  dropConnection();
  if (host_) enet_host_destroy(host_);
  host_ = nullptr;
}

bool QvClient::setLocalAddress(const std::string& address) {
  if (peer_) return false;
  ENetAddress local{};
  if (enet_address_set_host_ip(&local, address.c_str()) != 0) return false;
  local.port = ENET_PORT_ANY;
  local_address_ = local;
  return true;
}

bool QvClient::connect(const std::string& host, uint16_t port, std::chrono::milliseconds deadline) {
  destroyHost();
  last_error_.clear();
  if (!enetReady()) {
    last_error_ = "ENet could not be initialised";
    return false;
  }
  ENetAddress server{};
  if (enet_address_set_host(&server, host.c_str()) != 0) {
    last_error_ = "cannot resolve " + host;
    return false;
  }
  server.port = port;
  host_ = enet_host_create(local_address_ ? &*local_address_ : nullptr, 1, SngNet::CHANNEL_COUNT, 0, 0);
  if (!host_) {
    last_error_ = "cannot create an ENet host (local address in use or not on this machine?)";
    return false;
  }
  ENetPeer* peer = enet_host_connect(host_, &server, SngNet::CHANNEL_COUNT, 0);
  if (!peer) {
    last_error_ = "ENet has no peer to connect with";
    return false;
  }
  const auto end = Clock::now() + deadline;
  const int disconnectsBefore = disconnect_events_;
  // The connect event sets peer_; handleEvent tells it from other peers by `connecting_`.
  connecting_ = peer;
  while (!peer_ && disconnect_events_ == disconnectsBefore && Clock::now() < end) {
    service(remainingMs(end));
  }
  connecting_ = nullptr;
  if (peer_) return true;
  enet_peer_reset(peer);
  last_error_ = disconnect_events_ != disconnectsBefore
                    ? "the server refused the connection"
                    : "no answer from " + host + ":" + std::to_string(port) + " within " +
                          std::to_string(deadline.count()) + " ms";
  return false;
}

void QvClient::disconnect(std::chrono::milliseconds deadline) {
  if (!peer_) return;
  enet_peer_disconnect_later(peer_, 0);
  enet_host_flush(host_);
  if (!waitForDisconnect(deadline)) resetConnection();
}

void QvClient::dropConnection() {
  if (!peer_) return;
  enet_peer_disconnect_now(peer_, 0);
  peer_ = nullptr;
}

void QvClient::resetConnection() {
  if (!peer_) return;
  enet_peer_reset(peer_);
  peer_ = nullptr;
}

uint16_t QvClient::localPort() const {
  if (!host_) return 0;
  ENetAddress address{};
  if (enet_socket_get_address(host_->socket, &address) != 0) return 0;
  return address.port;
}

uint32_t QvClient::roundTripMs() const {
  return peer_ ? peer_->roundTripTime : 0;
}

int QvClient::service(int timeoutMs) {
  if (!host_) return 0;
  ENetEvent event;
  int handled = 0;
  int result = enet_host_service(host_, &event, static_cast<enet_uint32>(timeoutMs > 0 ? timeoutMs : 0));
  while (result > 0) {
    handleEvent(event);
    if (++handled >= kMaxEventsPerService) break;
    result = enet_host_service(host_, &event, 0);
  }
  if (result < 0) last_error_ = "ENet service failed";
  return handled;
}

void QvClient::handleEvent(ENetEvent& event) {
  switch (event.type) {
    case ENET_EVENT_TYPE_CONNECT:
      if (event.peer == connecting_) peer_ = event.peer;
      break;
    case ENET_EVENT_TYPE_RECEIVE: {
      QvMessage message;
      const ENetPacket* packet = event.packet;
      message.bytes.assign(packet->data, packet->data + packet->dataLength);
      message.opcode = message.bytes.empty() ? 0 : message.bytes[0];
      message.channel = event.channelID;
      message.reliable = (packet->flags & ENET_PACKET_FLAG_RELIABLE) != 0;
      inbox_.push_back(std::move(message));
      returned_.push_back(false);
      enet_packet_destroy(event.packet);
      break;
    }
    case ENET_EVENT_TYPE_DISCONNECT:
      ++disconnect_events_;
      if (event.peer == peer_) peer_ = nullptr;
      break;
    case ENET_EVENT_TYPE_NONE:
      break;
  }
}

std::optional<QvMessage> QvClient::waitFor(const QvMessagePredicate& predicate,
                                           std::chrono::milliseconds deadline) {
  const auto end = Clock::now() + deadline;
  size_t scanned = 0;
  for (;;) {
    for (; scanned < inbox_.size(); ++scanned) {
      if (!returned_[scanned] && predicate(inbox_[scanned])) {
        returned_[scanned] = true;
        return inbox_[scanned];
      }
    }
    if (!peer_ || Clock::now() >= end) return std::nullopt;
    service(remainingMs(end));
  }
}

bool QvClient::waitForDisconnect(std::chrono::milliseconds deadline) {
  const auto end = Clock::now() + deadline;
  while (peer_ && Clock::now() < end) service(remainingMs(end));
  return !peer_;
}

void QvClient::clearInbox() {
  inbox_.clear();
  returned_.clear();
}

size_t QvClient::countOpcode(uint8_t opcode) const {
  size_t count = 0;
  for (const QvMessage& message : inbox_) {
    if (!message.bytes.empty() && message.opcode == opcode) ++count;
  }
  return count;
}

bool QvClient::sendRaw(const std::vector<uint8_t>& bytes, bool reliable, uint8_t channel) {
  if (!peer_) {
    last_error_ = "not connected";
    return false;
  }
  if (channel >= SngNet::CHANNEL_COUNT) {
    last_error_ = "no channel " + std::to_string(channel);
    return false;
  }
  ENetPacket* packet =
      enet_packet_create(bytes.data(), bytes.size(), reliable ? ENET_PACKET_FLAG_RELIABLE : 0);
  if (!packet) {
    last_error_ = "out of memory for a packet";
    return false;
  }
  if (enet_peer_send(peer_, channel, packet) != 0) {
    enet_packet_destroy(packet);  // ENet takes the packet only when the send succeeds
    last_error_ = "ENet refused the packet";
    return false;
  }
  enet_host_flush(host_);
  return true;
}

bool QvClient::sendPacket(const SngPacket& packet, bool reliable) {
  return sendRaw(packet.bytes, reliable, reliable ? SngNet::RELIABLE_CHANNEL : SngNet::UNRELIABLE_CHANNEL);
}

bool QvClient::login(uint8_t versionMajor, uint8_t versionMinor, uint32_t hwId, const std::string& pilotName,
                     const std::string& nick) {
  SngLoginMsg message;
  message.version_major = versionMajor;
  message.version_minor = versionMinor;
  message.hw_id = hwId;
  message.pilot_name = pilotName;
  message.nick = nick;
  return sendPacket(sngMessage(SngNet::LOGIN, message), true);
}

bool QvClient::connectAircraft(const SngConnectMsg& message) {
  return sendPacket(sngMessage(SngNet::CONNECT, message), true);
}

bool QvClient::sendState(uint8_t playerId, const SngAircraftState& state, bool extra) {
  SngStateMsg message;
  message.player = playerId;
  message.state = state;
  return sendPacket(sngMessage(extra ? SngNet::EXTRA_AIRCRAFT_STATE : SngNet::AIRCRAFT_STATE, message),
                    false);
}

bool QvClient::chat(uint8_t playerId, const std::string& text) {
  SngChatMsg message;
  message.player = playerId;
  message.text = text;
  return sendPacket(sngMessage(SngNet::CHAT_MSG, message), true);
}

bool QvClient::voice(uint8_t playerId, uint16_t radioChannel, uint16_t numPackets,
                     const std::vector<uint8_t>& data) {
  SngVoiceMsg message;
  message.player = playerId;
  message.channel = radioChannel;
  message.num_packets = numPackets;
  message.data = data;
  return sendPacket(sngMessage(SngNet::VOICE_CHAT, message), true);
}

bool QvClient::commFrq(uint8_t playerId, uint16_t radioChannel) {
  SngCommFrqMsg message;
  message.player = playerId;
  message.channel = radioChannel;
  return sendPacket(sngMessage(SngNet::COMM_FRQ, message), true);
}

bool QvClient::logout(uint8_t playerId) {
  return sendPacket(sngMessage(SngNet::LOGOUT, SngPlayerMsg{playerId}), true);
}

bool QvClient::crash(uint8_t playerId) {
  return sendPacket(sngMessage(SngNet::AIRCRAFT_CRASH, SngPlayerMsg{playerId}), true);
}

bool QvClient::inactive(uint8_t playerId) {
  return sendPacket(sngMessage(SngNet::AIRCRAFT_INACTIVE, SngPlayerMsg{playerId}), true);
}

bool QvClient::serverScan() {
  return sendRaw({SngNet::SERVER_SCAN}, true, SngNet::RELIABLE_CHANNEL);
}

QvLoginAnswer QvClient::loginAndWait(uint8_t versionMajor, uint8_t versionMinor, uint32_t hwId,
                                     const std::string& pilotName, const std::string& nick,
                                     std::chrono::milliseconds deadline) {
  QvLoginAnswer answer;
  if (!login(versionMajor, versionMinor, hwId, pilotName, nick)) return answer;
  // RESULT_OK belongs to CONNECT; the other result bytes are taken so that a wrong one shows.
  const auto reply = waitFor(
      [](const QvMessage& m) {
        return !m.bytes.empty() &&
               (m.opcode == SngNet::SERVER_INFO || (isResultByte(m.opcode) && m.opcode != SngNet::RESULT_OK));
      },
      deadline);
  if (!reply) return answer;
  answer.answered = true;
  answer.opcode = reply->opcode;
  if (reply->opcode == SngNet::SERVER_INFO) answer.info = qvDecode<SngServerInfoMsg>(*reply);
  return answer;
}

QvJoinAnswer QvClient::joinAndWait(const SngConnectMsg& message, std::chrono::milliseconds deadline) {
  QvJoinAnswer answer;
  if (!connectAircraft(message)) return answer;
  const auto reply =
      waitFor([](const QvMessage& m) { return !m.bytes.empty() && isResultByte(m.opcode); }, deadline);
  if (!reply) return answer;
  answer.answered = true;
  answer.opcode = reply->opcode;
  if (reply->opcode == SngNet::RESULT_OK) answer.ok = qvDecode<SngResultOkMsg>(*reply);
  return answer;
}
