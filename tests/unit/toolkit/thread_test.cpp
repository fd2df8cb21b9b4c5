#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "toolkit/BtkObject.h"
#include "toolkit/BtkThread.h"

namespace {

using Clock = std::chrono::steady_clock;

template <class Pred>
bool pollUntil(Pred pred, std::chrono::milliseconds deadline) {
  const auto end = Clock::now() + deadline;
  while (Clock::now() < end) {
    if (pred()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return pred();
}

TEST(Semaphore, PostsBeforeWaitsAreKeptAndTheNextWaitBlocks) {
  BtkSemaphore sem(0);
  sem.post();
  sem.post();
  sem.wait();
  sem.wait();
  EXPECT_FALSE(sem.waitFor(50));  // the third wait would block
  std::thread poster([&] { sem.post(); });
  EXPECT_TRUE(sem.waitFor(5000));
  poster.join();
}

TEST(Semaphore, WakesAThreadWaitingForWork) {
  BtkSemaphore sem(0);
  std::atomic<int> batches{0};
  std::thread worker([&] {
    for (int i = 0; i < 3; ++i) {
      sem.wait();
      ++batches;
    }
  });
  for (int i = 0; i < 3; ++i) sem.post();
  worker.join();
  EXPECT_EQ(batches, 3);
}

class Tracked : public BtkObject {
 public:
  Tracked(std::atomic<std::thread::id>* diedOn, std::atomic<int>* deaths) : diedOn_(diedOn), deaths_(deaths) {}
  ~Tracked() override {
    *diedOn_ = std::this_thread::get_id();
    ++*deaths_;
  }

 private:
  std::atomic<std::thread::id>* diedOn_;
  std::atomic<int>* deaths_;
};

class Immortal : public Tracked {
 public:
  using Tracked::Tracked;
  bool mayDelete() override { return false; }
};

TEST(CountedRef, LastReferenceDroppedOnAnotherThreadDestroysTheObjectThere) {
  std::atomic<std::thread::id> diedOn{};
  std::atomic<int> deaths{0};
  BtkRef<Tracked> mine(new Tracked(&diedOn, &deaths));
  BtkRef<Tracked> theirs = mine;
  EXPECT_EQ(mine->refCount(), 2);
  mine.reset(nullptr);
  EXPECT_EQ(deaths, 0);
  std::thread::id workerId;
  std::thread worker([&] {
    workerId = std::this_thread::get_id();
    theirs.reset(nullptr);
  });
  worker.join();
  EXPECT_EQ(deaths, 1);
  EXPECT_EQ(diedOn.load(), workerId);
}

TEST(CountedRef, StoringTheSameObjectTwiceLeavesTheCountAlone) {
  std::atomic<std::thread::id> diedOn{};
  std::atomic<int> deaths{0};
  Tracked* object = new Tracked(&diedOn, &deaths);
  BtkRef<Tracked> field;
  field = object;
  field = object;
  EXPECT_EQ(object->refCount(), 1);
  BtkRef<Tracked> copy = field;
  field = copy;  // self-store through another reference
  EXPECT_EQ(object->refCount(), 2);
  field = BtkRef<Tracked>();
  copy = BtkRef<Tracked>();
  EXPECT_EQ(deaths, 1);
}

TEST(CountedRef, ObjectsThatVetoDeletionSurviveTheirLastReference) {
  std::atomic<std::thread::id> diedOn{};
  std::atomic<int> deaths{0};
  Immortal* object = new Immortal(&diedOn, &deaths);
  { BtkRef<Immortal> ref(object); }
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(object->refCount(), 0);
  delete object;
}

TEST(CountedRef, ConcurrentCopiesFromManyThreadsBalance) {
  std::atomic<std::thread::id> diedOn{};
  std::atomic<int> deaths{0};
  BtkRef<Tracked> shared(new Tracked(&diedOn, &deaths));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([shared] {
      for (int i = 0; i < 20000; ++i) {
        BtkRef<Tracked> local = shared;
        (void)local;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(shared->refCount(), 1);
  EXPECT_EQ(deaths, 0);
}

class Worker : public BtkThread {
 public:
  std::atomic<bool> stop{false};
  std::atomic<bool> leftThroughExit{false};
  std::atomic<int> turns{0};
  BtkSemaphore work{0};

 protected:
  void run() override {
    for (;;) {
      work.wait();
      if (stop) {
        leftThroughExit = true;
        BtkThread::exit();
      }
      ++turns;
    }
  }
};

TEST(Thread, WorkerPatternRunsOneBatchPerPostAndStopsThroughExit) {
  Worker worker;
  ASSERT_TRUE(worker.start());
  worker.work.post();
  worker.work.post();
  ASSERT_TRUE(pollUntil([&] { return worker.turns == 2; }, std::chrono::seconds(5)));
  worker.stop = true;
  worker.work.post();
  worker.wait();
  EXPECT_TRUE(worker.leftThroughExit);
  EXPECT_EQ(worker.turns, 2);
}

TEST(Thread, WaitOnANeverStartedThreadReturnsAtOnce) {
  Worker worker;
  worker.wait();
  SUCCEED();
}

TEST(Thread, UsleepSleepsAtLeastTheWholeMillisecondsPlusOne) {
  // Lower bounds only: a loaded machine may sleep longer, never shorter.
  for (auto [us, minMs] : {std::pair{0u, 1.0}, {999u, 1.0}, {1000u, 2.0}, {5500u, 6.0}}) {
    const auto start = Clock::now();
    BtkThread::usleep(us);
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    EXPECT_GE(ms, minMs) << us << " us";
  }
}

TEST(Lock, IsRecursiveAndTryEnterFailsFromAnotherThreadWhileHeld) {
  BtkLock lock;
  lock.enter();
  EXPECT_TRUE(lock.tryEnter());  // same thread: recursive
  bool otherGotIt = true;
  std::thread other([&] { otherGotIt = lock.tryEnter(); });
  other.join();
  EXPECT_FALSE(otherGotIt);
  lock.leave();
  lock.leave();
  std::thread after([&] {
    otherGotIt = lock.tryEnter();
    if (otherGotIt) lock.leave();
  });
  after.join();
  EXPECT_TRUE(otherGotIt);
}

}  // namespace
