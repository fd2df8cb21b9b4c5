// Readable text for received messages, for operators watching a server with qvclient and for test
// failure messages. Every reader is bounds-checked: a message that is cut short or malformed is
// described as such, never misread.
#pragma once

#include <string>

#include "QvClient.h"

// "13:30:05" for 48605 s of the day; days beyond the first wrap; negative or non-finite times are shown
// as seconds.
std::string qvTimeOfDay(double seconds);
// "47.12345N 8.54321E".
std::string qvLatLon(double lat, double lon);
// "HELLO?" for text with control characters: those become '?', everything else (UTF-8 included) is kept.
std::string qvPrintable(const std::string& text);
// The name of an opcode or result byte ("CHAT_MSG", "RESULT_SERVER_FULL"), or "opcode 0x2A".
std::string qvOpcodeName(uint8_t opcode);

// One line, without a line break: the message's name and decoded fields, then how it was delivered.
std::string qvDescribeMessage(const QvMessage& message);
// The answer to an accepted CONNECT, one line: flags, date, time, voice codec, default radio channel.
std::string qvDescribeResultOk(const SngResultOkMsg& ok);
// The server info as a block of lines, each ending in "\n": date, time, scenery, airport and runway,
// thermals, wind and wind layers, start gate, every turnpoint with its zone, message of the day.
std::string qvDescribeServerInfo(const SngServerInfoMsg& info);
// One line per turnpoint, each ending in "\n", every line starting with `indent`.
std::string qvDescribeTask(const std::vector<SngTurnpoint>& task, const std::string& indent);
