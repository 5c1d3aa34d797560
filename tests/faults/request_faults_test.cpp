// Show-database requests of which something fails: in the channel, in the message set, or in the
// callback, in whose place this program puts others. Every row gives all that is traced, all that
// the client receives and the error of the connection, and a client on a fresh connection is
// answered.
#include <csignal>
#include <cstring>
#include <functional>
#include <set>

#include "faults/request_traces.h"
#include "kivo/show_request.h"
#include "platform/error_text.h"
#include "support/database_request.h"
#include "support/faults/replacement.h"

using Callback = std::function<int(channel_connection *, char *)>;
static Callback g_callback;
static int g_continued = 0;

// In place of the library's, which answers unless the test has a callback of its own.
int zelui_show_kivo_database_cb(channel_connection *connection, const channel_command *command,
                                char *error_text, uint32_t size) noexcept {
  KIVO_TEST_REAL(zelui_show_kivo_database_cb);
  if (!g_callback) return real(connection, command, error_text, size);
  EXPECT_EQ(KIVO_REQUEST_ERROR_SIZE, size);
  EXPECT_STREQ("", error_text) << "left over from the request before";
  EXPECT_EQ(uint32_t{MESSAGE_SHOW_KIVO_DATABASE_REQUEST}, command->request);
  return g_callback(connection, error_text);
}

namespace kivo_test {
namespace {

const std::string kDead = "unknown status 0x0000dead";
const std::string kBeef = "unknown status 0x0000beef";
const std::string kInvalid = error_text(MESSAGE_ERR_INVALID_ARG);
const std::string kGivenUpText = error_text(CHANNEL_ERR_FAILED);
const std::string kDeadEntry = "Error 57005 occured: " + kDead;
const std::string kNoMacEntry = "Error -1610349056 occured: " + kInvalid;  // 0xa0040600 with a sign
const std::string kNoCommon = "Failed to create common messageMemory allocation error";
const std::string kNotClosed = "Could not finish and close generated response";
const std::string kNotFinal = "Could not finalize response in epilogue";

Lines operator+(Lines left, const Lines &right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// What is traced of a request without fields and of one with fields, and of the ways to end.
const Lines kOpen = {"rq1", "rq2", "rq6", "rq7"};
const Lines kOpenNone = kOpen + Lines{"cb3", "cb6"};
const Lines kOpenAsk = {"rq1", "rq2", "dump", "rq6", "rq7"};
const Lines kOpenAll = kOpenAsk + Lines{"cb3", "cb6"};
const Lines kSucceeded = {"rq11", "rq12", "rq22", "rq25"};
const Lines kCommit = {"rq27", "rq28"};
const Lines kAbort = {"rq18", "rq19", "rq0=1"};
const Lines kEnd = {"rq0=1"};
const Lines kCommitted = kSucceeded + kCommit + kEnd;
const Lines kPending = kOpen + Lines{"rq11", "rq14", "rq0=2"};
Lines failed(const std::string &text) { return {"rq9=" + text}; }
Lines corrupted(const std::string &text) { return {"rq9=" + text, "rq10", "rq0=1"}; }
Lines not_aborted(const std::string &why, const std::string &text) {
  return {"rq33=" + why, "rq34=" + why, "rq35=" + text};
}

struct Fault {
  std::string operation;
  uint32_t nth = 1;
  uint32_t status = 0xdead;
};

struct Row {
  std::string name;
  Ask ask;
  std::vector<Fault> faults;
  Lines traces;
  Lines frames;  // the kinds; of a refusal the text as well
  uint32_t error = PLATFORM_OK;
  Callback callback = nullptr;
  std::function<void(channel_connection *)> before = nullptr;
  std::function<void(channel_connection *)> later = nullptr;
};

void write_content(channel_connection *connection) {
  uint32_t err = 0;
  auto *message = zelui_kivo_db_msg_create(channel_message_definitions(connection, nullptr), &err);
  EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, message, zelui_kivo_db_msg_marshal));
  zelui_kivo_db_msg_destroy(message);
}

Callback says(const std::string &text, int result = KIVO_RESPONSE_SYNCHRONOUS,
              void (*first)(channel_connection *) = nullptr) {
  return [=](channel_connection *connection, char *error_text) {
    if (first != nullptr) first(connection);
    std::strcpy(error_text, text.c_str());
    return result;
  };
}
Callback pends(void (*first)(channel_connection *) = nullptr) {
  return says("", KIVO_RESPONSE_ASYNCHRONOUS, first);
}
void continue_later(channel_connection *connection) {
  channel_register_continuation(connection, [](channel_connection *) { ++g_continued; });
}
std::function<void(channel_connection *)> completes(const char *text) {
  return [=](channel_connection *connection) { channel_finish_async(connection, text); };
}

const Ask kNone = {};
const Ask kList = {.attr_info = true};
const Ask kFilter = {.mac = kMac};
const Ask kNoMac = {.mac = ""};
const std::string kDefinitions = "channel_message_definitions";  // handler, replies, epilogue
const std::string kMarshal = "channel_marshal";                  // start, replies, commit or abort
const std::string kScratch = "channel_scratch";
const std::string kClose = "channel_close_generated_response";
constexpr uint32_t kGivenUp = CHANNEL_ERR_FAILED;

// clang-format off
// What goes wrong in the callback.
const Row kReplyRows[] = {
    {"nothing, list", kList, {}, kOpenAll + Lines{"cb19", "cb22"} + kCommitted,
     {"start", "common", "list", "commit"}},
    {"nothing, filter", kFilter, {}, kOpenAll + Lines{"cb11", "cb14"} + kCommitted,
     {"start", "common", "filter", "commit"}},
    {"common without definitions", kList, {{kDefinitions, 2}},
     kOpenAsk + Lines{"cb1", "cb19", "cb22"} + kCommitted, {"start", "list", "commit"}},
    {"common not made", kNone, {{"zelui_kivo_db_common_msg_create"}},
     kOpen + failed(kNoCommon) + kAbort, {"start", "abort", "nack: " + kNoCommon}},
    {"common not made, the list fails after it", kList, {{"zelui_kivo_db_common_msg_create"}},
     kOpenAsk + Lines{"cb18=" + kDead} + failed(kDeadEntry) + kAbort,
     {"start", "abort", "nack: " + kDeadEntry}},
    {"common not filled", kNone, {{"zelui_kivo_db_common_set_owner"}},
     kOpen + Lines{"cb2=" + kDead} + failed(kDeadEntry) + kAbort,
     {"start", "abort", "nack: " + kDeadEntry}},
    {"common not written", kList, {{kMarshal, 2}},
     kOpenAsk + Lines{"cb8=" + kDead, "cb19", "cb22"} + kCommitted, {"start", "list", "commit"}},
    {"common without scratch", kNone, {{kScratch}}, kOpen + Lines{"cb3", "cb5"} + kCommitted,
     {"start", "common", "commit"}},
    {"common not rendered", kNone, {{"zelui_kivo_db_common_msg_render"}},
     kOpen + Lines{"cb3", "cb7=" + kDead} + kCommitted, {"start", "common", "commit"}},
    {"common not rendered, the list fails after it", kList, {{"zelui_kivo_db_common_msg_render"}},
     kOpenAsk + Lines{"cb3", "cb7=" + kDead, "cb18=" + kDead} + corrupted(kDeadEntry),
     {"start", "common"}, kGivenUp},
    {"filter without definitions", kFilter, {{kDefinitions, 3}},
     kOpenAll + Lines{"cb9"} + kCommitted, {"start", "common", "commit"}},
    {"filter not made", kFilter, {{"zelui_kivo_db_filter_msg_create"}},
     kOpenAll + corrupted("Failed to create db filter messageMemory allocation error"),
     {"start", "common"}, kGivenUp},
    {"last filter entry not made", kFilter, {{"zelui_kivo_db_filter_data_create", 21}},
     kOpenAll + corrupted("Failed to create fil data messageMemory allocation error"),
     {"start", "common"}, kGivenUp},
    {"MAC address not sent", kNoMac, {},
     kOpenAll + Lines{"cb10=" + kInvalid} + corrupted(kNoMacEntry), {"start", "common"}, kGivenUp},
    {"MAC address not sent, nothing written", kNoMac, {{kDefinitions, 2}},
     kOpenAsk + Lines{"cb1", "cb10=" + kInvalid} + failed(kNoMacEntry) + kAbort,
     {"start", "abort", "nack: " + kNoMacEntry}},
    {"filter not written", kFilter, {{kMarshal, 3}},
     kOpenAll + Lines{"cb16=" + kDead} + kCommitted, {"start", "common", "commit"}},
    {"filter without scratch", kFilter, {{kScratch, 2}},
     kOpenAll + Lines{"cb11", "cb13"} + kCommitted, {"start", "common", "filter", "commit"}},
    {"filter not rendered", kFilter, {{"zelui_kivo_db_filter_msg_render"}},
     kOpenAll + Lines{"cb11", "cb15=" + kDead} + kCommitted,
     {"start", "common", "filter", "commit"}},
    {"list without definitions", kList, {{kDefinitions, 3}},
     kOpenAll + Lines{"cb17"} + kCommitted, {"start", "common", "commit"}},
    {"list not made", kList, {{"zelui_kivo_db_msg_create"}},
     kOpenAll + corrupted("Failed to create db messageMemory allocation error"),
     {"start", "common"}, kGivenUp},
    {"list entry not made", kList, {{"zelui_kivo_db_data_create", 2}},
     kOpenAll + corrupted("Failed to create db data messageMemory allocation error"),
     {"start", "common"}, kGivenUp},
    {"last list entry not taken", kList, {{"zelui_kivo_db_append_db_info", 21}},
     kOpenAll + Lines{"cb18=" + kDead} + corrupted(kDeadEntry), {"start", "common"}, kGivenUp},
    {"list not written", kList, {{kMarshal, 3}},
     kOpenAll + Lines{"cb24=" + kDead} + kCommitted, {"start", "common", "commit"}},
    {"list without scratch", kList, {{kScratch, 2}},
     kOpenAll + Lines{"cb19", "cb21"} + kCommitted, {"start", "common", "list", "commit"}},
    {"list not rendered", kList, {{"zelui_kivo_db_msg_render"}},
     kOpenAll + Lines{"cb19", "cb23=" + kDead} + kCommitted, {"start", "common", "list", "commit"}},
};

// What goes wrong around it, and what other callbacks may do.
const Row kBundleRows[] = {
    {"connection in error", kList, {},
     {"rq1", "rq2", "dump", "rq3=" + kGivenUpText, "rq4", "rq0=1"}, {}, kGivenUp,
     nullptr, channel_set_error},
    {"no start", kNone, {{kMarshal}}, Lines{"rq1", "rq2", "rq8=" + kDead} + kAbort,
     {"abort", "nack: "}},
    {"no start and no abort", kNone, {{kMarshal}, {kMarshal, 2, 0xbeef}},
     {"rq1", "rq2", "rq8=" + kDead, "rq20=" + kBeef, "rq21=" + kBeef, "rq0=1"}, {}, kGivenUp},
    {"not closed", kNone, {{kClose}}, kOpenNone + kSucceeded + Lines{"rq31", "rq32", "rq0=1"},
     {"start", "common", "abort", "nack: " + kNotClosed}},
    {"no commit", kNone, {{kMarshal, 3}},
     kOpenNone + kSucceeded + Lines{"rq29=" + kDead, "rq31", "rq32", "rq0=1"},
     {"start", "common", "abort", "nack: " + kNotFinal}},
    {"no commit and no abort", kNone, {{kMarshal, 3}, {kMarshal, 4, 0xbeef}},
     kOpenNone + kSucceeded + Lines{"rq29=" + kDead} + not_aborted(kBeef, kNotFinal) + kEnd,
     {"start", "common"}, kGivenUp},

    {"a reason", kNone, {}, kOpen + failed("no") + kAbort, {"start", "abort", "nack: no"}, 0,
     says("no")},
    {"the longest reason", kNone, {}, kOpen + failed(std::string(404, 'n')) + kAbort,
     {"start", "abort", "nack: " + std::string(404, 'n')}, 0, says(std::string(404, 'n'), 7)},
    {"a reason, and no abort", kNone, {{kMarshal, 2}},
     kOpen + failed("no") + Lines{"rq20=" + kDead, "rq21=" + kDead, "rq0=1"},
     {"start"}, kGivenUp, says("no")},
    {"a reason after content", kNone, {}, kOpen + corrupted("no"),
     {"start", "list"}, kGivenUp, says("no", KIVO_RESPONSE_ASYNCHRONOUS, write_content)},
    {"a reason, connection in error", kNone, {}, kOpen + failed("no") + kEnd,
     {"start"}, kGivenUp, says("no", 1, channel_set_error)},
    {"connection in error without a reason", kNone, {},
     kOpen + kSucceeded + not_aborted(kGivenUpText, kNotClosed) + kEnd,
     {"start"}, kGivenUp, says("", 1, channel_set_error)},
    {"continuation", kNone, {},
     kOpen + Lines{"rq11", "rq12", "rq13", "rq22", "rq25"} + kCommit + kEnd, {"start", "commit"}, 0,
     says("", 1, continue_later), nullptr, [](auto *) { EXPECT_EQ(1, g_continued); }},

    {"completed later", kNone, {}, kPending + Lines{"rq22", "rq25"} + kCommit,
     {"start", "list", "commit"}, 0, pends(write_content), nullptr, completes(nullptr)},
    {"completed later with an empty text", kNone, {}, kPending + Lines{"rq22", "rq25"} + kCommit,
     {"start", "commit"}, 0, pends(), nullptr, completes("")},
    {"failed later", kNone, {}, kPending + Lines{"rq22", "rq23=no", "rq31", "rq32"},
     {"start", "abort", "nack: no"}, 0, pends(), nullptr, completes("no")},
    {"failed later, and no abort", kNone, {{kMarshal, 2}},
     kPending + Lines{"rq22", "rq23=no"} + not_aborted(kDead, "no"),
     {"start"}, kGivenUp, pends(), nullptr, completes("no")},
    {"failed later, after content", kNone, {}, kPending + Lines{"rq22", "rq23=no", "rq24"},
     {"start", "list"}, kGivenUp, pends(write_content), nullptr, completes("no")},
    {"failed later, connection in error", kNone, {}, kPending + Lines{"rq22", "rq23=no"},
     {"start"}, kGivenUp, pends(channel_set_error), nullptr, completes("no")},
};
// clang-format on

// A message's kind; of a refusal the text as well.
std::string kind_in(const std::string &words) {
  return words.starts_with("nack") ? words : words.substr(0, words.find(':'));
}

class RequestFaults : public testing::Test {
 protected:
  RequestFaults() {
    reset_process();
    create_database(1, {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR}});
    create_session();
    channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
                             dcx_show_kivo_database_request_command_handler);
    g_callback = nullptr;
  }
  ~RequestFaults() override { g_callback = nullptr; }

  static Lines kinds(const Client &client) {
    Lines lines = received(client);
    for (std::string &line : lines) line = kind_in(line);
    return lines;
  }

  // Returns the keys of what was traced, without what they were filled with.
  static std::set<std::string> run(const Row &row) {
    SCOPED_TRACE(row.name);
    channel_connection *connection = nullptr;
    const Client client = memory_client(&connection);
    if (row.before) row.before(connection);
    RequestTraces traces;
    g_callback = row.callback;
    g_continued = 0;
    for (const auto &[operation, nth, status] : row.faults) {
      arm_further_fault(operation, nth, status);
    }
    EXPECT_EQ(PLATFORM_OK, send_request(client, row.ask));
    if (row.later) row.later(connection);
    EXPECT_TRUE(disarm_fault()) << "the request did not get to the fault";
    EXPECT_EQ(row.traces, traces.keys);
    EXPECT_EQ(row.frames, kinds(client));
    EXPECT_EQ(row.error, channel_error(connection));
    expect_that_the_handling_has_ended(client);
    std::set<std::string> keys;
    for (const std::string &key : traces.keys) keys.insert(key.substr(0, key.find('=')));
    return keys;
  }

 private:
  static void expect_that_the_handling_has_ended(const Client &client) {
    g_callback = nullptr;
    EXPECT_EQ(PLATFORM_OK, send_request(client, kNone)) << "still pending";
    const Client fresh = memory_client();
    EXPECT_EQ(PLATFORM_OK, send_request(fresh, kList));
    EXPECT_EQ((Lines{"start", "common", "list", "commit"}), kinds(fresh));
  }
};

TEST_F(RequestFaults, EachIsTracedAndAnsweredAndEveryTraceIsReached) {
  std::set<std::string> reached = {"cb0", "rq15", "rq16"};  // by the tests below
  for (const Row &row : kReplyRows) reached.merge(run(row));
  for (const Row &row : kBundleRows) reached.merge(run(row));
  for (const RequestTrace &trace : kRequestTraces) {
    EXPECT_TRUE(reached.contains(trace.key)) << trace.key << " is not reached";
  }
}

TEST_F(RequestFaults, TracesAreWrittenByModuleAndLevelAlone) {
  const struct {
    uint32_t application, handler;
    Lines traces;
  } rows[] = {
      {7, 7, Lines{"rq1", "rq2", "dump"} + kSucceeded + kEnd},
      {6, 7, Lines{"rq1"} + kSucceeded},
      {8, 2, Lines{"rq2", "dump", "rq6", "rq7", "cb3", "cb6", "cb19", "cb22"} + kCommit + kEnd},
  };
  for (const auto &row : rows) {
    const Client client = memory_client();
    RequestTraces traces;
    trace_set_level(kA, row.application);
    trace_set_level(kH, row.handler);
    arm_fault(kScratch, row.application < 8 ? 1 : 3);  // nothing is rendered, or two replies
    EXPECT_EQ(PLATFORM_OK, send_request(client, kList));
    EXPECT_FALSE(disarm_fault());
    EXPECT_EQ(row.traces, traces.keys) << row.application << " " << row.handler;
  }
}

TEST_F(RequestFaults, TheCallbackNeedsAConnectionATextAndACommand) {
  channel_connection *connection = nullptr;
  const Client client = memory_client(&connection);
  channel_command command{};
  RequestTraces traces;
  char text[32] = "before";
  EXPECT_EQ(1, zelui_show_kivo_database_cb(nullptr, &command, text, sizeof text));
  EXPECT_EQ(1, zelui_show_kivo_database_cb(connection, &command, nullptr, sizeof text));
  EXPECT_EQ((Lines{"cb0", "cb0"}), traces.keys);
  EXPECT_STREQ("before", text);
  const std::string reason = "Invalid command structure.";
  for (const uint32_t size : {27u, 26u, 10u, 1u}) {
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(1, zelui_show_kivo_database_cb(connection, nullptr, text, size));
    EXPECT_EQ(reason.substr(0, size - 1), text);
    EXPECT_EQ('#', text[size]);
  }
  EXPECT_EQ(Lines{}, received(client));
  dcx_show_kivo_database_request_command_handler(nullptr, nullptr, nullptr, connection, 0);
  EXPECT_EQ((Lines{"start", "abort", "nack: " + reason}), received(client));

  command.show_kivo_database.mac_present = 1;
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(1, zelui_show_kivo_database_cb(connection, &command, text, 10));
  EXPECT_STREQ(kNoMacEntry.substr(0, 9).c_str(), text);
  EXPECT_EQ('#', text[10]);
}

using RequestStops = RequestFaults;

TEST_F(RequestStops, TheProcessForABrokenContract) {
  channel_connection *connection = nullptr;
  const Client client = memory_client(&connection);
  const auto request = [&](Callback callback) {
    trace_set_all_levels(0);
    trace_add_stream_sink(stderr);
    g_callback = std::move(callback);
    send_request(client, kNone);
  };
  const auto aborted = testing::KilledBySignal(SIGABRT);
  EXPECT_EXIT(request(says("", 3)), aborted,
              "host. emergency 16: Invalid result 3 from show_kivo_database_request callback");
  EXPECT_EXIT(request(says("", 0)), aborted, "emergency 16: Invalid result 0 from");
  EXPECT_EXIT(request(pends(continue_later)), aborted,
              "host. emergency 15: Application registered continuation for "
              "show_kivo_database_request while in asynchronous return state");
  EXPECT_EXIT(dcx_show_kivo_database_request_command_handler(nullptr, nullptr, nullptr, connection,
                                                             0xa0050200),
              aborted, "error_word == 0");
  EXPECT_EXIT(dcx_show_kivo_database_request_epilogue(nullptr, nullptr), aborted,
              "connection != nullptr");
}

}  // namespace
}  // namespace kivo_test
