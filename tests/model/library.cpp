#include "model/library.h"

#include <algorithm>
#include <cstring>

#include "platform/named_alloc.h"
#include "support/failing_new.h"
#include "support/faults.h"

namespace kivo_model {
namespace {

Library *g_library = nullptr;
uint64_t g_blocks_before = 0;  // of the named allocator
attrdb_record g_no_record = {};
const char kNoValue = 0;

Labels labels_in(const kivo_index_list *list) {
  Labels labels;
  uint32_t size = 0;
  kivo_index_list_size(list, &size);
  for (uint32_t i = 0; i < size; ++i) {
    labels.push_back(0);
    kivo_index_list_get(list, i, &labels.back());
  }
  return labels;
}

Bytes bytes_of(const kivo_attr_value &value) {
  return {reinterpret_cast<const char *>(value.data), value.size};
}

Attrs contents(uint32_t list, size_t n_given) {
  Attrs attrs;
  aaa_cursor *cursor = nullptr;
  if (aaa_cursor_alloc(&cursor, list) != PLATFORM_OK) return attrs;
  uint32_t type = 0;
  while (aaa_cursor_get_next(cursor, &type) == PLATFORM_OK && type != 0) {
    uint32_t size = 0;
    const void *value = nullptr;
    aaa_cursor_get_value(cursor, &size, &value);
    attrs.emplace_back(type, Bytes(static_cast<const char *>(value), size));
  }
  aaa_cursor_free(cursor);
  // A record's own order of types is its own affair; that of one type's values is not.
  const auto first = static_cast<ptrdiff_t>(std::min(n_given, attrs.size()));
  std::stable_sort(attrs.begin() + first, attrs.end(),
                   [](const Attr &a, const Attr &b) { return a.first < b.first; });
  return attrs;
}

uint64_t blocks_of(const Labels &labels) { return labels.empty() ? 1 : (labels.size() + 11) / 12; }

}  // namespace

// ---- A call

Call::Call(Library &its_library, const Operation &operation, const Args &args)
    : library(its_library),
      op(operation),
      in(args),
      db(library.dbs[args.db]),
      label(args.named == Named::kByRecordAlone ? 0 : args.label),
      held(kivo_test::find_record(args.label)),
      record(args.named == Named::kByLabel ? nullptr : held),
      size(static_cast<uint32_t>(args.value.size())),
      found(&g_no_record),
      bytes(&kNoValue),
      padded_(args.value + Bytes(2, '\0')) {  // a word is read of however short an identity
  uint32_t stored_size = 0, count = 0;
  if (in.stored != 0) {
    auth_mgr_idc_get_attr(held->ctxt, in.stored, &value, &stored_size, &count);
    value = static_cast<const char *>(value) + in.offset;
  } else if (!in.null_value) {
    value = padded_.data();
  }
  for (const auto &[type, bytes_of_type] : in.attrs) {
    list_.add(type, bytes_of_type.data(), static_cast<uint32_t>(bytes_of_type.size()));
  }
  if (in.handle != Handle::kZero) attrs = list_.handle();
  if (in.handle == Handle::kStale) aaa_list_free(attrs);
  if ((op.flags & kAdopts) == 0) return;
  auth_mgr_idc_create_ctxt(&ctxt);
  for (const auto &[type, bytes_of_type] : in.attrs) {
    auth_mgr_idc_add_or_update_attr(ctxt, type, bytes_of_type.data(),
                                    static_cast<uint32_t>(bytes_of_type.size()), nullptr);
  }
}

Call::~Call() {
  auth_mgr_idc_destroy_ctxt(ctxt);  // does nothing to an adopted one
  kivo_index_list_free(labels);
}

Outcome Call::outcome(uint32_t status) {
  if (status == KIVO_ERR_FAILED) return {status};  // the outputs mean nothing then
  Outcome o{.status = status, .number = number, .length = length};
  if (found != &g_no_record) o.found = found == nullptr ? 0 : found->label;
  if (bytes != &kNoValue && bytes != nullptr) {
    o.attrs = {{in.type, Bytes(static_cast<const char *>(bytes), length)}};
  }
  if ((op.flags & kShowsAttrs) != 0) o.attrs = contents(attrs, in.attrs.size());
  o.has_list = labels != nullptr;
  o.labels = labels != nullptr ? labels_in(labels) : numbers;
  if (query == nullptr) return o;
  o.length = query->may_match + 2 * query->num_unindexed + 16 * query->num_candidates;
  for (const uint32_t one : labels_in(query->candidates)) o.labels.push_back(one);
  for (uint32_t i = 0; i < query->num_unindexed; ++i) {
    o.attrs.emplace_back(query->unindexed[i].aaa_type, bytes_of(query->unindexed[i]));
  }
  return o;
}

// ---- The library

Library::Library(Announce announce) : announce_(std::move(announce)) {
  g_library = this;
  kivo_test::reset_process();
  kivo_notify_old_value = {};  // as the model begins, also when the program has run before
  for (uint32_t db = 0; db < kDatabases; ++db) create_database(db);
  g_blocks_before = named_live_blocks();
  for (uint32_t i = 0; i < kLists; ++i) kivo_index_list_create(&lists[i]);
  lists[kBadList] = &bad_list_;
}

Library::~Library() {
  for (uint32_t i = 0; i < kLists; ++i) kivo_index_list_free(lists[i]);
  for (const kivo_maqi &query : queries) kivo_index_list_free(query.candidates);
  kivo_test::reset_process();
  g_library = nullptr;
}

uint32_t Library::create_database(uint32_t db) {
  std::vector<kivo_attr_config> rows;
  for (const TypeRow &row : kTypes) {
    if (db == kNoDatabase || row.accel[db] == Accel::kNone) continue;
    const uint32_t index_kind = row.accel[db] == Accel::kIndexed ? 0 : KIVO_INDEX_KIND_NONE;
    rows.push_back({row.type, index_kind, KIVO_DATA_TYPE_VAR_BIN});
  }
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, db + 1, on_change, nullptr};
  return kivo_create_database("ATTR_DB", "model", db == kNoDatabase ? nullptr : &client,
                              rows.data(), static_cast<uint32_t>(rows.size()), &dbs[db]);
}

void *Library::handle(const Args &args) {
  const TypeRow *row = row_of(args.type);
  return &handles_[args.db][row == nullptr ? 0 : row - kTypes][args.other % kHandles];
}

Outcome Library::perform(const Operation &operation, const Args &args, uint32_t failing_call,
                         uint32_t failing_new) {
  Call call(*this, operation, args);
  in_hand_.push_back(&call);
  if (failing_call != 0) kivo_test::arm_fault("", failing_call);
  if (failing_new != 0) failing_new::fail_nth(static_cast<int>(failing_new));
  const uint32_t status = operation.library(call);
  failed_ = (failing_call != 0 && kivo_test::disarm_fault()) ||
            (failing_new != 0 && !failing_new::pending());
  failing_new::disarm();
  in_hand_.pop_back();
  return call.outcome(status);
}

bool Library::is_in_hand(uint32_t label) const {
  return std::ranges::any_of(in_hand_, [&](const Call *call) { return call->in.label == label; });
}

void Library::meddle_with_list(bool frees) {
  if (in_hand_.size() < 2) return;
  const uint32_t list = in_hand_[in_hand_.size() - 2]->attrs;
  frees ? aaa_list_free(list) : aaa_attr_add(list, AAA_ATTR_PORT, "late", 4, 0, 0);
}

void Library::on_change(kivo_db *db, uint32_t label, uint32_t n_values,
                        const kivo_attr_value *new_values, const kivo_attr_value *old_values,
                        uint32_t action, platform_queue *handles) {
  const uint32_t number = db == g_library->dbs[0] ? 0 : 1;
  const uint32_t type = new_values->aaa_type;
  const auto *first = static_cast<const char *>(g_library->handle({.db = number, .type = type}));
  Labels numbers;
  const void *at = nullptr;
  while ((at = queue_get_next(handles, at)) != nullptr) {
    const auto offset = static_cast<const char *>(at) - first;
    numbers.push_back(static_cast<uint32_t>(offset / ptrdiff_t{sizeof(platform_queue_link)}));
  }
  const bool is_padded =
      std::all_of(new_values->data + new_values->size, std::end(new_values->data),
                  [](uint8_t byte) { return byte == 0; });
  // What is not as promised shows as a handle that nobody has.
  if (n_values != 1 || old_values != &kivo_notify_old_value || !is_padded) numbers.push_back(999);
  g_library->announce_(number, label, type, action, bytes_of(*new_values), numbers);
}

Record Library::read_record(uint32_t label) {
  Record record;
  const attrdb_record *stored = kivo_test::find_record(label);
  if (stored == nullptr) return record;
  for (const TypeRow &row : kTypes) {
    const void *value = nullptr;
    uint32_t size = 0, count = 0;
    auth_mgr_idc_get_attr(stored->ctxt, row.type, &value, &size, &count);
    if (value != nullptr) record.attrs[row.type] = Bytes(static_cast<const char *>(value), size);
  }
  const shadowdb_rec *shadow = auth_mgr_idc_peek_shadow_record_in_ctxt(stored->ctxt);
  if (shadow == nullptr) return record;
  record.has_shadow = true;
  record.had_identities = shadow->has_identities != 0;
  for (const shadowdb_attr_entry *entry : shadow->attr_lists) {
    for (; entry != nullptr; entry = entry->next) {
      record.identities[entry->attr_type].emplace_back(
          entry->subtype, Bytes(reinterpret_cast<const char *>(entry->value), entry->length));
    }
  }
  return record;
}

// ---- What is out

static std::string count_words(const std::vector<uint64_t> &counts) {
  std::string words =
      "records, contexts, shadow values, named blocks, list blocks, lists, cursors,"
      " labels hashed:";
  for (const uint64_t count : counts) words += " " + std::to_string(count);
  return words;
}

std::string Library::live_counts() {
  return count_words({attrdb_get_total_sessions(), auth_mgr_idc_live_ctxts(),
                      variable_chunk_live_blocks(shadow_attr_chunk),
                      named_live_blocks() - g_blocks_before,
                      chunk_live_blocks(kivo_test::label_block_pool), aaa_live_lists(),
                      aaa_live_cursors(), htItems(kivo_test::label_table)});
}

std::string Library::live_counts(const Plain &plain) {
  uint64_t identities = 0, shadows = 0, list_blocks = 0;
  for (const auto &[label, record] : plain.records) {
    shadows += record.has_shadow ? 1 : 0;
    for (const auto &[type, list] : record.identities) identities += list.size();
  }
  for (const Labels &labels : plain.lists) list_blocks += blocks_of(labels);
  for (const Query &query : plain.queries) {
    if (query.candidates) list_blocks += blocks_of(*query.candidates);
  }
  const uint64_t records = plain.records.size();
  // An identity is an entry and its value.
  return count_words({records, records, identities,
                      shadows + 2 * identities + plain.registrations.size(), list_blocks, 0, 0, 0});
}

}  // namespace kivo_model
