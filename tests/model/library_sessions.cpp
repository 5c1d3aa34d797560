// See library_sessions.h.
#include "model/library_sessions.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/chunk.h"
#include "support/process.h"

namespace kivo_model {
namespace {

constexpr uint32_t kUntouched = 7;

LibrarySessions *g_library = nullptr;
chunk_pool *g_label_block_pool = nullptr;

uint32_t size_of(const Bytes &value) { return static_cast<uint32_t>(value.size()); }

attrdb_record *record_at(uint32_t label) { return kivo_test::find_record(label); }

attrdb_record *record_for(Target target) {
  return target.named == Named::kByLabel ? nullptr : record_at(target.label);
}

uint32_t label_for(Target target) {
  return target.named == Named::kByRecordAlone ? 0 : target.label;
}

Labels labels_in(const kivo_index_list *list) {
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  return labels;
}

// Puts an output list, whose presence counts too, into the answer and frees it.
void take_labels(kivo_index_list *list, Answer &answer) {
  answer.state = list != nullptr ? 1 : 0;
  answer.labels = labels_in(list);
  kivo_index_list_free(list);
}

Bytes bytes_of(const kivo_attr_value &value) {
  return {reinterpret_cast<const char *>(value.data), value.size};
}

const char kNoValueYet = 0;

Answer value_answer(uint32_t status, const void *value, uint32_t length, uint32_t type) {
  if (status == KIVO_ERR_FAILED) return {status};  // the outputs mean nothing then
  if (value == nullptr || value == &kNoValueYet) return {status, length, value != nullptr ? 1u : 0};
  return {.status = status, .attrs = {{type, Bytes(static_cast<const char *>(value), length)}}};
}

}  // namespace

// An attribute list as an operation is given it.
class LibrarySessions::List {
 public:
  explicit List(const ListArg &arg) {
    if (arg.handle == Handle::kZero) return;
    list_ = std::make_unique<kivo_test::AttrList>();
    for (const auto &[type, value] : arg.attrs) list_->add(type, value.data(), size_of(value));
    if (arg.handle == Handle::kStale) aaa_list_free(handle());
  }
  [[nodiscard]] uint32_t handle() const { return list_ == nullptr ? 0 : list_->handle(); }

  [[nodiscard]] Attrs contents() const {
    Attrs attrs;
    aaa_cursor *cursor = nullptr;
    if (aaa_cursor_alloc(&cursor, handle()) != PLATFORM_OK) return attrs;
    uint32_t type = 0;
    while (aaa_cursor_get_next(cursor, &type) == PLATFORM_OK && type != 0) {
      uint32_t size = 0;
      const void *value = nullptr;
      aaa_cursor_get_value(cursor, &size, &value);
      attrs.emplace_back(type, Bytes(static_cast<const char *>(value), size));
    }
    aaa_cursor_free(cursor);
    return attrs;
  }

 private:
  std::unique_ptr<kivo_test::AttrList> list_;
};

LibrarySessions::LibrarySessions() {
  g_library = this;
  kivo_notify_old_value = {};  // as the model begins, also when the program has run before
  for (uint32_t db = 0; db < kDatabases; ++db) {
    std::vector<kivo_attr_config> rows;
    for (const TypeRow &row : kTypes) {
      if (row.in[db].accel == Accel::kNone) continue;
      const uint32_t index_kind = row.in[db].accel == Accel::kIndexed ? 0 : KIVO_INDEX_KIND_NONE;
      rows.push_back({row.type, index_kind, KIVO_DATA_TYPE_VAR_BIN});
    }
    const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, db + 1, on_change, nullptr};
    kivo_create_database("MODEL", "model", &client, rows.data(), static_cast<uint32_t>(rows.size()),
                         &dbs_[db]);
    for (uint32_t i = 0; i < kTypeCount; ++i) {
      if (kTypes[i].in[db].accel == Accel::kNone) continue;
      kivo_register_attr_change_notification(dbs_[db], kTypes[i].type, kTypes[i].in[db].actions,
                                             &handles_[db][i]);
    }
  }
  for (uint32_t i = 0; i < kLists; ++i) kivo_index_list_create(&lists_[i]);
  lists_[kBadList] = &bad_list_;
}

LibrarySessions::~LibrarySessions() {
  for (uint32_t i = 0; i < kLists; ++i) kivo_index_list_free(lists_[i]);
  for (uint32_t i = 0; i < kQueries; ++i) kivo_index_list_free(queries_[i].candidates);
  g_library = nullptr;
}

uint64_t LibrarySessions::live_list_blocks() { return chunk_live_blocks(g_label_block_pool); }

void LibrarySessions::on_change(kivo_db *db, uint32_t label, uint32_t n_values,
                                const kivo_attr_value *new_values,
                                const kivo_attr_value *old_values, uint32_t action,
                                platform_queue *handles) {
  Event event{.what = {},
              .db = db == g_library->dbs_[0] ? 0u : 1u,
              .label = label,
              .type = new_values->aaa_type,
              .action = action,
              .value = bytes_of(*new_values)};
  event.old_value.assign(reinterpret_cast<const char *>(old_values), sizeof(*old_values));
  const TypeRow *row = row_of(event.type);
  const void *handle = queue_get_next(handles, nullptr);
  const bool is_padded =
      std::all_of(new_values->data + new_values->size, std::end(new_values->data),
                  [](uint8_t byte) { return byte == 0; });
  event.well_formed = n_values == 1 && old_values == &kivo_notify_old_value && is_padded &&
                      handle == &g_library->handles_[event.db][row - kTypes] &&
                      queue_get_next(handles, handle) == nullptr;
  g_library->announced(event);
}

void LibrarySessions::free_list_in_hand() {
  aaa_list_free(std::exchange(list_in_hand_, 0));  // 0, and a list that has gone, are refused
}

Answer LibrarySessions::create(uint32_t db, uint32_t label, const Attrs *adopted) {
  auth_ctxt *ctxt = nullptr;
  if (adopted != nullptr) {
    auth_mgr_idc_create_ctxt(&ctxt);
    for (const auto &[type, value] : *adopted) {
      auth_mgr_idc_add_or_update_attr(ctxt, type, value.data(), size_of(value), nullptr);
    }
  }
  const uint32_t status = kivo_create_record(dbs_[db], label, ctxt);
  if (status != PLATFORM_OK) auth_mgr_idc_destroy_ctxt(ctxt);
  return {status};
}

Answer LibrarySessions::destroy(uint32_t db, uint32_t label) {
  return {kivo_delete_record(dbs_[db], label)};
}

Answer LibrarySessions::find(uint32_t db, uint32_t label) {
  attrdb_record *record = nullptr;
  Answer answer{kivo_get_record(dbs_[db], label, &record)};
  if (record != nullptr) answer.labels = {record->label};
  return answer;
}

Answer LibrarySessions::write(Write op, uint32_t db, Target to, uint32_t type, const Bytes &value) {
  const uint32_t size = size_of(value);
  switch (op) {
    case Write::kUpdate:
      return {kivo_add_or_update_attr(dbs_[db], label_for(to), record_for(to), type, value.data(),
                                      size)};
    case Write::kAdd:
      return {kivo_add_attr(dbs_[db], label_for(to), record_for(to), type, value.data(), size)};
    case Write::kAddToRecord:
      return {kivo_add_attr_to_record(dbs_[db], record_at(to.label), type, value.data(), size)};
    case Write::kUpdateInRecord:
      break;
  }
  return {
      kivo_add_or_update_attr_to_record(dbs_[db], record_at(to.label), type, value.data(), size)};
}

Answer LibrarySessions::write_list(ListWrite op, uint32_t db, Target to, const ListArg &list) {
  constexpr decltype(&kivo_add_attr_list) kOperations[] = {
      kivo_add_or_update_attr_list, kivo_clean_and_add_attr_list, kivo_add_attr_list};
  const List attrs(list);
  list_in_hand_ = attrs.handle();
  const uint32_t status =
      kOperations[static_cast<size_t>(op)](dbs_[db], label_for(to), record_for(to), attrs.handle());
  list_in_hand_ = 0;
  return {status};
}

Answer LibrarySessions::copy(uint32_t db, uint32_t label, uint32_t from, uint32_t to) {
  attrdb_record *record = record_at(label);
  const void *value = nullptr;
  uint32_t size = 0;
  kivo_get_attr_from_record(dbs_[db], record, from, &value, &size);
  return {kivo_add_or_update_attr(dbs_[db], label, record, to, value, size)};
}

Answer LibrarySessions::remove_type(uint32_t db, uint32_t label, uint32_t type) {
  return {kivo_remove_attr_from_record_by_type(dbs_[db], record_at(label), type)};
}

Answer LibrarySessions::remove_types(uint32_t db, Target from, const std::vector<uint32_t> &types) {
  return {kivo_remove_attrs_by_type(dbs_[db], label_for(from), record_for(from), types.data(),
                                    static_cast<uint32_t>(types.size()))};
}

Answer LibrarySessions::remove_value(uint32_t db, uint32_t label, uint32_t type, Given given,
                                     const Bytes &value) {
  attrdb_record *record = record_at(label);
  const Bytes padded = value + Bytes(2, '\0');  // a word is read, however short the value is
  const void *bytes = given == Given::kBytes ? padded.data() : nullptr;
  uint32_t size = size_of(value);
  if (given == Given::kStored && record != nullptr) {
    kivo_get_attr_from_record(nullptr, record, type, &bytes, &size);
    if (type == AAA_ATTR_IPV6_ADDRESSES) size = std::min(size, 16u);
    if (row_of(type)->shape == Shape::kIdentity && size < 2) bytes = nullptr;
  }
  return {kivo_remove_attr_from_record_by_type_and_value(dbs_[db], record, type, size, bytes)};
}

Answer LibrarySessions::set_old_value(uint32_t type, const Bytes &value) {
  return {kivo_set_notify_old_attr_value(type, size_of(value), value.data())};
}

Answer LibrarySessions::labels_of(uint32_t db, uint32_t type, const Bytes &value) {
  Answer answer;
  kivo_index_list *list = nullptr;
  kivo_index_list_create(&list);
  answer.status = kivo_match_labels_by_attr(dbs_[db], type, value.data(), size_of(value), &list,
                                            &answer.number);
  take_labels(list, answer);
  return answer;
}

Answer LibrarySessions::label_of(uint32_t db, uint32_t type, const Bytes &value) {
  Answer answer{.number = kUntouched};
  answer.status =
      kivo_match_label_by_attr(dbs_[db], type, value.data(), size_of(value), &answer.number);
  return answer;
}

Answer LibrarySessions::record_of(uint32_t db, uint32_t type, const Bytes &value) {
  attrdb_record untouched = {};
  attrdb_record *record = &untouched;
  Answer answer{kivo_match_record_by_attr(dbs_[db], type, value.data(), size_of(value), &record)};
  if (record == &untouched) answer.number = kUntouched;
  if (record != nullptr && record != &untouched) answer.labels = {record->label};
  return answer;
}

Answer LibrarySessions::next_interface(uint32_t after) {
  Answer answer;
  answer.status = kivo_get_next_if_id(after, &answer.number);
  return answer;
}

Answer LibrarySessions::read(uint32_t db, uint32_t label, uint32_t type) {
  const void *value = &kNoValueYet;
  uint32_t length = kUntouched;
  const uint32_t status = kivo_get_attr(dbs_[db], label, nullptr, type, &value, &length);
  return value_answer(status, value, length, type);
}

Answer LibrarySessions::read_record(uint32_t label, uint32_t type) {
  const void *value = &kNoValueYet;
  uint32_t length = kUntouched;
  const uint32_t status =
      kivo_get_attr_from_record(nullptr, record_at(label), type, &value, &length);
  return value_answer(status, value, length, type);
}

Answer LibrarySessions::merge(uint32_t label, const ListArg &list) {
  const List attrs(list);
  Answer answer{kivo_merge_rec_to_list_without_replace(nullptr, record_at(label), attrs.handle())};
  if (answer.status != PLATFORM_OK) return answer;
  answer.attrs = attrs.contents();
  // A record's own order of types is its own affair; that of one type's values is not.
  const auto given = static_cast<ptrdiff_t>(std::min(list.attrs.size(), answer.attrs.size()));
  std::stable_sort(answer.attrs.begin() + given, answer.attrs.end(),
                   [](const Attr &a, const Attr &b) { return a.first < b.first; });
  return answer;
}

Answer LibrarySessions::query_state(uint32_t query, uint32_t status, uint32_t flag) {
  const kivo_maqi &q = queries_[query];
  Answer answer{status, flag, q.may_match + 2 * q.num_unindexed + 16 * q.num_candidates,
                labels_in(q.candidates)};
  for (uint32_t i = 0; i < q.num_unindexed; ++i) {
    answer.attrs.emplace_back(q.unindexed[i].aaa_type, bytes_of(q.unindexed[i]));
  }
  return answer;
}

Answer LibrarySessions::start_query(uint32_t query, uint32_t db) {
  const uint32_t status = kivo_start_multi_attr_query(dbs_[db], &queries_[query]);
  return status == PLATFORM_OK ? query_state(query, status, 0) : Answer{status};
}

Answer LibrarySessions::add_to_query(uint32_t query, uint32_t type, const Bytes &value) {
  uint32_t flag = kUntouched;
  const uint32_t status =
      kivo_add_attr_to_query(&queries_[query], type, value.data(), size_of(value), &flag);
  return query_state(query, status, flag);
}

Answer LibrarySessions::take_matches(uint32_t query) {
  kivo_index_list *list = nullptr;
  uint32_t count = kUntouched;
  const uint32_t status = kivo_get_matches_for_query(&queries_[query], &list, &count);
  Answer answer = query_state(query, status, count);
  if (list != nullptr) take_labels(list, answer);
  return answer;
}

Answer LibrarySessions::match_list(uint32_t db, const ListArg &list) {
  const List attrs(list);
  kivo_index_list *labels = nullptr;
  Answer answer;
  answer.status = kivo_match_sessions_from_list(dbs_[db], attrs.handle(), &labels, &answer.number);
  take_labels(labels, answer);
  return answer;
}

Answer LibrarySessions::all_sessions(uint32_t db) {
  kivo_index_list *labels = nullptr;
  Answer answer;
  answer.status = kivo_get_session_list(dbs_[db], &labels, &answer.number);
  take_labels(labels, answer);
  return answer;
}

Answer LibrarySessions::append(uint32_t list, const Labels &labels) {
  Answer answer;
  answer.status = labels.size() == 1
                      ? kivo_index_list_add(&lists_[list], labels.front())
                      : kivo_index_list_add_many(&lists_[list], labels.data(),
                                                 static_cast<uint32_t>(labels.size()));
  kivo_index_list_size(lists_[list], &answer.number);
  return answer;
}

Answer LibrarySessions::get(uint32_t list, uint32_t position) {
  Answer answer{.state = position};
  answer.status = kivo_index_list_get(lists_[list], position, &answer.number);
  const uint32_t next = kivo_index_list_next(lists_[list], &answer.state);
  if (next != answer.number) answer.labels = {next};  // both read the same place
  return answer;
}

Answer LibrarySessions::clear(uint32_t list) { return {kivo_index_list_empty(lists_[list])}; }

Answer LibrarySessions::intersect(uint32_t a, uint32_t b) {
  Answer answer;
  kivo_index_list *both = nullptr;
  answer.status = kivo_index_list_intersection(lists_[a], lists_[b], &both);
  take_labels(both, answer);
  return answer;
}

}  // namespace kivo_model

// Stands in front of the platform's operation, to see the pool of the label lists' blocks.
extern "C" chunk_pool *chunk_create(const char *name, uint32_t size, uint32_t per_slab,
                                    uint32_t flags, uint32_t reserved1,
                                    uint32_t reserved2) noexcept {
  static const auto real =
      reinterpret_cast<decltype(&chunk_create)>(dlsym(RTLD_NEXT, "chunk_create"));
  chunk_pool *pool = real(name, size, per_slab, flags, reserved1, reserved2);
  if (std::strcmp(name, "kivo index list chunk") == 0) kivo_model::g_label_block_pool = pool;
  return pool;
}
