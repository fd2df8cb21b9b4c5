#include "net/SngPlayerTable.h"

SngPlayerTable::~SngPlayerTable() { clear(); }

int SngPlayerTable::count() const {
  int n = 0;
  for (const auto& player : slots_) n += player != nullptr;
  return n;
}

int SngPlayerTable::freeSlot() const {
  for (size_t slot = 0; slot < slots_.size(); ++slot) {
    if (!slots_[slot]) return static_cast<int>(slot);
  }
  return -1;
}

void SngPlayerTable::seat(std::unique_ptr<SngSrvPlayer> player) {
  const uint32_t id = player->player_id;
  if (id < slots_.size() && !slots_[id]) slots_[id] = std::move(player);
}

void SngPlayerTable::remove(uint32_t id) {
  if (id >= slots_.size() || !slots_[id]) return;
  removed_.push_back(std::move(slots_[id]));
  if (defer_depth_ == 0) removed_.clear();
}

void SngPlayerTable::clear() {
  for (auto& player : slots_) player.reset();
  removed_.clear();
}
