#include "model/library.h"

#include <algorithm>

#include "platform/named_alloc.h"
#include "support/faults.h"
#include "support/memory_faults.h"

namespace kivo_model {
namespace {

Library *g_library = nullptr;
uint64_t g_blocks_before = 0;    // of the named allocator
attrdb_record g_no_record = {};  // what outputs point at before
kivo_index_list g_no_list = {};
const char kNoValue = 0;

uint32_t size_of(const Bytes &value) { return static_cast<uint32_t>(value.size()); }
Bytes bytes_of(const void *data, uint32_t size) { return {static_cast<const char *>(data), size}; }

Labels labels_in(const kivo_index_list *list) {
  uint32_t size = 0;
  kivo_index_list_size(list, &size);
  Labels labels(size);
  for (uint32_t i = 0; i < size; ++i) kivo_index_list_get(list, i, &labels[i]);
  return labels;
}

Attrs contents(uint32_t list, size_t n_given) {
  Attrs attrs;
  aaa_cursor *cursor = nullptr;
  if (aaa_cursor_alloc(&cursor, list) != PLATFORM_OK) return attrs;
  uint32_t type = 0, size = 0;
  const void *value = nullptr;
  while (aaa_cursor_get_next(cursor, &type) == PLATFORM_OK && type != 0) {
    aaa_cursor_get_value(cursor, &size, &value);
    attrs.emplace_back(type, bytes_of(value, size));
  }
  aaa_cursor_free(cursor);
  // A record's own order of types is its own affair; that of one type's values is not.
  std::stable_sort(attrs.begin() + static_cast<ptrdiff_t>(n_given), attrs.end(),
                   [](const Attr &a, const Attr &b) { return a.first < b.first; });
  return attrs;
}

}  // namespace

// ---- A call

Call::Call(Library &its_library, const Args &args, uint32_t its_flags)
    : library(its_library),
      in(args),
      flags(its_flags),
      db(library.dbs[args.db]),
      label(args.named == Named::kByRecordAlone ? 0 : args.label),
      held(kivo_test::find_record(args.label)),
      record(args.named == Named::kByLabel ? nullptr : held),
      size(size_of(args.value)),
      found(&g_no_record),
      bytes(&kNoValue),
      labels(&g_no_list),
      padded_(args.value + Bytes(2, '\0')) {  // a word is read of however short an identity
  uint32_t stored_size = 0, count = 0;
  if (in.stored != 0) {
    auth_mgr_idc_get_attr(held->ctxt, in.stored, &value, &stored_size, &count);
    value = static_cast<const char *>(value) + in.offset;
  } else if (!in.null_value) {
    value = padded_.data();
  }
  for (const auto &[type, one] : in.attrs) list_.add(type, one.data(), size_of(one));
  if (in.handle != Handle::kZero) attrs = list_.handle();
  if (in.handle == Handle::kStale) aaa_list_free(attrs);
  if ((flags & kAdopts) == 0 || in.attrs.empty()) return;
  auth_mgr_idc_create_ctxt(&ctxt);
  for (const auto &[type, one] : in.attrs) {
    auth_mgr_idc_add_or_update_attr(ctxt, type, one.data(), size_of(one), nullptr);
  }
}

Call::~Call() {
  auth_mgr_idc_destroy_ctxt(ctxt);  // does nothing to an adopted one
  kivo_index_list_free(labels);
}

Outcome Call::outcome(uint32_t status) const {
  if (status == KIVO_ERR_FAILED) return {status};  // the outputs mean nothing then
  Outcome o{.status = status, .number = number, .length = length};
  if (found != &g_no_record) o.found = found == nullptr ? 0 : found->label;
  if (bytes != &kNoValue && bytes != nullptr) o.attrs = {{in.type, bytes_of(bytes, length)}};
  if ((flags & kShowsAttrs) != 0) {
    o.attrs = contents(attrs, in.handle == Handle::kGood ? in.attrs.size() : 0);
  }
  if (labels != &g_no_list) o.list = labels == nullptr ? Given::kNull : Given::kList;
  o.labels = o.list == Given::kList ? labels_in(labels) : numbers;
  if (query == nullptr) return o;
  o.length = query->may_match + 2 * query->num_unindexed + 16 * query->num_candidates;
  o.labels = labels_in(query->candidates);
  for (const kivo_attr_value &one : std::span(query->unindexed, query->num_unindexed)) {
    o.attrs.emplace_back(one.aaa_type, bytes_of(one.data, one.size));
  }
  return o;
}

// ---- The library

Library::Library(std::function<void(const Bytes &words)> announce)
    : announce_(std::move(announce)) {
  g_library = this;
  kivo_test::reset_process();
  kivo_notify_old_value = {};  // as the model begins, also when the program has run before
  for (uint32_t db = 0; db < kDatabases; ++db) create_database(db);
  g_blocks_before = named_live_blocks();
  for (uint32_t i = 0; i < kLists; ++i) kivo_index_list_create(&lists[i]);
  lists[kBadList] = &bad_list_;
}

Library::~Library() {
  for (kivo_index_list *list : lists) kivo_index_list_free(list);
  for (const kivo_maqi &query : queries) kivo_index_list_free(query.candidates);
  kivo_test::reset_process();
}

uint32_t Library::create_database(uint32_t db) {
  std::vector<kivo_attr_config> rows;
  for (const TypeRow &row : kTypes) {
    if (db == kNoDatabase || row.accel[db] == Accel::kNone) continue;
    const uint32_t index_kind = row.accel[db] == Accel::kIndex ? 0 : KIVO_INDEX_KIND_NONE;
    rows.push_back({row.type, index_kind, KIVO_DATA_TYPE_VAR_BIN});
  }
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, db + 1, on_change, nullptr};
  return kivo_create_database("ATTR_DB", "model", db == kNoDatabase ? nullptr : &client,
                              rows.data(), static_cast<uint32_t>(rows.size()), &dbs[db]);
}

Outcome Library::perform(const Operation &operation, const Args &args, uint32_t failing_call,
                         uint32_t failing_new) {
  Call call(*this, args, operation.flags);
  in_hand_.push_back(&call);
  if (failing_call != 0) kivo_test::arm_fault("", failing_call);
  memory_faults::only_nothrow = true;
  memory_faults::arm(failing_new);
  const uint32_t status = operation.library(call);
  const bool memory_failed = memory_faults::disarm();
  failed = (failing_call != 0 && kivo_test::disarm_fault()) || memory_failed;
  in_hand_.pop_back();
  return call.outcome(status);
}

bool Library::is_in_hand(uint32_t label) const {
  return std::ranges::any_of(in_hand_, [&](const Call *call) { return call->in.label == label; });
}

uint32_t Library::meddle_with_list(bool frees) {
  const uint32_t list = in_hand_.size() < 2 ? 0 : in_hand_[in_hand_.size() - 2]->attrs;
  frees ? aaa_list_free(list) : aaa_attr_add(list, AAA_ATTR_PORT, "late", 4, 0, 0);
  return PLATFORM_OK;
}

void Library::on_change(kivo_db *db, uint32_t label, uint32_t n_values,
                        const kivo_attr_value *new_values, const kivo_attr_value *old_values,
                        uint32_t action, platform_queue *handles) {
  const uint32_t number = db == g_library->dbs[0] ? 0 : 1;
  const platform_queue_link *first = g_library->handles_of(number, new_values->aaa_type);
  Labels seen;
  for (void *at = nullptr; (at = queue_get_next(handles, at)) != nullptr;) {
    seen.push_back(static_cast<uint32_t>(static_cast<platform_queue_link *>(at) - first));
  }
  const bool is_padded =
      std::all_of(new_values->data + new_values->size, std::end(new_values->data),
                  [](uint8_t byte) { return byte == 0; });
  // What is not as promised shows as a handle that nobody has.
  if (n_values != 1 || old_values != &kivo_notify_old_value || !is_padded) seen.push_back(999);
  const Attr attr(new_values->aaa_type, bytes_of(new_values->data, new_values->size));
  g_library->announce_(in_words(number, label, action, attr, seen, *old_values));
}

Record Library::read_record(uint32_t label) {
  Record record;
  const attrdb_record *stored = kivo_test::find_record(label);
  if (stored == nullptr) return record;
  for (const TypeRow &row : kTypes) {
    const void *value = nullptr;
    uint32_t size = 0, count = 0;
    auth_mgr_idc_get_attr(stored->ctxt, row.type, &value, &size, &count);
    if (value != nullptr) record.attrs[row.type] = bytes_of(value, size);
  }
  const shadowdb_rec *shadow = auth_mgr_idc_peek_shadow_record_in_ctxt(stored->ctxt);
  if (shadow == nullptr) return record;
  record.has_shadow = true;
  record.had_identities = shadow->has_identities != 0;
  for (const shadowdb_attr_entry *at : shadow->attr_lists) {
    for (; at != nullptr; at = at->next) {
      record.identities[at->attr_type].emplace_back(at->subtype, bytes_of(at->value, at->length));
    }
  }
  return record;
}

// ---- What is out

static Bytes count_words(const Labels &counts) {
  return in_words(
      "records, contexts, shadow values, named blocks, list blocks, lists, cursors, "
      "hashed labels: ",
      counts);
}

Bytes Library::live_counts() {
  return count_words({attrdb_get_total_sessions(), auth_mgr_idc_live_ctxts(),
                      static_cast<uint32_t>(variable_chunk_live_blocks(shadow_attr_chunk)),
                      static_cast<uint32_t>(named_live_blocks() - g_blocks_before),
                      static_cast<uint32_t>(chunk_live_blocks(kivo_test::label_block_pool)),
                      aaa_live_lists(), aaa_live_cursors(), htItems(kivo_test::label_table)});
}

Bytes Library::live_counts(const Plain &plain) {
  size_t identities = 0, shadows = 0, list_blocks = 0;
  for (const auto &[label, record] : plain.records) {
    shadows += record.has_shadow ? 1 : 0;
    for (const auto &[type, list] : record.identities) identities += list.size();
  }
  const auto add = [&](const Labels &labels) {
    list_blocks += labels.empty() ? 1 : (labels.size() + 11) / 12;
  };
  for (const Labels &labels : plain.lists) add(labels);
  for (const Query &query : plain.queries) {
    if (query.candidates) add(*query.candidates);
  }
  // An identity is an entry and its value.
  const size_t named = shadows + 2 * identities + plain.registrations.size();
  const auto records = static_cast<uint32_t>(plain.records.size());
  return count_words({records, records, static_cast<uint32_t>(identities),
                      static_cast<uint32_t>(named), static_cast<uint32_t>(list_blocks), 0, 0, 0});
}

}  // namespace kivo_model
