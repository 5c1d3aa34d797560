// The world of the rows, and how they are run.
#include "world.h"

#include <cctype>
#include <cstring>
#include <map>
#include <set>
#include <sstream>

#include "platform/named_alloc.h"
#include "support/faults.h"
#include "support/trace_words.h"

namespace kivo_test {
namespace {

constexpr uint32_t kUntouched = 99;
constexpr uint32_t kCallsMax = 300;  // of the platform by one operation
const std::string kPlace(32, '-');   // an output that points here was left alone

std::string heard;

void note_change(kivo_db *, uint32_t, uint32_t, const kivo_attr_value *value,
                 const kivo_attr_value *, uint32_t action, platform_queue *) {
  heard +=
      (heard.empty() ? "" : ",") + std::to_string(value->aaa_type) + "/" + std::to_string(action);
}

uint32_t size_of(const std::string &value) { return static_cast<uint32_t>(value.size()); }

// Readable bytes as they are, others as hexadecimal digits; long values by their size.
std::string shown(const std::string &bytes) {
  if (bytes.size() > 30) return std::to_string(bytes.size()) + "*" + bytes[0];
  std::string digits;
  for (const char c : bytes) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", static_cast<uint8_t>(c));
    digits += two;
    if (!std::isprint(static_cast<uint8_t>(c))) digits += '!';
  }
  if (digits.find('!') == std::string::npos) return bytes;
  std::erase(digits, '!');
  return digits;
}

std::string stored(uint32_t label, uint32_t type) {
  const attrdb_record *record = find_record(label);
  const void *value = nullptr;
  uint32_t size = 0;
  uint32_t count = 0;
  if (record == nullptr) return "gone";
  auth_mgr_idc_get_attr(record->ctxt, type, &value, &size, &count);
  return value == nullptr ? "no" : shown({static_cast<const char *>(value), size});
}

std::string listed(const kivo_index_list *list) {
  std::string labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) {
    labels += (labels.empty() ? "" : ",") + std::to_string(label);
  }
  return labels;
}

kivo_index_list *first_labels(uint32_t n) {
  kivo_index_list *list = nullptr;
  kivo_index_list_create(&list);
  for (uint32_t label = 1; label <= n; ++label) kivo_index_list_add(&list, label);
  return list;
}

}  // namespace

std::string identity(uint16_t subtype, const std::string &text) {
  return std::string(reinterpret_cast<const char *>(&subtype), sizeof(subtype)) + text;
}

World::World() {
  reset_process();
  db = create_database(1,
                       {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},       // slot 0
                        {kAddress, 1, KIVO_DATA_TYPE_IPV4_ADDR},  // slot 1
                        {kId, 6, KIVO_DATA_TYPE_VAR_STR},         // slot 2
                        {kDevice, 6, KIVO_DATA_TYPE_VAR_BIN},     // slot 3
                        {kStart, 6, KIVO_DATA_TYPE_INT64}},       // slot 4
                       note_change);
  create_database(2, {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr, "OTHER");
  static void *handles[4][1];
  uint32_t i = 0;
  for (const uint32_t type : {kUser, kAddress, kId, kDevice}) {
    kivo_register_attr_change_notification(db, type, KIVO_ACTION_ADD_OR_UPDATE | KIVO_ACTION_REMOVE,
                                           handles[i++]);
  }
  for (uint32_t label :
       {kSession, 101u, 102u, 103u, 104u, 105u, 106u, 107u, 108u, 109u, 110u, 111u, 112u}) {
    kivo_create_record(nullptr, label, nullptr);
    put(kUser, "ann", label);
    if (label <= 108) put(kAddress, kHome, label);
  }
  record = find_record(kSession);
  shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt);
  fresh = shadowdb_alloc_record(9);
  put(kId, "s-1");
  put(AAA_ATTR_AUDIT_SESSION_ID, kAuditId);
  put_identity(5, "x");
  const std::string six = identity(6, "y");
  list.add(kUser, "bob").add(kId, "s-2").add(kAddress, kAway.data(), 4);
  ids.add(kUser, "bob").add(kDevice, six.data(), size_of(six)).add(kAddress, kAway.data(), 4);
  kivo_index_list_create(&nothing);
  twelve = first_labels(12);
  thirteen = first_labels(13);
  begin_anew();
}

World::~World() {
  shadowdb_destroy_record(fresh);
  for (kivo_index_list *set : {nothing, twelve, thirteen, query.candidates}) {
    kivo_index_list_free(set);
  }
}

void World::begin_anew() {
  heard.clear();
  said_.clear();
  console_.take();
  first_ = state();
}

// Words apart by blanks, so that they can be compared one by one.
std::string World::state() {
  std::ostringstream words;
  for (const uint32_t type : {kUser, kAddress, kEthernet, kAddresses, kId, kStart, 819u}) {
    words << type << "=" << stored(kSession, type) << " ";
  }
  words << "8=" << (find_record(kNobody) != nullptr ? "there" : "gone") << " ";
  for (const auto *entry = find_record(kSession) == nullptr ? nullptr : shadow->attr_lists[2];
       entry != nullptr; entry = entry->next) {
    words << "id=" << entry->subtype
          << shown(std::string(entry->value + 2, entry->value + entry->length)) << " ";
  }
  words << "db=" << db->db_name << "/" << db->owner_name << "/" << db->client_id
        << " rows=" << db->indexed_count + db->unindexed_count
        << (db->attr_cfg == nullptr ? "!" : "") << " entries=";
  for (const uint32_t type : {kUser, kAddress, kId, kStart}) {
    words << static_cast<int>(kivo_get_index_from_aaa_type(db, type)) << ",";
  }
  words << (db->accel_tbl == nullptr ? "none" : "") << " sets=" << listed(nothing) << ";"
        << listed(twelve) << ";" << listed(thirteen) << " held="
        << (query.candidates != nullptr ? 1 : 0) + query.num_candidates + query.num_unindexed
        << " old=" << kivo_notify_old_value.aaa_type << ","
        << (kivo_notify_old_value.data[kivo_notify_old_value.size] == 0 ? "" : "unended")
        << shown(
               {reinterpret_cast<char *>(kivo_notify_old_value.data), kivo_notify_old_value.size});
  return words.str();
}

std::string World::changes() {
  std::istringstream before(first_), now(state());
  std::multiset<std::string> known;
  std::string word, changed;
  while (before >> word) known.insert(word);
  while (now >> word) {
    const auto found = known.find(word);
    if (found == known.end()) {
      changed += word + " ";
    } else {
      known.erase(found);
    }
  }
  for (const std::string &gone : known) {
    if (gone.starts_with("id=")) changed += "-" + gone + " ";
  }
  if (!heard.empty()) changed += "heard:" + heard + " ";
  changed += said_;
  const std::string console = console_.take();
  if (console.empty() && changed.ends_with(' ')) changed.pop_back();
  if (!console.empty()) changed.append("console:").append(console);
  return changed;
}

void World::put(uint32_t type, const std::string &value, uint32_t label) {
  auth_mgr_idc_add_or_update_attr(find_record(label)->ctxt, type, value.data(), size_of(value),
                                  nullptr);
}

void World::put_identity(uint16_t subtype, const std::string &text) {
  const std::string value = identity(subtype, text);
  uint32_t changed = 0;
  shadowdb_add_or_update_attr(shadow, 2, kDevice, value.data(), size_of(value), &changed);
}

uint32_t World::say(const std::string &what, uint32_t status) {
  said_ += what + " ";
  return status;
}

namespace {

// Words for an output that may have been left alone.
template <typename Found>
std::string told(const Found *found, const void *untouched, const std::string &otherwise) {
  return found == untouched ? "-" : found == nullptr ? "null" : otherwise;
}

std::string value_told(const void *value, uint32_t length) {
  return value == nullptr ? "null" : std::string(static_cast<const char *>(value), length);
}

}  // namespace

uint32_t World::recreate(uint32_t client, const char *name, const char *owner,
                         std::initializer_list<kivo_attr_config> rows, uint32_t flags) {
  const kivo_client_params params = {flags, client, note_change, nullptr};
  auto *made = reinterpret_cast<kivo_db *>(this);
  const uint32_t status =
      kivo_create_database(name, owner, flags == 9 ? nullptr : &params, rows.begin(),
                           static_cast<uint32_t>(rows.size()), &made);
  return say(told(made, this, made == db ? "same" : "other"), status);
}

uint32_t World::entry(uint32_t type, kivo_db *of) {
  auto *found = reinterpret_cast<kivo_accel_entry *>(this);
  const uint32_t status = kivo_get_accel_from_type(type, of, &found);
  return say(told(found, this, "an-entry"), status);
}

uint32_t World::record_by(const std::function<uint32_t(attrdb_record **)> &call) {
  auto *found = reinterpret_cast<attrdb_record *>(this);
  const uint32_t status = call(&found);
  const bool is_record = found != nullptr && found != reinterpret_cast<attrdb_record *>(this);
  return say(told(found, this, "label" + std::to_string(is_record ? found->label : 0)), status);
}

uint32_t World::labels(kivo_db *of, const char *name) {
  uint32_t count = kUntouched;
  kivo_index_list_empty(nothing);
  const uint32_t status = kivo_match_labels_by_attr(of, kUser, name, 3, &nothing, &count);
  return say("n" + std::to_string(count), status);
}

uint32_t World::label(const char *name) {
  uint32_t found = kUntouched;
  const uint32_t status = kivo_match_label_by_attr(nullptr, kUser, name, 3, &found);
  return say("label" + std::to_string(found), status);
}

uint32_t World::merge(attrdb_record *from) {
  AttrList into;
  return kivo_merge_rec_to_list_without_replace(db, from, into.handle());
}

uint32_t World::update(kivo_db *of, uint32_t label, uint32_t type, const std::string &value) {
  return kivo_add_or_update_attr(of, label, nullptr, type, value.data(), size_of(value));
}

uint32_t World::read(kivo_db *of, uint32_t label, uint32_t type) {
  const void *value = kPlace.data();
  uint32_t length = 1;
  const uint32_t status = kivo_get_attr(of, label, nullptr, type, &value, &length);
  return say(value_told(value, length), status);
}

uint32_t World::read_from(attrdb_record *from, uint32_t type) {
  const void *value = kPlace.data();
  uint32_t length = 1;
  const uint32_t status = kivo_get_attr_from_record(nullptr, from, type, &value, &length);
  if (status == KIVO_ERR_FAILED) return status;  // the outputs mean nothing
  return say(value_told(value, length), status);
}

uint32_t World::list_of(const std::function<uint32_t(kivo_index_list **, uint32_t *)> &call) {
  auto *found = reinterpret_cast<kivo_index_list *>(this);
  uint32_t count = kUntouched;
  const uint32_t status = call(&found, &count);
  const bool is_there = found != reinterpret_cast<kivo_index_list *>(this);
  say(told(found, this, is_there ? listed(found) : "") + ";" + std::to_string(count));
  if (is_there) kivo_index_list_free(found);
  return status;
}

uint32_t World::identity_write(shadowdb_rec *to, uint32_t index, const std::string *value) {
  uint32_t changed = kUntouched;
  const uint32_t status =
      shadowdb_add_or_update_attr(to, index, kDevice, value == nullptr ? nullptr : value->data(),
                                  value == nullptr ? 3 : size_of(*value), &changed);
  return say("changed" + std::to_string(changed), status);
}

uint32_t World::start(kivo_db *of) {
  kivo_index_list_free(std::exchange(query.candidates, nullptr));
  return kivo_start_multi_attr_query(of, &query);
}

uint32_t World::add(uint32_t type) {
  const std::string value = type == kUser      ? "ann"
                            : type == kAddress ? kHome
                            : type == kId      ? "s-1"
                                               : "x";
  uint32_t flag = kUntouched;
  const uint32_t status = kivo_add_attr_to_query(&query, type, value.data(), size_of(value), &flag);
  return say("flag" + std::to_string(flag), status);
}

uint32_t World::show(uint32_t command, const void *filter) {
  auto word = reinterpret_cast<uint64_t>(filter);
  if (command == KIVO_SHOW_BY_IPV4) std::memcpy(&(word = 0), filter, 4);
  kivo_show_db(command, word);
  return 0;
}

// ---- How rows are run

namespace {

std::map<std::string, uint64_t> live_things() {
  return {{"blocks", named_live_blocks()},
          {"bytes", named_live_bytes()},
          {"shadow values", variable_chunk_live_blocks(shadow_attr_chunk)},
          {"label blocks", chunk_live_blocks(label_block_pool)},
          {"hashed labels", htItems(label_table)},
          {"lists", aaa_live_lists()},
          {"cursors", aaa_live_cursors()},
          {"contexts", auth_mgr_idc_live_ctxts()},
          {"records", attrdb_get_total_sessions()}};
}

// Returns whether the faults are to be reached.
bool arm(std::string faults) {
  const bool reached = !faults.starts_with('!');
  std::istringstream words(reached ? faults : faults.substr(1));
  disarm_fault();
  for (std::string word; words >> word;) {
    const std::string operation = word.substr(0, word.find_first_of("#="));
    const size_t nth = word.find('#');
    const size_t status = word.find('=');
    arm_further_fault(
        operation, nth == word.npos ? 1 : static_cast<uint32_t>(std::stoul(word.substr(nth + 1))),
        status == word.npos
            ? 0xdead
            : static_cast<uint32_t>(std::stoul(word.substr(status + 1), nullptr, 16)));
  }
  return reached;
}

void run(const Row &row) {
  World world;
  if (row.before) {
    row.before(world);
    world.begin_anew();
  }
  TraceWords log;
  kivo_debug_level_all = 1;
  const bool to_be_reached = arm(row.faults);
  const uint32_t status = row.call(world);
  const bool reached = disarm_fault();
  kivo_debug_level_all = 0;
  if (*row.faults != '\0') {
    EXPECT_EQ(to_be_reached, reached) << "the call did not go its way";
  }
  const std::string traces = log.take();
  EXPECT_EQ(row.outcome, status_name(status) + ":" + (traces.empty() ? "" : " " + traces));
  EXPECT_EQ(row.changes, world.changes());
}

std::multiset<std::string> words_of(const std::string &text) {
  std::istringstream stream(text);
  std::multiset<std::string> words;
  for (std::string word; stream >> word;) words.insert(word);
  return words;
}

// With the nth platform call failing; false when the operation makes no so many.
bool run_with_fault(const Row &row, uint32_t nth) {
  World world;
  if (row.before) {
    row.before(world);
    world.begin_anew();
  }
  arm_fault("", nth);
  const uint32_t status = row.call(world);
  if (!disarm_fault()) return false;
  SCOPED_TRACE(failed_operation() + " fails, call " + std::to_string(nth));
  const std::string normal = std::string(row.outcome).substr(0, std::string(row.outcome).find(':'));
  const auto may = words_of(row.may);
  EXPECT_TRUE(status_name(status) == normal || may.contains(status_name(status)))
      << status_name(status);
  const auto all = words_of(row.changes);
  const std::string changes = world.changes();
  for (const std::string &word : words_of(changes)) {
    if (word.find('=') == word.npos || may.contains("*")) continue;
    EXPECT_TRUE(all.contains(word)) << word << " in " << changes;
  }
  world.say("");
  EXPECT_EQ(normal, status_name(row.call(world)));
  const auto now = words_of(world.changes());
  for (const std::string &word : all) {
    if (word.find('=') != word.npos) {
      EXPECT_TRUE(now.contains(word)) << word << " is missing";
    }
  }
  return true;
}

void sweep(const Row &row) {
  uint32_t nth = 0;
  bool reached = true;
  while (reached && nth < kCallsMax) {
    { const World settled; }
    const auto before = live_things();
    reached = run_with_fault(row, ++nth);
    { const World anew; }
    EXPECT_EQ(before, live_things()) << failed_operation() << " fails, call " << nth;
  }
  EXPECT_LT(nth, kCallsMax);
  EXPECT_GT(nth, 1u) << "no call of the platform is seen";
}

}  // namespace

void run_rows(std::span<const Row> rows) {
  for (const Row &row : rows) {
    SCOPED_TRACE(std::string(row.text) + " " + row.faults);
    { const World settled; }
    const auto before = live_things();
    run(row);
    { const World anew; }
    EXPECT_EQ(before, live_things());
    if (row.may != nullptr) sweep(row);
  }
}

}  // namespace kivo_test
