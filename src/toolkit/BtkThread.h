// A thread whose subclass puts its work in run(), a counting semaphore, and recursive locks.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "toolkit/BtkObject.h"

class BtkThread : public BtkObject {
 public:
  // Neither stops nor joins the thread: stopping is each subclass's business (its own flag and wake-up).
  ~BtkThread() override;

  bool start();
  // Blocks until the thread has ended; returns at once for a thread that never started.
  void wait();
  // Ends the calling thread at once; called from inside run() by a thread told to stop.
  [[noreturn]] static void exit();
  // Sleeps microseconds / 1000 + 1 milliseconds: never less than 1 ms.
  static void usleep(unsigned microseconds);
  static void yield();

 protected:
  virtual void run() = 0;

 private:
  static void* trampoline(void* self);

  pthread_t handle_{};
  bool started_ = false;
  bool joined_ = false;
};

class BtkSemaphore : public BtkObject {
 public:
  explicit BtkSemaphore(uint32_t initialCount = 0) : count_(initialCount) {}
  // A post while nobody waits is kept, so no wake-up is lost.
  void post();
  void wait();
  // Like wait, but gives up after timeoutMs; true when a post was taken.
  bool waitFor(int timeoutMs);

 private:
  std::mutex mutex_;
  std::condition_variable cond_;
  uint32_t count_;
};

// A recursive lock with try-enter. The logger, the web reporter and the terrain reader use one each.
class BtkLock {
 public:
  void enter() { mutex_.lock(); }
  void leave() { mutex_.unlock(); }
  bool tryEnter() { return mutex_.try_lock(); }

 private:
  std::recursive_mutex mutex_;
};

class BtkLockGuard {
 public:
  explicit BtkLockGuard(BtkLock& lock) : lock_(lock) { lock_.enter(); }
  ~BtkLockGuard() { lock_.leave(); }
  BtkLockGuard(const BtkLockGuard&) = delete;
  BtkLockGuard& operator=(const BtkLockGuard&) = delete;

 private:
  BtkLock& lock_;
};
