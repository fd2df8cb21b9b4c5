// Runs a real program (the server or a tool) in a child process with its own environment, standard
// output and error captured to files, and a deadline on everything.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

class ServerProcess {
 public:
  // env entries replace or add to the inherited environment.
  ServerProcess(std::string program, std::vector<std::string> args, std::map<std::string, std::string> env,
                std::string outputDir);
  ~ServerProcess();  // kills the child if it still runs
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool start();
  bool running();
  // Waits for the exit; false when the deadline passed first.
  bool waitExit(std::chrono::milliseconds deadline);
  int exitCode() const { return exitCode_; }  // -1 when killed by a signal or still running
  int termSignal() const { return termSignal_; }
  void sendSignal(int signo);
  std::string stdoutText() const;
  std::string stderrText() const;
  // The files the child's standard output and error go to, for waitForText.
  const std::string& stdoutPath() const { return stdoutPath_; }
  const std::string& stderrPath() const { return stderrPath_; }
  pid_t pid() const { return pid_; }

 private:
  bool reap(bool block);

  std::string program_;
  std::vector<std::string> args_;
  std::map<std::string, std::string> env_;
  std::string stdoutPath_, stderrPath_;
  pid_t pid_ = -1;
  bool exited_ = false;
  int exitCode_ = -1;
  int termSignal_ = 0;
};

// Polls a file (a log, or a child's captured output) until it contains the text.
bool waitForText(const std::string& path, const std::string& text,
                 std::chrono::milliseconds deadline = std::chrono::seconds(10));
