// Root of the toolkit's class tree and the counted references that share objects between threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

class BtkObject {
 public:
  BtkObject() = default;
  BtkObject(const BtkObject&) : refCount_(0) {}  // a copy is a new object: nobody refers to it yet
  BtkObject& operator=(const BtkObject&) { return *this; }
  virtual ~BtkObject() = default;

  // Scene-graph and terrain classes may veto their own deletion; everything else agrees.
  virtual bool mayDelete() { return true; }

  int32_t refCount() const { return refCount_.load(std::memory_order_acquire); }

 private:
  template <class T>
  friend class BtkRef;

  void takeRef() { refCount_.fetch_add(1, std::memory_order_relaxed); }
  // Whoever drops the last reference frees the object, on whatever thread that happens.
  void dropRef() {
    if (refCount_.fetch_sub(1, std::memory_order_acq_rel) == 1 && mayDelete()) delete this;
  }

  std::atomic<int32_t> refCount_{0};
};

// A counted reference: takes a reference when it starts pointing at an object and drops it when it
// stops. Storing the object it already holds changes nothing, so the count never dips to zero on the way.
template <class T>
class BtkRef {
 public:
  BtkRef() = default;
  BtkRef(T* object) { reset(object); }  // NOLINT: implicit, like a raw pointer field
  BtkRef(const BtkRef& other) { reset(other.object_); }
  BtkRef(BtkRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  BtkRef(const BtkRef<U>& other) {  // NOLINT: derived to base
    reset(other.get());
  }
  ~BtkRef() { reset(nullptr); }

  BtkRef& operator=(const BtkRef& other) {
    reset(other.object_);
    return *this;
  }
  BtkRef& operator=(BtkRef&& other) noexcept {
    if (this != &other) {
      reset(nullptr);
      object_ = std::exchange(other.object_, nullptr);
    }
    return *this;
  }
  BtkRef& operator=(T* object) {
    reset(object);
    return *this;
  }

  // The store rule: a different object drops the old reference and takes one on the new.
  void reset(T* object) {
    if (object == object_) return;
    T* old = object_;
    object_ = object;
    if (object_) static_cast<BtkObject*>(object_)->takeRef();
    if (old) static_cast<BtkObject*>(old)->dropRef();
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  friend bool operator==(const BtkRef& a, const BtkRef& b) { return a.object_ == b.object_; }

 private:
  T* object_ = nullptr;
};

template <class T, class... Args>
BtkRef<T> btkMakeRef(Args&&... args) {
  return BtkRef<T>(new T(std::forward<Args>(args)...));
}
