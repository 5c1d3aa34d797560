// Show-database requests: all that is traced, all that the client receives and the error of the
// connection, when a request goes well and when something fails, in the channel, in the message
// set, or in the callback, in whose place this program puts others.
#include <csignal>
#include <cstring>
#include <vector>

#include "kivo/show_request.h"
#include "platform/error_text.h"
#include "support/database_request.h"
#include "support/faults/replacement.h"
#include "support/trace_words.h"
#include "world.h"

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

const std::string kMac = "\x02\x11\x22\x33\x44\x55";
const Ask kNone = {};
const Ask kList = {.attr_info = true};
const Ask kFilter = {.mac = kMac};
const Ask kNoMac = {.mac = ""};

void continue_later(channel_connection *connection) {
  channel_register_continuation(connection, [](channel_connection *) { ++g_continued; });
}
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

struct Request {
  Ask ask;
  Callback callback = nullptr;
  void (*before)(channel_connection *) = nullptr;
  const char *completed = nullptr;  // later, with this text
  bool whole = false;               // messages are told with their content
};

// Sends one request, says the messages that come and the connection's error. The handling has ended
// then: another request on the connection and one on a fresh connection are taken.
uint32_t send(World &w, const Request &request) {
  channel_connection *connection = nullptr;
  const Client client = memory_client(&connection);
  if (request.before != nullptr) request.before(connection);
  g_callback = request.callback;
  g_continued = 0;
  EXPECT_EQ(PLATFORM_OK, send_request(client, request.ask));
  if (request.completed != nullptr) channel_finish_async(connection, request.completed);
  g_callback = nullptr;
  for (const std::string &line : received(client)) {
    const bool whole = request.whole || line.starts_with("nack");
    w.say(whole ? line : line.substr(0, line.find(':')));
  }
  if (g_continued != 0) w.say("continued");
  return channel_error(connection);
}

// What outcomes are made of: {word} stands for the text behind it.
const std::pair<const char *, std::string> kParts[] = {
    {"{open}", "r1(req) r2 r6(start) r7"},
    {"{ask}", "r1(req) r2 dump r6(start) r7"},
    {"{common}", " c3(common) c6"},
    {"{list}", " c19(list) c22"},
    {"{found}", " 311(42){reads}"},
    {"{reads}",
     " 301 701(user-name) 301 701(ipv4-address) 301 701(session-id) 301 701(external-device)"
     " 301 701(start-time)"},
    {"{filter}", " c11(filter) c14"},
    {"{done}", "{ran} r27(commit) r28{end}"},
    {"{ran}", " r11(req) r12(req){closed}"},
    {"{closed}", " r22(req) r25(resp)"},
    {"{pending}", "{open} r11(req) r14(req) r0(req,2)"},
    {"{corrupted}", " r10(resp){end}"},
    {"{aborted}", " r18(abort) r19{end}"},
    {"{end}", " r0(req,1)"},
    {"{gone}", status_name(CHANNEL_ERR_FAILED) + ":"},
    {"{given up}", "connection given up"},
    {"{no mac}", "Error -1610349056 occured: message: invalid argument"},
    {"{dead}", "Error 57005 occured: unknown status 0x0000dead"},
    {"{no common}", "Failed to create common messageMemory allocation error"},
    {"{no filter}", "Failed to create db filter messageMemory allocation error"},
    {"{no value}", "Failed to create fil data messageMemory allocation error"},
    {"{no list}", "Failed to create db messageMemory allocation error"},
    {"{no type}", "Failed to create db data messageMemory allocation error"},
    {"{not closed}", "Could not finish and close generated response"},
    {"{not final}", "Could not finalize response in epilogue"},
    {"{type}", "start common: type"},
    {"{about}", ", records 13, attributes 21, 'ATTR_DB' of 'owner'"},
    {"{types}", "list: 21 entries 0:0=8 1:1=2 2:2=8 3:3=7 4:4=1"},
    {"{values}",
     "found 1, 21 entries 0:0=ann 1:1=192.0.2.1 2:2=s-1 3:3=--- Data not found ---"
     " 4:4=--- Data not found ---"},
    {"{mac}", kMac},
    {"{long}", std::string(404, 'n')},
};

std::string expanded(std::string text) {
  for (bool again = true; again;) {
    again = false;
    for (const auto &[word, part] : kParts) {
      for (size_t at; (at = text.find(word)) != text.npos; again = true) {
        text.replace(at, std::strlen(word), part);
      }
    }
  }
  return text;
}

struct RequestRow {
  Request request;
  const char *faults, *outcome, *messages;
};
const auto kAsync = KIVO_RESPONSE_ASYNCHRONOUS;

// clang-format off
const RequestRow kWell[] = {  // told with their content
    {{kNone}, "", "ok: {open}{common}{done}", "{type} 5{about} commit"},
    {{kList}, "", "ok: {ask}{common}{list}{done}", "{type} 0{about} {types} commit"},
    {{{.attr_info_blank = true}}, "", "ok: {ask}{common}{list}{done}",
     "{type} 1{about} list: 21 entries commit"},
    {{{.attr_info = true, .attr_info_blank = true}}, "", "ok: {ask}{common}{list}{done}",
     "{type} 1{about} {types} commit"},
    {{kFilter}, "", "ok: {ask}{common}{found}{filter}{done}",
     "{type} 3{about} filter: '' '{mac}' 0, {values} commit"},
    {{{.sess_id = kAuditId + std::string("!"), .mac = kMac, .ipv4 = 1}}, "",
     "ok: {ask}{common} 311(819){reads}{filter}{done}",
     "{type} 2{about} filter: '0a0b0c0d0000000112345678!' '' 0, {values} commit"},
    {{{.attr_info = true, .ipv4 = 1}}, "", "ok: {ask}{common} 311(8){filter}{done}",
     "{type} 4{about} filter: '' '' 1, found 0, 21 entries commit"},
};

const RequestRow kIll[] = {
    // In the callback
    {{kList}, "channel_message_definitions#2", "ok: {ask} c1{list}{done}", "start list commit"},
    {{kNone}, "zelui_kivo_db_common_msg_create", "ok: {open} r9(req,{no common}){aborted}",
     "start abort nack: {no common}"},
    {{kList}, "zelui_kivo_db_common_msg_create", "ok: {ask} c18(dead) r9(req,{dead}){aborted}",
     "start abort nack: {dead}"},
    {{kNone}, "zelui_kivo_db_common_set_owner", "ok: {open} c2(dead) r9(req,{dead}){aborted}",
     "start abort nack: {dead}"},
    {{kList}, "channel_marshal#2", "ok: {ask} r8(common,dead){list}{done}", "start list commit"},
    {{kNone}, "channel_scratch", "ok: {open} c3(common) c5{done}", "start common commit"},
    {{kNone}, "zelui_kivo_db_common_msg_render", "ok: {open} c3(common) c7(dead){done}",
     "start common commit"},
    {{kList}, "zelui_kivo_db_common_msg_render",
     "{gone} {ask} c3(common) c7(dead) c18(dead) r9(req,{dead}){corrupted}", "start common"},
    {{kFilter}, "channel_message_definitions#3", "ok: {ask}{common} c9{done}",
     "start common commit"},
    {{kFilter}, "zelui_kivo_db_filter_msg_create",
     "{gone} {ask}{common} r9(req,{no filter}){corrupted}", "start common"},
    {{kFilter}, "zelui_kivo_db_filter_data_create#21",
     "{gone} {ask}{common}{found} r9(req,{no value}){corrupted}", "start common"},
    {{kNoMac}, "",
     "{gone} {ask}{common} 311(42) c10(message: invalid argument) r9(req,{no mac}){corrupted}",
     "start common"},
    {{kNoMac}, "channel_message_definitions#2",
     "ok: {ask} c1 311(42) c10(message: invalid argument) r9(req,{no mac}){aborted}",
     "start abort nack: {no mac}"},
    {{kFilter}, "channel_marshal#3", "ok: {ask}{common}{found} c16(filter,dead){done}",
     "start common commit"},
    {{kFilter}, "channel_scratch#2", "ok: {ask}{common}{found} c11(filter) c13{done}",
     "start common filter commit"},
    {{kFilter}, "zelui_kivo_db_filter_msg_render",
     "ok: {ask}{common}{found} c11(filter) c15(dead){done}", "start common filter commit"},
    {{kList}, "channel_message_definitions#3", "ok: {ask}{common} c17{done}",
     "start common commit"},
    {{kList}, "zelui_kivo_db_msg_create", "{gone} {ask}{common} r9(req,{no list}){corrupted}",
     "start common"},
    {{kList}, "zelui_kivo_db_data_create#2", "{gone} {ask}{common} r9(req,{no type}){corrupted}",
     "start common"},
    {{kList}, "zelui_kivo_db_append_db_info#21",
     "{gone} {ask}{common} c18(dead) r9(req,{dead}){corrupted}", "start common"},
    {{kList}, "channel_marshal#3", "ok: {ask}{common} c24(list,dead){done}",
     "start common commit"},
    {{kList}, "channel_scratch#2", "ok: {ask}{common} c19(list) c21{done}",
     "start common list commit"},
    {{kList}, "zelui_kivo_db_msg_render", "ok: {ask}{common} c19(list) c23(dead){done}",
     "start common list commit"},

    // Around it
    {{kList, nullptr, channel_set_error}, "", "{gone} r1(req) r2 dump r3({given up}) r4{end}", ""},
    {{kNone}, "channel_marshal", "ok: r1(req) r2 r8(start,dead){aborted}", "abort nack: "},
    {{kNone}, "channel_marshal channel_marshal#2=beef",
     "{gone} r1(req) r2 r8(start,dead) r20(abort,beef) r21(resp,beef){end}", ""},
    {{kNone}, "channel_close_generated_response", "ok: {open}{common}{ran} r31(abort) r32{end}",
     "start common abort nack: {not closed}"},
    {{kNone}, "channel_marshal#3", "ok: {open}{common}{ran} r29(commit,dead) r31(abort) r32{end}",
     "start common abort nack: {not final}"},
    {{kNone}, "channel_marshal#3 channel_marshal#4=beef",
     "{gone} {open}{common}{ran} r29(commit,dead) r33(abort,beef) r34(resp,beef)"
     " r35({not final}){end}", "start common"},
    {{kNone, says("no")}, "", "ok: {open} r9(req,no){aborted}", "start abort nack: no"},
    {{kNone, says(std::string(404, 'n'), 7)}, "", "ok: {open} r9(req,{long}){aborted}",
     "start abort nack: {long}"},
    {{kNone, says("no")}, "channel_marshal#2",
     "{gone} {open} r9(req,no) r20(abort,dead) r21(resp,dead){end}", "start"},
    {{kNone, says("no", kAsync, write_content)}, "", "{gone} {open} r9(req,no){corrupted}",
     "start list"},
    {{kNone, says("no", 1, channel_set_error)}, "", "{gone} {open} r9(req,no){end}", "start"},
    {{kNone, says("", 1, channel_set_error)}, "",
     "{gone} {open}{ran} r33(abort,{given up}) r34(resp,{given up}) r35({not closed}){end}",
     "start"},
    {{kNone, says("", 1, continue_later)}, "",
     "ok: {open} r11(req) r12(req) r13(req){closed} r27(commit) r28{end}",
     "start commit continued"},
    {{kNone, pends(write_content), nullptr, ""}, "", "ok: {pending}{closed} r27(commit) r28",
     "start list commit"},
    {{kNone, pends(), nullptr, "no"}, "", "ok: {pending} r22(req) r23(req,no) r31(abort) r32",
     "start abort nack: no"},
    {{kNone, pends(), nullptr, "no"}, "channel_marshal#2",
     "{gone} {pending} r22(req) r23(req,no) r33(abort,dead) r34(resp,dead) r35(no)", "start"},
    {{kNone, pends(write_content), nullptr, "no"}, "",
     "{gone} {pending} r22(req) r23(req,no) r24(resp)", "start list"},
    {{kNone, pends(channel_set_error), nullptr, "no"}, "",
     "{gone} {pending} r22(req) r23(req,no)", "start"},
};
// clang-format on

void run_requests(std::span<const RequestRow> rows, bool whole) {
  for (const RequestRow &row : rows) {
    Request request = row.request;
    request.whole = whole;
    const std::string outcome = expanded(row.outcome);
    const Row made = {row.outcome,
                      [&](World &w) { return send(w, request); },
                      row.faults,
                      outcome.c_str(),
                      expanded(row.messages),
                      nullptr,
                      [](World &w) { w.put(42, kMac); }};
    run_rows({&made, 1});
  }
}

class Requests : public testing::Test {
 protected:
  Requests() {
    start_process();
    channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
                             dcx_show_kivo_database_request_command_handler);
  }
  ~Requests() override { g_callback = nullptr; }
};

TEST_F(Requests, AreTracedAndAnswered) {
  run_requests(kWell, true);
  run_requests(kIll, false);
}

TEST_F(Requests, AreAnsweredFromTheDatabaseOfThatName) {
  World w;
  std::vector<kivo_attr_config> many(25, {kUser, 0, KIVO_DATA_TYPE_VAR_STR});
  for (uint32_t i = 0; i < 25; ++i) many[i].aaa_type = 100 + i;
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_create_database("ATTR_DB", "owner", &client, many.data(), 25, &w.db);
  w.begin_anew();
  send(w, {kList, nullptr, nullptr, nullptr, true});
  EXPECT_NE(std::string::npos, w.changes().find(" 20:20=8 commit"));
  w.recreate(1, "NEW", "newer", {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}});
  w.begin_anew();
  for (const Ask &ask : {kList, Ask{.sess_id = kAuditId}}) {
    send(w, {ask, nullptr, nullptr, nullptr, true});
  }
  const std::string common = ", records 0, attributes 21, '' of '' ";
  EXPECT_EQ("start common: type 0" + common + "list: 21 entries commit start common: type 2" +
                common + "filter: '" + kAuditId + "' '' 0, found 1, 21 entries commit",
            w.changes());
}

TEST_F(Requests, AreTracedByModuleAndLevelAlone) {
  const struct {
    uint32_t application, handler;
    const char *traces;
  } rows[] = {
      {7, 7, "r1(req) r2 dump r11(req) r12(req) r22(req) r25(resp) r0(req,1)"},
      {6, 7, "r1(req) r11(req) r12(req) r22(req) r25(resp)"},
      {8, 2, "r2 dump r6(start) r7 c3(common) c6 c19(list) c22 r27(commit) r28 r0(req,1)"},
  };
  for (const auto &row : rows) {
    World w;
    TraceWords log;
    trace_set_level(TRACE_MODULE_HOST_APP, row.application);
    trace_set_level(TRACE_MODULE_REQUEST_HANDLER, row.handler);
    send(w, {kList});
    EXPECT_EQ(row.traces, log.take());
  }
}

TEST_F(Requests, NeedAConnectionATextAndACommand) {
  channel_connection *connection = nullptr;
  const Client client = memory_client(&connection);
  channel_command command{};
  TraceWords log;
  char text[32] = "before";
  EXPECT_EQ(1, zelui_show_kivo_database_cb(nullptr, &command, text, sizeof text));
  EXPECT_EQ(1, zelui_show_kivo_database_cb(connection, &command, nullptr, sizeof text));
  EXPECT_EQ("c0 c0", log.take());
  EXPECT_STREQ("before", text);
  const std::string reason = "Invalid command structure.";
  for (const uint32_t size : {27u, 26u, 1u}) {
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(1, zelui_show_kivo_database_cb(connection, nullptr, text, size));
    EXPECT_EQ(reason.substr(0, size - 1), text);
    EXPECT_EQ('#', text[size]);
  }
  dcx_show_kivo_database_request_command_handler(nullptr, nullptr, nullptr, connection, 0);
  EXPECT_EQ((Lines{"start", "abort", "nack: " + reason}), received(client));
}

using RequestStops = Requests;

TEST_F(RequestStops, TheProcessForABrokenContract) {
  World w;
  const auto request = [&](Callback callback) {
    trace_set_all_levels(0);
    trace_add_stream_sink(stderr);
    send(w, {kNone, std::move(callback)});
  };
  const auto aborted = testing::KilledBySignal(SIGABRT);
  EXPECT_EXIT(request(says("", 3)), aborted,
              "emergency 16: Invalid result 3 from show_kivo_database_request callback");
  EXPECT_EXIT(request(pends(continue_later)), aborted,
              "emergency 15: Application registered continuation for "
              "show_kivo_database_request while in asynchronous return state");
  channel_connection *connection = nullptr;
  const Client client = memory_client(&connection);
  EXPECT_EXIT(dcx_show_kivo_database_request_command_handler(nullptr, nullptr, nullptr, connection,
                                                             0xa0050200),
              aborted, "error_word == 0");
  EXPECT_EXIT(dcx_show_kivo_database_request_epilogue(nullptr, nullptr), aborted,
              "connection != nullptr");
}

}  // namespace
}  // namespace kivo_test
