// SessionSlots: taking and giving back contexts, binding them to labels.
// Threads: none; the process serialises all calls.
#include "session_slots.h"

#include "prefetch.h"

namespace kivo_platform {

constinit SessionSlots sessions;

// Mixes a label over 32 bits. One to one: two labels with the same hash are the same label, which
// is why the directory never looks at a record to compare.
static std::uint32_t hash_label(std::uint32_t label) noexcept {
  std::uint32_t h = label;
  h = (h ^ (h >> 16)) * UINT32_C(0x85ebca6b);
  h = (h ^ (h >> 13)) * UINT32_C(0xc2b2ae35);
  return h ^ (h >> 16);
}

static constexpr auto any = [](std::uint32_t) { return true; };

auth_ctxt *SessionSlots::take() noexcept {
  std::uint32_t slot = 0;
  if (free_slot_ != 0) {
    slot = free_slot_ - 1;
    free_slot_ = contexts_[slot].next_free;
  } else {
    // Labels grow first; when the contexts then cannot, the larger label array waits for them.
    if (slots_used_ == labels_.capacity() && !labels_.grow()) return nullptr;
    if (slots_used_ == contexts_.capacity() && !contexts_.grow()) return nullptr;
    slot = slots_used_++;
  }
  ++live_;
  auth_ctxt *ctxt = &contexts_[slot];
  ctxt->record = {};
  ctxt->record.ctxt = ctxt;
  ctxt->shadow = nullptr;
  ctxt->slot = slot;
  return ctxt;
}

void SessionSlots::give_back(auth_ctxt *ctxt) noexcept {
  const std::uint32_t slot = ctxt->slot;
  ctxt->record = {};
  ctxt->next_free = free_slot_;
  free_slot_ = slot + 1;
  if (--live_ == 0)
    slots_used_ = free_slot_ = 0;  // an empty store begins with the first slot again
}

void SessionSlots::bind(auth_ctxt *ctxt, std::uint32_t label) noexcept {
  labels_to_slots_.insert(hash_label(label), ctxt->slot);
  ctxt->record.label = label;
  labels_[ctxt->slot] = label;
}

void SessionSlots::unbind(auth_ctxt *ctxt) noexcept {
  const std::uint32_t hash = hash_label(ctxt->record.label);
  labels_to_slots_.erase(hash, labels_to_slots_.find(hash, any));
  labels_[ctxt->slot] = 0;
  ctxt->record.label = 0;
}

auth_ctxt *SessionSlots::find(std::uint32_t label) noexcept {
  if (label == 0) return nullptr;
  found_last_ = label;
  const auto slot = labels_to_slots_.find(hash_label(label), any);
  if (!slot) return nullptr;
  auth_ctxt *ctxt = &contexts_[*slot];
  fetch_ahead(ctxt);  // hardly ever looked for without being read
  return ctxt;
}

}  // namespace kivo_platform
