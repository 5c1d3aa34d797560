// Database creation, which is client registration too. The process has two entries; a client claims
// one by its id and keeps it for the life of the process, whether or not its creation succeeds.
#include "database.h"

#include <cstring>
#include <span>

#include "abandoned.h"
#include "accel_table.h"
#include "trace.h"

const char *const kivo_record_config_name_info[4] = {"kivo small chunk", "kivo medium chunk",
                                                     "kivo large chunk", "kivo malloc mem"};

namespace kivo {

kivo_db client_info[KIVO_CLIENTS_PER_PROCESS];

namespace {

// Entries claimed by clients that were new when they created their database; never decreased.
uint32_t client_info_count = 0;

// An argument list of kivo_create_database().
struct CreateRequest {
  const char *db_name;
  const char *owner_name;
  const kivo_client_params *client;
  const kivo_attr_config *rows;
  uint32_t n_rows;
};

bool name_is_too_long(const char *name) noexcept {
  return name != nullptr && strnlen(name, KIVO_NAME_SIZE) == KIVO_NAME_SIZE;
}

// A row outside the slot map or without a kind would be read past the tables.
bool rows_are_valid(const CreateRequest &request) noexcept {
  if (request.rows == nullptr) return true;
  for (const kivo_attr_config &row : std::span(request.rows, request.n_rows)) {
    if (row.aaa_type > AAA_ATTR_TYPE_MAX || row.data_type >= KIVO_DATA_TYPE_MAX) return false;
  }
  return true;
}

uint32_t check_request(const CreateRequest &request, kivo_db *const *result) noexcept {
  if (request.client == nullptr || (request.client->flags & KIVO_CLIENT_FLAG_VALID) == 0) {
    kivo_trace_error(msg::kCreateBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  if (name_is_too_long(request.db_name) || name_is_too_long(request.owner_name)) {
    kivo_trace_error(msg::kCreateNameTooLong, static_cast<int>(KIVO_NAME_SIZE));
    return KIVO_ERR_INVALID_ARG;
  }
  if (result == nullptr || !rows_are_valid(request)) {
    kivo_trace_error(msg::kCreateBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  return PLATFORM_OK;
}

kivo_db *entry_with_client_id(uint32_t client_id) noexcept {
  for (kivo_db &entry : client_info) {
    if (entry.client_id == client_id) return &entry;
  }
  return nullptr;
}

// Chooses the client's entry. Null, after a trace, when there is none for a new client.
kivo_db *choose_entry(const CreateRequest &request, bool &is_new) noexcept {
  kivo_db *entry = entry_with_client_id(request.client->client_id);
  is_new = entry == nullptr;
  if (!is_new) return entry;
  entry = entry_with_client_id(0);
  if (entry == nullptr) {
    kivo_trace_error(msg::kRegisterNoFreeEntry, name_or_empty(request.owner_name));
    return nullptr;
  }
  if (client_info_count >= KIVO_CLIENTS_PER_PROCESS) {
    kivo_trace_event(msg::kRegisterTooManyClients, name_or_empty(request.owner_name),
                     static_cast<int>(client_info_count),
                     static_cast<int>(KIVO_CLIENTS_PER_PROCESS));
    return nullptr;
  }
  return entry;
}

void drop_config(kivo_db &db) noexcept {
  abandon_config(db, db.attr_cfg);
  db.attr_cfg = nullptr;
}

// Gives the entry its own copy of the rows, and counts them.
uint32_t copy_config(kivo_db &db, const CreateRequest &request) noexcept {
  db.indexed_count = 0;
  db.unindexed_count = 0;
  kivo_attr_config *copy = request.n_rows == 0 ? nullptr : allocate_config(request.n_rows);
  if (copy == nullptr) {
    drop_config(db);
    kivo_trace_error(msg::kRegisterNoMemory, name_or_empty(request.owner_name));
    return KIVO_ERR_FAILED;
  }
  // The caller's rows may be those of the handle itself: they are copied before they go.
  if (request.rows != nullptr) {
    std::memcpy(copy, request.rows, request.n_rows * sizeof(kivo_attr_config));
  }
  drop_config(db);
  db.attr_cfg = copy;
  for (const kivo_attr_config &row : std::span(copy, request.n_rows)) {
    ++(row.index_kind == KIVO_INDEX_KIND_NONE ? db.unindexed_count : db.indexed_count);
  }
  return PLATFORM_OK;
}

struct Name {
  explicit Name(const char *source) noexcept {
    if (source != nullptr) std::memcpy(text, source, strnlen(source, KIVO_NAME_SIZE - 1));
  }
  char text[KIVO_NAME_SIZE] = {};
};

// The names may be those of the entry itself: both are read before one is written.
void claim_entry(kivo_db &db, const CreateRequest &request) noexcept {
  const Name owner_name(request.owner_name);
  const Name db_name(request.db_name);
  db.reserved64 = 0;
  db.client = *request.client;
  db.slot_index = static_cast<uint32_t>(&db - client_info);
  db.reserved32 = 0;
  db.client_id = db.client.client_id;
  std::memcpy(db.owner_name, owner_name.text, KIVO_NAME_SIZE);
  std::memcpy(db.db_name, db_name.text, KIVO_NAME_SIZE);
}

// Everything past the argument checks. On success *result is the handle.
uint32_t register_client_int(const CreateRequest &request, kivo_db **result) noexcept {
  bool is_new = false;
  kivo_db *db = choose_entry(request, is_new);
  if (db == nullptr) return KIVO_ERR_NO_ROOM;
  uint32_t status = copy_config(*db, request);
  if (status != PLATFORM_OK) return status;
  claim_entry(*db, request);
  status = build_accel_table(*db);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kAccelFailed);
    drop_config(*db);
    return status;
  }
  if (is_new) ++client_info_count;
  *result = db;
  return PLATFORM_OK;
}

}  // namespace
}  // namespace kivo

uint32_t kivo_create_database(const char *db_name, const char *owner_name,
                              const kivo_client_params *client, const kivo_attr_config *rows,
                              uint32_t n_rows, kivo_db **result) noexcept {
  using namespace kivo;
  const CreateRequest request{db_name, owner_name, client, rows, n_rows};
  uint32_t status = check_request(request, result);
  if (status != PLATFORM_OK) return status;
  status = register_client_int(request, result);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kCreateFailed, name_or_empty(db_name), error_text(status));
  }
  return status;
}

uint32_t kivo_destroy_database(kivo_db *) noexcept { return KIVO_ERR_FAILED; }

uint32_t kivo_register_client(kivo_db *, const kivo_client_params *) noexcept {
  return KIVO_ERR_FAILED;
}

uint32_t kivo_unregister_client(kivo_db *, uint32_t) noexcept { return KIVO_ERR_FAILED; }
