#include "terrain/GgDataReaderThread.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>

#include "terrain/GgDataReader.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr unsigned kIdleSleepUs = 2000;  // between two rounds over the readers
constexpr unsigned kExitPollUs = 1000;   // while the destructor waits for the run loop to end
constexpr int kExitPollTries = 10000;

uintptr_t address(const void* p) {
  return reinterpret_cast<uintptr_t>(p);
}

}  // namespace

GgDataReaderThread::GgDataReaderThread() {
  btkLogger.log(BTK_DEBUG, "new GgDataReaderThread() this = 0x%" PRIxPTR, address(this));
}

GgDataReaderThread::~GgDataReaderThread() {
  btkLogger.log(BTK_DEBUG, "~GgDataReaderThread() this = 0x%" PRIxPTR, address(this));
  if (isRunning()) {
    {
      BtkLockGuard guard(lock_);
      stop_ = true;
    }
    btkLogger.log(BTK_DEBUG, "Waiting for reader thread to exit...");
    for (int i = 0; i < kExitPollTries; ++i) {
      BtkThread::usleep(kExitPollUs);
      if (!isRunning()) {
        btkLogger.log(BTK_DEBUG, " - ok");
        // The run loop has cleared its flag and is on its way out; joining lets it leave this object
        // before the object's memory goes.
        wait();
        break;
      }
    }
  } else if (started_) {
    // Started but not yet running: the flag comes a moment after the start. Tell it to stop and wait.
    {
      BtkLockGuard guard(lock_);
      stop_ = true;
    }
    wait();
  }
  btkLogger.log(BTK_DEBUG, " - killing GgDataReaderThread");
  BtkLockGuard guard(lock_);
  readers_.clear();
}

void GgDataReaderThread::addReader(GgDataReader* reader) {
  BtkLockGuard guard(lock_);
  readers_.emplace_back(reader);
  reader->setThread(this);
}

void GgDataReaderThread::removeReader(GgDataReader* reader) {
  BtkLockGuard guard(lock_);
  readers_.erase(std::remove_if(readers_.begin(), readers_.end(),
                                [reader](const BtkRef<GgDataReader>& r) { return r.get() == reader; }),
                 readers_.end());
}

void GgDataReaderThread::startOnce() {
  BtkLockGuard guard(lock_);
  if (started_) return;
  started_ = start();
}

bool GgDataReaderThread::isRunning() {
  BtkLockGuard guard(lock_);
  return running_;
}

size_t GgDataReaderThread::numReaders() {
  BtkLockGuard guard(lock_);
  return readers_.size();
}

bool GgDataReaderThread::stopRequested() {
  BtkLockGuard guard(lock_);
  return stop_;
}

void GgDataReaderThread::run() {
  {
    BtkLockGuard guard(lock_);
    running_ = true;
  }
  btkLogger.log(BTK_DEBUG, "Data reader thread is running (this = 0x%" PRIxPTR ")", address(this));
  while (!stopRequested()) {
    {
      BtkLockGuard guard(lock_);
      for (auto& reader : readers_) reader->serve();
    }
    BtkThread::usleep(kIdleSleepUs);
  }
  btkLogger.log(BTK_DEBUG, " - data reader exit (this = 0x%" PRIxPTR ")", address(this));
  BtkLockGuard guard(lock_);
  running_ = false;
}
