#include "toolkit/BtkThread.h"

#include <sched.h>

#include <chrono>
#include <cstdio>
#include <thread>

BtkThread::~BtkThread() {
  // The thread is not stopped here; detaching only gives its resources back once it ends.
  if (started_ && !joined_) pthread_detach(handle_);
}

void* BtkThread::trampoline(void* self) {
  static_cast<BtkThread*>(self)->run();
  return nullptr;
}

bool BtkThread::start() {
  if (pthread_create(&handle_, nullptr, &BtkThread::trampoline, this) != 0) {
    fputs("BtkThread::start() failed!\n", stderr);
    return false;
  }
  started_ = true;
  joined_ = false;
  return true;
}

void BtkThread::wait() {
  if (!started_ || joined_) return;
  pthread_join(handle_, nullptr);
  joined_ = true;
}

void BtkThread::exit() { pthread_exit(nullptr); }

void BtkThread::usleep(unsigned microseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(microseconds / 1000 + 1));
}

void BtkThread::yield() { sched_yield(); }

void BtkSemaphore::post() {
  std::lock_guard<std::mutex> guard(mutex_);
  ++count_;
  cond_.notify_one();
}

void BtkSemaphore::wait() {
  std::unique_lock<std::mutex> guard(mutex_);
  cond_.wait(guard, [this] { return count_ > 0; });
  --count_;
}

bool BtkSemaphore::waitFor(int timeoutMs) {
  std::unique_lock<std::mutex> guard(mutex_);
  if (!cond_.wait_for(guard, std::chrono::milliseconds(timeoutMs), [this] { return count_ > 0; })) return false;
  --count_;
  return true;
}
