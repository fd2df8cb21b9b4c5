// Message kinds, answer codes and delivery constants of the client protocol. Every message is one
// ENet packet whose first byte is one of these values.
#pragma once

#include <cstddef>
#include <cstdint>

#include "session/SngLaunch.h"

namespace SngNet {

// Opcodes. 2 and 5 are never sent and have no meaning.
constexpr uint8_t PING = 0;
constexpr uint8_t CONNECT = 1;
constexpr uint8_t LOGIN = 3;
constexpr uint8_t LOGOUT = 4;
constexpr uint8_t EXISTING_AIRCRAFT = 6;
constexpr uint8_t AIRCRAFT_STATE = 7;
constexpr uint8_t PLAYER_LEFT = 8;
constexpr uint8_t NEW_AIRCRAFT = 9;
constexpr uint8_t THERMAL = 10;
constexpr uint8_t CHAT_MSG = 11;
constexpr uint8_t TIME_SYNC = 12;
constexpr uint8_t SERVER_INFO = 13;
constexpr uint8_t AIRCRAFT_CRASH = 14;
constexpr uint8_t TASK_UPDATE = 15;
constexpr uint8_t EXTRA_AIRCRAFT_STATE = 16;
constexpr uint8_t AIRCRAFT_INACTIVE = 17;
constexpr uint8_t VOICE_CHAT = 18;
constexpr uint8_t COMM_FRQ = 19;
constexpr uint8_t SHUTDOWN_MSG = 20;
constexpr uint8_t SERVER_SCAN = 21;

// Answers to CONNECT (OK, unknown player) and LOGIN (server full, version too old). All but
// RESULT_OK travel as a message of this single byte.
constexpr uint8_t RESULT_OK = 160;
constexpr uint8_t RESULT_SERVER_FULL = 166;
constexpr uint8_t RESULT_UNKNOWN_PLAYER = 167;
constexpr uint8_t RESULT_VERSION_TOO_OLD = 168;

// Version 1.08: sent in SERVER_INFO; LOGIN accepts clients of this version or newer.
constexpr uint8_t PROTOCOL_VERSION_MAJOR = 1;
constexpr uint8_t PROTOCOL_VERSION_MINOR = 8;

// The ENet host has two channels: reliable messages on 0 (ENet's reliable flag), unreliable
// sequenced ones on 1 (no flags). Never mixed.
constexpr uint8_t RELIABLE_CHANNEL = 0;
constexpr uint8_t UNRELIABLE_CHANNEL = 1;
constexpr size_t CHANNEL_COUNT = 2;

// Launch methods of CONNECT and of the aircraft announcements; any other value has no launch block.
constexpr uint8_t LAUNCH_AEROTOW = SngLaunch::AEROTOW;
constexpr uint8_t LAUNCH_WINCH = SngLaunch::WINCH;

// AIRCRAFT_STATE and EXTRA_AIRCRAFT_STATE: opcode, player ID, then the state body.
constexpr size_t AIRCRAFT_STATE_BODY_SIZE = 59;                               // bytes
constexpr size_t AIRCRAFT_STATE_MESSAGE_SIZE = 2 + AIRCRAFT_STATE_BODY_SIZE;  // 61 bytes

// The opcodes a client may send and the server handles; every other first byte is unknown.
constexpr bool isClientOpcode(uint8_t opcode) {
  switch (opcode) {
    case CONNECT:
    case LOGIN:
    case LOGOUT:
    case AIRCRAFT_STATE:
    case CHAT_MSG:
    case AIRCRAFT_CRASH:
    case EXTRA_AIRCRAFT_STATE:
    case AIRCRAFT_INACTIVE:
    case VOICE_CHAT:
    case COMM_FRQ:
    case SERVER_SCAN:
      return true;
    default:
      return false;
  }
}

}  // namespace SngNet
