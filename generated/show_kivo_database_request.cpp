// Command handler and epilogue of show_kivo_database_request: the frame around the messages that
// the request's callback writes. The handler opens a bundle; the epilogue commits it, or aborts it
// and refuses the request with a text. Once messages stand in it a bundle can no longer be aborted:
// the connection is put into error.
// Invariant: every way through ends the connection's handling once, or leaves the response pending.
#include "kivo/show_request.h"
#include "platform/error_text.h"
#include "platform/trace.h"

namespace {

// ---- Names and traces

constexpr const char *kRequest = "show_kivo_database_request";
constexpr const char *kResponse = "show_kivo_database_resp";
constexpr const char *kBundleStart = "show_kivo_database_resp_bundle_start";
constexpr const char *kBundleCommit = "show_kivo_database_resp_bundle_commit";
constexpr const char *kBundleAbort = "show_kivo_database_resp_bundle_abort";

struct TraceRow {
  uint32_t number;
  uint16_t module;
  uint32_t level;
  const char *text;
};

// Written under the module and level of the record before.
struct FollowOnRow {
  uint32_t number;
  const char *text;
};

constexpr uint16_t kApp = TRACE_MODULE_HOST_APP;
constexpr uint16_t kChannel = TRACE_MODULE_REQUEST_HANDLER;
constexpr uint32_t kFatal = 0;
constexpr uint32_t kFailure = 3;
constexpr uint32_t kProgress = 7;
constexpr uint32_t kDetail = 8;

// clang-format off
constexpr TraceRow kFinished             { 0, kApp,     kProgress, "Finished cmd handler of %s, return %u"};
constexpr TraceRow kHandling             { 1, kChannel, kProgress, "Handling content-generating %s request handler"};
constexpr TraceRow kContent              { 2, kApp,     kProgress, "Request content"};
constexpr TraceRow kCalledInError        { 3, kApp,     kProgress, "Handler called with connection in error: %s"};
constexpr TraceRow kCallingFinished      { 4, kApp,     kProgress, "Calling finished"};
constexpr TraceRow kStarted              { 6, kApp,     kDetail,   "Marshaled %s message to shell manager"};
constexpr FollowOnRow kStartedEmpty      { 7,                      "  - message was empty"};
constexpr TraceRow kStartFailed          { 8, kApp,     kFailure,  "Failed to marshal %s message: %s"};
constexpr TraceRow kFailed               { 9, kChannel, kFailure,  "Handler for %s failed with error: %s"};
constexpr TraceRow kCorrupted            {10, kChannel, kFailure,  "Assuming %s handler has corrupted channel"};
constexpr TraceRow kSucceeded            {11, kChannel, kProgress, "Initial asynchronous handler %s succeeded"};
constexpr TraceRow kSynchronous          {12, kChannel, kProgress, "Response was synchronous. Application will NOT invoke %s epilogue function, as it is being invoked automatically now"};
constexpr TraceRow kContinuation         {13, kApp,     kProgress, "Application registered continuation for %s"};
constexpr TraceRow kAsynchronous         {14, kChannel, kProgress, "Response is asynchronous. Application will invoke %s epilogue function when ready"};
constexpr TraceRow kAsyncContinuation    {15, kApp,     kFatal,    "Application registered continuation for %s while in asynchronous return state"};
constexpr TraceRow kInvalidResult        {16, kApp,     kFatal,    "Invalid result %d from %s callback"};
constexpr TraceRow kAborted              {18, kApp,     kDetail,   "Marshaled %s message to shell manager"};
constexpr FollowOnRow kAbortedEmpty      {19,                      "  - message was empty"};
constexpr TraceRow kAbortFailed          {20, kApp,     kFailure,  "Failed to marshal %s message: %s"};
constexpr TraceRow kUnableToAbort        {21, kChannel, kFailure,  "Unable to abort bundle in %s handler: %s"};
constexpr TraceRow kClosing              {22, kChannel, kProgress, "Handling content-generating %s request closure"};
constexpr TraceRow kClosingFailed        {23, kChannel, kFailure,  "Closure for %s invoked with error: %s"};
constexpr TraceRow kClosingCorrupted     {24, kChannel, kFailure,  "Assuming %s closure has corrupted channel"};
constexpr TraceRow kCompleting           {25, kChannel, kProgress, "%s epilogue succeeded, completing response"};
constexpr TraceRow kCommitted            {27, kApp,     kDetail,   "Marshaled %s message to shell manager"};
constexpr FollowOnRow kCommittedEmpty    {28,                      "  - message was empty"};
constexpr TraceRow kCommitFailed         {29, kApp,     kFailure,  "Failed to marshal %s message: %s"};
constexpr TraceRow kClosingAborted       {31, kApp,     kDetail,   "Marshaled %s message to shell manager"};
constexpr FollowOnRow kClosingAbortEmpty {32,                      "  - message was empty"};
constexpr TraceRow kClosingAbortFailed   {33, kApp,     kFailure,  "Failed to marshal %s message: %s"};
constexpr TraceRow kClosingNotAborted    {34, kChannel, kFailure,  "Unable to abort bundle in %s epilogue: %s"};
constexpr TraceRow kHadError             {35, kChannel, kFailure,  "Had error: %s"};
// clang-format on

#define trace_row(row, ...)                                                                        \
  do {                                                                                             \
    if (trace_enabled((row).module, (row).level))                                                  \
      trace_write((row).module, (row).level, (row).number, (row).text __VA_OPT__(, ) __VA_ARGS__); \
  } while (0)

// A bundle message is traced with the remark that it has no fields.
#define trace_bundle_message(row, empty_row, name)           \
  do {                                                       \
    if (trace_enabled(TRACE_MODULE_HOST_APP, kDetail)) {     \
      trace_row(row, name);                                  \
      trace_follow_on((empty_row).number, (empty_row).text); \
    }                                                        \
  } while (0)

// The reason that the callback gives for a failure; empty after success.
constinit char g_error_text[KIVO_REQUEST_ERROR_SIZE]{};

// ---- Ways to end

void finish(channel_connection *connection) noexcept {
  channel_finished(connection);
  trace_row(kFinished, kRequest, uint32_t{KIVO_RESPONSE_SYNCHRONOUS});
}

void give_up(channel_connection *connection) noexcept {
  channel_set_error(connection);
  finish(connection);
}

void abort_bundle(channel_connection *connection) noexcept {
  const uint32_t status =
      channel_marshal(connection, nullptr, show_kivo_database_resp_bundle_abort_marshal);
  if (status != PLATFORM_OK) {
    trace_row(kAbortFailed, kBundleAbort, error_text(status));
    trace_row(kUnableToAbort, kResponse, error_text(status));
    give_up(connection);
    return;
  }
  trace_bundle_message(kAborted, kAbortedEmpty, kBundleAbort);
  channel_nack(connection, g_error_text);
  finish(connection);
}

// After the callback has written an error text.
void fail(channel_connection *connection) noexcept {
  trace_row(kFailed, kRequest, g_error_text);
  if (channel_error(connection) != 0) {
    finish(connection);
  } else if (channel_write_count(connection) != 0) {
    trace_row(kCorrupted, kResponse);
    give_up(connection);
  } else {
    abort_bundle(connection);
  }
}

// After a success, by the callback's result.
void succeed(channel_connection *connection, int result) noexcept {
  trace_row(kSucceeded, kRequest);
  if (result == KIVO_RESPONSE_ASYNCHRONOUS) {
    trace_row(kAsynchronous, kRequest);
    if (channel_continuation_registered(connection) != 0) {
      trace_row(kAsyncContinuation, kRequest);
      fatal_stop("no continuation is registered", __FILE__, __LINE__);
    }
    trace_row(kFinished, kRequest, uint32_t{KIVO_RESPONSE_ASYNCHRONOUS});
  } else if (result == KIVO_RESPONSE_SYNCHRONOUS) {
    trace_row(kSynchronous, kRequest);
    if (channel_continuation_registered(connection) != 0) trace_row(kContinuation, kRequest);
    channel_finish_async(connection, nullptr);
    trace_row(kFinished, kRequest, uint32_t{KIVO_RESPONSE_SYNCHRONOUS});
  } else {
    trace_row(kInvalidResult, result, kRequest);
    fatal_stop("the callback's result is known", __FILE__, __LINE__);
  }
}

// ---- Ways to end in the epilogue

void finish_closing_with_error(channel_connection *connection) noexcept {
  channel_set_error(connection);
  channel_finished(connection);
}

void abort_closing(channel_connection *connection, const char *text) noexcept {
  const uint32_t status =
      channel_marshal(connection, nullptr, show_kivo_database_resp_bundle_abort_marshal);
  if (status != PLATFORM_OK) {
    trace_row(kClosingAbortFailed, kBundleAbort, error_text(status));
    trace_row(kClosingNotAborted, kResponse, error_text(status));
    trace_row(kHadError, text);
    finish_closing_with_error(connection);
    return;
  }
  trace_bundle_message(kClosingAborted, kClosingAbortEmpty, kBundleAbort);
  channel_nack(connection, text);
  channel_finished(connection);
}

void close_failed(channel_connection *connection, const char *text) noexcept {
  trace_row(kClosingFailed, kRequest, text);
  if (channel_error(connection) != 0) {
    channel_finished(connection);
  } else if (channel_write_count(connection) != 0) {
    trace_row(kClosingCorrupted, kResponse);
    finish_closing_with_error(connection);
  } else {
    abort_closing(connection, text);
  }
}

void commit(channel_connection *connection) noexcept {
  trace_row(kCompleting, kResponse);
  if (channel_close_generated_response(connection) != PLATFORM_OK) {
    abort_closing(connection, "Could not finish and close generated response");
    return;
  }
  const uint32_t status =
      channel_marshal(connection, nullptr, show_kivo_database_resp_bundle_commit_marshal);
  if (status != PLATFORM_OK) {
    trace_row(kCommitFailed, kBundleCommit, error_text(status));
    abort_closing(connection, "Could not finalize response in epilogue");
    return;
  }
  trace_bundle_message(kCommitted, kCommittedEmpty, kBundleCommit);
  channel_finished(connection);
}

}  // namespace

void dcx_show_kivo_database_request_command_handler(void *, void *, const channel_command *command,
                                                    channel_connection *connection,
                                                    uint32_t error_word) noexcept {
  if (error_word != 0) fatal_stop("error_word == 0", __FILE__, __LINE__);
  g_error_text[0] = '\0';
  trace_row(kHandling, kRequest);
  if (trace_enabled(TRACE_MODULE_HOST_APP, kProgress)) {
    trace_row(kContent);
    channel_dump_request(channel_message_definitions(connection, nullptr));
  }
  if (const uint32_t error = channel_error(connection); error != 0) {
    trace_row(kCalledInError, error_text(error));
    trace_row(kCallingFinished);
    finish(connection);
    return;
  }
  const uint32_t status =
      channel_marshal(connection, nullptr, show_kivo_database_resp_bundle_start_marshal);
  if (status != PLATFORM_OK) {
    trace_row(kStartFailed, kBundleStart, error_text(status));
    abort_bundle(connection);
    return;
  }
  trace_bundle_message(kStarted, kStartedEmpty, kBundleStart);
  channel_set_epilogue(connection, dcx_show_kivo_database_request_epilogue);
  const int result =
      zelui_show_kivo_database_cb(connection, command, g_error_text, sizeof g_error_text);
  if (g_error_text[0] != '\0') {
    fail(connection);
  } else {
    succeed(connection, result);
  }
}

void dcx_show_kivo_database_request_epilogue(channel_connection *connection,
                                             const char *error_text) noexcept {
  if (connection == nullptr) fatal_stop("connection != nullptr", __FILE__, __LINE__);
  trace_row(kClosing, kRequest);
  if (error_text != nullptr && error_text[0] != '\0') {
    close_failed(connection, error_text);
  } else {
    commit(connection);
  }
}
