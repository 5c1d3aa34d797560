// See abandoned.h. A block is a kivo_abandoned header followed by rows or entries.
#include "abandoned.h"

#include "alloc_tags.h"
#include "kivo/notification.h"
#include "platform/named_alloc.h"

// In front of every configuration and acceleration table.
struct kivo_abandoned {
  kivo_abandoned *next;
  uint64_t n_entries;  // of an acceleration table, 0 for a configuration
};

namespace kivo {
namespace {

static_assert(sizeof(kivo_abandoned) % alignof(kivo_accel_entry) == 0);

template <typename Payload>
Payload *payload_of(kivo_abandoned *header) noexcept {
  return reinterpret_cast<Payload *>(header + 1);
}

kivo_abandoned *header_of(void *payload) noexcept {
  return static_cast<kivo_abandoned *>(payload) - 1;
}

void release_registrations(kivo_accel_entry &entry) noexcept {
  void *reg = queue_get_next(&entry.notify_regs, nullptr);
  while (reg != nullptr) {
    void *next = queue_get_next(&entry.notify_regs, reg);
    named_free(reg);
    reg = next;
  }
}

void release(kivo_abandoned *block) noexcept {
  auto *entries = payload_of<kivo_accel_entry>(block);
  for (uint64_t i = 0; i < block->n_entries; ++i) release_registrations(entries[i]);
  named_free(block);
}

void abandon(kivo_db &db, kivo_abandoned *block) noexcept {
  if (db.walks == 0) {
    release(block);
    return;
  }
  block->next = db.abandoned;
  db.abandoned = block;
}

}  // namespace

kivo_attr_config *allocate_config(uint32_t n) noexcept {
  void *block = NAMED_ZALLOC(kTagAttrConfig, "kivo attr config",
                             sizeof(kivo_abandoned) + n * sizeof(kivo_attr_config));
  return block == nullptr ? nullptr
                          : payload_of<kivo_attr_config>(static_cast<kivo_abandoned *>(block));
}

kivo_accel_entry *allocate_accel_table(uint32_t n) noexcept {
  auto *block = static_cast<kivo_abandoned *>(NAMED_ZALLOC(
      kTagAccelTable, "kivo accel table", sizeof(kivo_abandoned) + n * sizeof(kivo_accel_entry)));
  if (block == nullptr) return nullptr;
  block->n_entries = n;
  return payload_of<kivo_accel_entry>(block);
}

void abandon_config(kivo_db &db, kivo_attr_config *rows) noexcept {
  if (rows != nullptr) abandon(db, header_of(rows));
}

void abandon_accel_table(kivo_db &db, kivo_accel_entry *entries) noexcept {
  if (entries != nullptr) abandon(db, header_of(entries));
}

WalkPin::~WalkPin() {
  if (--db_.walks != 0) return;
  while (db_.abandoned != nullptr) {
    kivo_abandoned *block = db_.abandoned;
    db_.abandoned = block->next;
    release(block);
  }
}

}  // namespace kivo
