// Runs a real program (the server or a tool) in a child process with its own environment, standard
// output and error captured to files, and a deadline on everything.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "testutil/Files.h"
#include "testutil/Poll.h"

class ServerProcess {
 public:
  // The child's standard output and error go to outputDir/stdout.txt and stderr.txt.
  explicit ServerProcess(const std::string& outputDir);
  ~ServerProcess();  // kills the child if it still runs
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // env entries replace or add to the inherited environment. False when the program could not be started.
  bool start(const std::string& program, std::vector<std::string> args,
             const std::map<std::string, std::string>& env = {});
  bool running() { return !reap(false); }
  // Waits for the exit; false when the deadline passed first.
  bool waitExit(std::chrono::milliseconds deadline) {
    return pollUntil([&] { return reap(false); }, deadline);
  }
  int exitCode() const { return exitCode_; }  // -1 when killed by a signal or still running
  void sendSignal(int signo) { pid_ > 0 ? kill(pid_, signo) : 0; }
  std::string stderrText() const { return readText(stderrPath_); }
  const std::string& stderrPath() const { return stderrPath_; }

 private:
  bool reap(bool block);  // true once the child has exited (or never started) and was waited for

  std::string stdoutPath_, stderrPath_;
  pid_t pid_ = -1;
  int exitCode_ = -1;
};

// Polls a file (a log, or a child's captured output) until it contains the text.
inline bool waitForText(const std::string& path, const std::string& text,
                        std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
  return pollUntil([&] { return readText(path).find(text) != std::string::npos; }, deadline);
}
