#include "testutil/ServerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>

extern char** environ;

ServerProcess::ServerProcess(const std::string& outputDir)
    : stdoutPath_(outputDir + "/stdout.txt"), stderrPath_(outputDir + "/stderr.txt") {
  std::filesystem::create_directories(outputDir);
}

ServerProcess::~ServerProcess() {
  sendSignal(SIGKILL);
  reap(true);
}

bool ServerProcess::start(const std::string& program, std::vector<std::string> args,
                          const std::map<std::string, std::string>& env) {
  std::vector<std::string> environment;
  for (const auto& [key, value] : env) environment.push_back(key + "=" + value);
  for (char** entry = environ; *entry; ++entry)
    if (!env.contains(std::string(*entry, strcspn(*entry, "=")))) environment.push_back(*entry);
  args.insert(args.begin(), program);
  std::vector<char*> argv, envp;
  for (auto& arg : args) argv.push_back(arg.data());
  for (auto& entry : environment) envp.push_back(entry.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  // posix_spawn, not fork: none of our code runs in the child before exec, so a lock that another thread
  // of the test held at the fork cannot hang it.
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, stdoutPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, 2, stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (posix_spawn(&pid_, program.c_str(), &files, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
  posix_spawn_file_actions_destroy(&files);
  return pid_ > 0;
}

bool ServerProcess::reap(bool block) {
  int status = 0;
  if (pid_ > 0 && waitpid(pid_, &status, block ? 0 : WNOHANG) == pid_) {
    pid_ = -1;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return pid_ <= 0;
}
