// The thread that serves the queued data requests of every block of a terrain group. Made by the
// group's constructor, started by the first block that joins it, stopped when its last holder (the
// group or a block's reader) lets it go. On the server every tile load is synchronous, so it idles.
#pragma once

#include <vector>

#include "toolkit/BtkObject.h"
#include "toolkit/BtkThread.h"

class GgDataReader;

class GgDataReaderThread : public BtkThread {
 public:
  GgDataReaderThread();
  ~GgDataReaderThread() override;

  // Adds the reader to the served list and gives it a reference to this thread.
  void addReader(GgDataReader* reader);
  void removeReader(GgDataReader* reader);
  // Starts the thread the first time it is asked. The run loop sets the running flag itself, a moment
  // after the start, so a second block initialised in between must not be told to start it again:
  // the start is guarded, not the flag.
  void startOnce();
  bool isRunning();
  BtkLock& lock() { return lock_; }
  size_t numReaders();

 protected:
  void run() override;

 private:
  bool stopRequested();

  BtkLock lock_;
  std::vector<BtkRef<GgDataReader>> readers_;
  bool stop_ = false;
  bool running_ = false;
  bool started_ = false;
};
