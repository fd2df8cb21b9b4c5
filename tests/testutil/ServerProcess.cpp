#include "testutil/ServerProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "testutil/Files.h"
#include "testutil/Poll.h"

extern char** environ;

ServerProcess::ServerProcess(std::string program, std::vector<std::string> args,
                             std::map<std::string, std::string> env, std::string outputDir)
    : program_(std::move(program)),
      args_(std::move(args)),
      env_(std::move(env)),
      stdoutPath_(outputDir + "/stdout.txt"),
      stderrPath_(outputDir + "/stderr.txt") {}

ServerProcess::~ServerProcess() {
  if (pid_ > 0 && !exited_) {
    kill(pid_, SIGKILL);
    reap(true);
  }
}

bool ServerProcess::start() {
  std::map<std::string, std::string> environment;
  for (char** entry = environ; *entry; ++entry) {
    const char* equals = strchr(*entry, '=');
    if (equals) environment[std::string(*entry, static_cast<size_t>(equals - *entry))] = equals + 1;
  }
  for (const auto& [key, value] : env_) environment[key] = value;
  std::vector<std::string> envStrings;
  for (const auto& [key, value] : environment) envStrings.push_back(key + "=" + value);

  pid_ = fork();
  if (pid_ < 0) return false;
  if (pid_ == 0) {
    const int out = open(stdoutPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int in = open("/dev/null", O_RDONLY);
    if (out < 0 || err < 0 || in < 0) _exit(127);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    std::vector<char*> argv{const_cast<char*>(program_.c_str())};
    for (auto& arg : args_) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (auto& entry : envStrings) envp.push_back(entry.data());
    envp.push_back(nullptr);
    execve(program_.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  return true;
}

bool ServerProcess::reap(bool block) {
  if (exited_) return true;
  int status = 0;
  const pid_t result = waitpid(pid_, &status, block ? 0 : WNOHANG);
  if (result != pid_) return false;
  exited_ = true;
  if (WIFEXITED(status)) exitCode_ = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) termSignal_ = WTERMSIG(status);
  return true;
}

bool ServerProcess::running() { return pid_ > 0 && !reap(false); }

bool ServerProcess::waitExit(std::chrono::milliseconds deadline) {
  if (pid_ <= 0) return false;
  return pollUntil([&] { return reap(false); }, deadline);
}

void ServerProcess::sendSignal(int signo) {
  if (pid_ > 0 && !exited_) kill(pid_, signo);
}

std::string ServerProcess::stdoutText() const { return readText(stdoutPath_); }
std::string ServerProcess::stderrText() const { return readText(stderrPath_); }

bool waitForText(const std::string& path, const std::string& text, std::chrono::milliseconds deadline) {
  return pollUntil([&] { return readText(path).find(text) != std::string::npos; }, deadline);
}
