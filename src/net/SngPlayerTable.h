// The player table: one slot per player ID, each owning its record. A record taken out of its slot
// during a pass is kept alive until the outermost pass ends, because code further up the stack of
// nested passes may still hold it (it checks `isSeated` before going on).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "player/SngSrvPlayer.h"

class SngPlayerTable {
 public:
  ~SngPlayerTable();

  void resize(size_t size) { slots_.resize(size); }
  size_t size() const { return slots_.size(); }
  SngSrvPlayer* at(uint32_t id) const { return id < slots_.size() ? slots_[id].get() : nullptr; }
  int count() const;
  bool isSeated(const SngSrvPlayer& player) const { return at(player.player_id) == &player; }
  // The first free slot, or -1.
  int freeSlot() const;
  void seat(std::unique_ptr<SngSrvPlayer> player);
  // Frees the slot at once; the record lives until no DeferScope is open.
  void remove(uint32_t id);
  void clear();

  // Marks a stretch of work (a pass, a service step) during which removed records stay alive.
  class DeferScope {
   public:
    explicit DeferScope(SngPlayerTable& table) : table_(table) { ++table_.defer_depth_; }
    ~DeferScope() {
      if (--table_.defer_depth_ == 0) table_.removed_.clear();
    }
    DeferScope(const DeferScope&) = delete;
    DeferScope& operator=(const DeferScope&) = delete;

   private:
    SngPlayerTable& table_;
  };

 private:
  std::vector<std::unique_ptr<SngSrvPlayer>> slots_;  // index = player ID; null = free
  std::vector<std::unique_ptr<SngSrvPlayer>> removed_;
  int defer_depth_ = 0;
};
