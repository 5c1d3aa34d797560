// Shadow record store: external identities of a session, told apart by attribute type and subtype.
// Entries come from the named allocator, their values from the shadow value pool. Invariants: a
// list holds a subtype once; the entry written last is its head. Traces go to the host application.
#include "kivo/shadow_db.h"

#include <cstring>

#include "alloc_tags.h"
#include "platform/aaa.h"
#include "platform/named_alloc.h"
#include "trace.h"

using namespace kivo;

namespace {

// Size classes of the value pool: size, count, flags, name; their identifiers stand in the table
// below in the same order. The last serves what no other holds, from general memory.
constexpr variable_chunk_class shadowdb_attr_chunk_config[SHADOWDB_VALUE_CLASSES] = {
    {32, 16384, 1, "Shadow 32", {}},  {64, 4096, 1, "Shadow 64", {}},
    {128, 2048, 1, "Shadow 128", {}}, {256, 2048, 1, "Shadow 256", {}},
    {0, 0, 0, "Shadow malloc", {}},
};

}  // namespace

variable_chunk_pool *shadow_attr_chunk = nullptr;
const char *const shadowdb_attr_chunk_config_name_info[SHADOWDB_VALUE_CLASSES] = {
    shadowdb_attr_chunk_config[0].name, shadowdb_attr_chunk_config[1].name,
    shadowdb_attr_chunk_config[2].name, shadowdb_attr_chunk_config[3].name,
    shadowdb_attr_chunk_config[4].name};
const uint32_t shadowdb_attr_chunk_config_id_info[SHADOWDB_VALUE_CLASSES] = {22, 23, 24, 25, 26};

namespace {

constexpr uint32_t kIdentityTypes[SHADOWDB_ATTR_INDEXES] = {
    AAA_ATTR_EXT_CLASS, AAA_ATTR_EXT_USER,        AAA_ATTR_EXT_DEVICE,  AAA_ATTR_EXT_GROUP,
    AAA_ATTR_EXT_TAG,   AAA_ATTR_EXT_CERTIFICATE, AAA_ATTR_EXT_LOCATION};

constexpr uint32_t kIdMask = 0xfffff;
constexpr uint32_t kLengthMax = UINT16_MAX;
constexpr uint16_t kDefaultSubtype = 1;

const char *type_name(uint32_t type) noexcept { return aaa_dict_get_attr_name(type); }

// The slot of an external identity's type, SHADOWDB_ATTR_INDEXES for any other type.
uint32_t identity_index(uint32_t type) noexcept {
  uint32_t index = 0;
  while (index < SHADOWDB_ATTR_INDEXES && kIdentityTypes[index] != type) ++index;
  return index;
}

// The value's first word, or 1. has_word is false for a value that is written and too short to have
// one; whoever removes hands over a word, whatever length he names.
uint16_t shadowdb_decode_subtype(uint32_t type, const void *value, bool has_word) noexcept {
  uint16_t subtype = kDefaultSubtype;
  if (identity_index(type) < SHADOWDB_ATTR_INDEXES) {
    if (value == nullptr) {
      kivo_trace_shadow(kShadowFailure, msg::kShadowDecodeFailed, type_name(type));
    } else if (has_word) {
      std::memcpy(&subtype, value, sizeof(subtype));
    }
  }
  kivo_trace_shadow(kShadowDetail, msg::kShadowDecoded, type_name(type), int{subtype});
  return subtype;
}

void release_entry(shadowdb_attr_entry *entry) noexcept {
  variable_chunk_free(shadow_attr_chunk, entry->value);
  named_free(entry);
}

// The link that points at the list's entry of that subtype, or its null end.
shadowdb_attr_entry **find_link(shadowdb_attr_entry *&head, uint16_t subtype) noexcept {
  shadowdb_attr_entry **link = &head;
  while (*link != nullptr && (*link)->subtype != subtype) link = &(*link)->next;
  return link;
}

void unlink_and_release(shadowdb_attr_entry **link) noexcept {
  shadowdb_attr_entry *entry = *link;
  *link = entry->next;
  release_entry(entry);
}

// A filled entry with its own copy of the value; null, after a trace, without memory.
shadowdb_attr_entry *make_entry(uint32_t type, const void *value, uint32_t length) noexcept {
  auto *entry = static_cast<shadowdb_attr_entry *>(
      NAMED_ALLOC(kTagShadowEntry, "shadow entry", sizeof(shadowdb_attr_entry)));
  if (entry == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowNoEntryMemory, type_name(type));
    return nullptr;
  }
  entry->next = nullptr;
  entry->subtype = shadowdb_decode_subtype(type, value, length >= sizeof(uint16_t));
  entry->attr_type = type;
  entry->length = static_cast<uint16_t>(length);
  entry->value = static_cast<uint8_t *>(variable_chunk_malloc(shadow_attr_chunk, length));
  if (entry->value == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowNoValueMemory, type_name(type),
                      int{entry->subtype}, static_cast<int>(length));
    named_free(entry);
    return nullptr;
  }
  if (length != 0) std::memcpy(entry->value, value, length);
  return entry;
}

// Puts the entry at the head, in the place of one with its subtype.
void file_entry(shadowdb_attr_entry *&head, shadowdb_attr_entry *entry) noexcept {
  const uint32_t type = entry->attr_type;
  const int subtype = entry->subtype;
  if (head == nullptr) {
    kivo_trace_shadow(kShadowProgress, msg::kShadowAdding, type_name(type), subtype);
  } else {
    kivo_trace_shadow(kShadowProgress, msg::kShadowUpdating, type_name(type), subtype);
    shadowdb_attr_entry **link = find_link(head, entry->subtype);
    if (*link != nullptr) {
      kivo_trace_shadow(kShadowDetail, msg::kShadowReplacing, type_name(type), subtype);
      unlink_and_release(link);
    }
  }
  entry->next = head;
  head = entry;
}

// The allocation tag of a size class, 0 for a name that is none.
uint32_t shadowdb_attr_chunk_name_to_id(const char *name) noexcept {
  if (name == nullptr) fatal_stop("name", "core/src/shadow_db", 603);
  for (uint32_t i = 0; i < SHADOWDB_VALUE_CLASSES; ++i) {
    if (std::strcmp(name, shadowdb_attr_chunk_config_name_info[i]) == 0) {
      return (shadowdb_attr_chunk_config_id_info[i] & kIdMask) | kTagBase;
    }
  }
  return 0;
}

}  // namespace

void kivo_shadowdb_init(void) noexcept {
  if (shadow_attr_chunk != nullptr) return;
  shadow_attr_chunk = variable_chunk_create_ext(shadowdb_attr_chunk_config, SHADOWDB_VALUE_CLASSES,
                                                0, shadowdb_attr_chunk_name_to_id);
}

// Apart, so that the question is short without it: every write asks.
[[gnu::noinline]] static uint32_t trace_class(uint32_t type, uint32_t is_identity) noexcept {
  kivo_trace_shadow(kShadowDetail, msg::kShadowClass, type_name(type),
                    is_identity != 0 ? "an" : "not an");
  return is_identity;
}

uint32_t kivo_check_is_shadow_attrib(uint32_t type, uint32_t *index) noexcept {
  const uint32_t found = identity_index(type);
  const uint32_t is_identity = found < SHADOWDB_ATTR_INDEXES ? 1 : 0;
  if (is_identity != 0) *index = found;
  return trace_enabled(TRACE_MODULE_HOST_APP, kShadowDetail) != 0 ? trace_class(type, is_identity)
                                                                  : is_identity;
}

shadowdb_rec *shadowdb_alloc_record(uint32_t label) noexcept {
  auto *record = static_cast<shadowdb_rec *>(
      NAMED_ALLOC(kTagShadowRecord, "shadow record", sizeof(shadowdb_rec)));
  if (record == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowNoRecordMemory, label);
    return nullptr;
  }
  kivo_trace_shadow(kShadowProgress, msg::kShadowNewRecord, label);
  record->label = label;
  record->has_identities = 0;
  for (shadowdb_attr_entry *&head : record->attr_lists) head = nullptr;
  return record;
}

uint32_t shadowdb_destroy_record(shadowdb_rec *record) noexcept {
  if (record == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowCleanupNull);
    kivo_trace_shadow(kShadowFailure, msg::kShadowCleanupArgument);
    return 1;
  }
  for (uint32_t index = SHADOWDB_ATTR_INDEXES; index-- > 0;) {
    while (record->attr_lists[index] != nullptr) unlink_and_release(&record->attr_lists[index]);
  }
  kivo_trace_shadow(kShadowDetail, msg::kShadowFreed, record->label);
  named_free(record);
  return 1;
}

uint32_t shadowdb_add_or_update_attr(shadowdb_rec *record, uint32_t index, uint32_t type,
                                     const void *value, uint32_t length,
                                     uint32_t *changed) noexcept {
  if (record == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowStoreFailed, type_name(type));
    return KIVO_ERR_INVALID_VALUE;
  }
  if ((value == nullptr && length != 0) || index >= SHADOWDB_ATTR_INDEXES || length > kLengthMax) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowStoreFailed, type_name(type));
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_shadow(kShadowProgress, msg::kShadowWrite, type_name(type), length, record->label);
  shadowdb_attr_entry *entry = make_entry(type, value, length);
  if (entry == nullptr) return KIVO_ERR_NO_MEMORY;
  file_entry(record->attr_lists[index], entry);
  *changed = 1;
  record->has_identities = 1;
  return PLATFORM_OK;
}

uint32_t shadowdb_remove_attr(shadowdb_rec *record, uint32_t index, uint32_t type, uint32_t,
                              const void *value) noexcept {
  if (record == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowInvalidRecord);
    return KIVO_ERR_INVALID_ARG;
  }
  if (index >= SHADOWDB_ATTR_INDEXES) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowBadIndex, static_cast<int>(index));
    return KIVO_ERR_INVALID_ARG;
  }
  const uint16_t subtype = shadowdb_decode_subtype(type, value, true);
  shadowdb_attr_entry **link = find_link(record->attr_lists[index], subtype);
  if (*link == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowNotPresent, type_name(type), int{subtype});
    return PLATFORM_OK;
  }
  kivo_trace_shadow(kShadowProgress, msg::kShadowRemoving, type_name(type), int{subtype});
  unlink_and_release(link);
  return PLATFORM_OK;
}
