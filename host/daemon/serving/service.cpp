// See service.h. libuv waits: for the request channel's descriptor and for the two signals.
#include "service.h"

#include <signal.h>
#include <unistd.h>
#include <uv.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "../host_trace.h"
#include "attributes_request.h"
#include "kivo/show_request.h"
#include "platform/channel_server.h"
#include "platform/error_text.h"
#include "room.h"
#include "socket_folder.h"
#include "text/socket_path.h"

namespace kivod {
namespace {

using Server = std::unique_ptr<channel_server, decltype(&channel_server_close)>;

constexpr int kStopSignals[] = {SIGTERM, SIGINT};

// libuv ends the process by a signal where it lacks memory while it makes a loop. So it is ended
// before; what is left of the socket gives way to the next start.
void *there_or_end(void *block) {
  if (block != nullptr) return block;
  std::fputs("kivod: no event loop: out of memory\n", stderr);
  std::_Exit(EXIT_FAILURE);
}

// libuv also does where a pipe of its own cannot be made, so all that it opens is opened once
// before. 0, or one of its errors.
int check_descriptors(int open_file) {
  std::array<int, 8> files{};  // two pipes, and up to four files of the kernel's
  size_t n_open = 0;
  while (n_open < files.size() && (files[n_open] = dup(open_file)) >= 0) ++n_open;
  const int result = n_open == files.size() ? 0 : uv_translate_sys_error(errno);
  while (n_open > 0) close(files[--n_open]);
  return result;
}

void on_stop(uv_signal_t *signal, int number) {
  host_trace(HostLevel::kNotice, HostMessage::kStopping, "stopping: signal %d", number);
  uv_stop(signal->loop);
}

class Loop {
 public:
  Loop(channel_server &server, const std::string &socket) : server_(server), socket_(socket) {}
  ~Loop() {
    if (!made_) return;
    uv_walk(
        &loop_, [](uv_handle_t *handle, void *) { uv_close(handle, nullptr); }, nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
  }

  // 0 or one of libuv's errors.
  int prepare() {
    int result = uv_replace_allocator(
        [](size_t size) { return there_or_end(std::malloc(size)); },
        [](void *block, size_t size) { return there_or_end(std::realloc(block, size)); },
        [](size_t n, size_t size) { return there_or_end(std::calloc(n, size)); }, std::free);
    if (result == 0) result = check_descriptors(channel_server_fd(&server_));
    if (result == 0) result = uv_loop_init(&loop_);
    made_ = result == 0;
    for (size_t i = 0; result == 0 && i < std::size(kStopSignals); ++i) {
      result = uv_signal_init(&loop_, &signals_[i]);
      if (result == 0) result = uv_signal_start(&signals_[i], on_stop, kStopSignals[i]);
    }
    if (result == 0) result = uv_poll_init(&loop_, &poll_, channel_server_fd(&server_));
    poll_.data = this;
    if (result == 0) result = uv_poll_start(&poll_, UV_READABLE, on_requests);
    if (result == 0) result = uv_timer_init(&loop_, &announcement_);
    announcement_.data = this;
    return result == 0 ? uv_timer_start(&announcement_, announce, 0, kAnnounceEveryMs) : result;
  }

  // Until it is told to stop: 0; or one of libuv's errors, when requests cannot be heard any more.
  int run() {
    uv_run(&loop_, UV_RUN_DEFAULT);
    return failure_;
  }

 private:
  static constexpr uint64_t kAnnounceEveryMs = 100;

  // Once, as soon as standard output has room: nobody who asks waits for its reader.
  static void announce(uv_timer_t *timer) {
    if (!has_room(STDOUT_FILENO)) return;
    const Loop &self = *static_cast<Loop *>(timer->data);
    std::printf("Listening on %s\n", self.socket_.c_str());
    std::fflush(stdout);
    uv_timer_stop(timer);
  }

  // libuv does not watch the descriptor any more after an error.
  static void on_requests(uv_poll_t *poll, int status, int) {
    Loop &self = *static_cast<Loop *>(poll->data);
    if (status == 0) return channel_server_process(&self.server_);
    host_trace(HostLevel::kError, HostMessage::kDeaf, "cannot hear requests: %s",
               uv_strerror(status));
    self.failure_ = status;
    uv_stop(poll->loop);
  }

  channel_server &server_;
  const std::string &socket_;
  int failure_ = 0;
  bool made_ = false;
  uv_loop_t loop_{};
  uv_signal_t signals_[std::size(kStopSignals)]{};
  uv_poll_t poll_{};
  uv_timer_t announcement_{};
};

std::string why_not(const std::string &socket, uint32_t status) {
  const int reason = errno;
  std::string text = "cannot listen on " + socket + ": ";
  if (status != CHANNEL_ERR_SYSTEM) return text + error_text(status);
  switch (reason) {
    case EADDRINUSE:
      return text + "another process does";
    case ENOTSOCK:
      return text + "it is no socket";
    case EAGAIN:
      return text + "another process is about to";
    case EEXIST:
      return text + "a file is at " + socket + ".lock";
    case ESRCH:
      return text + "there is no such group";
    default:
      return text + std::strerror(reason);
  }
}

}  // namespace

bool serve(const std::string &socket, const std::optional<std::string> &group, std::string &error) {
  signal(SIGPIPE, SIG_IGN);  // whoever reads the traces may go away
  // Its folder is its own, and goes with every reboot.
  if (socket == host_text::kDefaultSocketPath) {
    make_socket_folder(std::filesystem::path(socket).parent_path(), group);
  }
  channel_server *opened = nullptr;
  const uint32_t status =
      channel_server_open(socket.c_str(), group ? group->c_str() : nullptr, 0, &opened);
  if (status != PLATFORM_OK) {
    error = why_not(socket, status);
    return false;
  }
  const Server server(opened, channel_server_close);
  channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
                           dcx_show_kivo_database_request_command_handler);
  channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, answer_attributes_request);
  Loop loop(*server, socket);
  if (const int result = loop.prepare(); result != 0) {
    error = std::string("no event loop: ") + uv_strerror(result);
    return false;
  }
  host_trace(HostLevel::kNotice, HostMessage::kServing, "listening on %s", socket.c_str());
  const int failure = loop.run();
  if (failure != 0) error = std::string("cannot hear requests: ") + uv_strerror(failure);
  return failure == 0;
}

}  // namespace kivod
