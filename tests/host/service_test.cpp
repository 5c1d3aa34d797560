// Serving, when the event loop can wait for requests no longer.
#include "serving/service.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>
#include <uv.h>

#include <filesystem>
#include <memory>

#include "platform/channel_client.h"

namespace {

std::string g_socket;
channel_client *g_client = nullptr;
uv_poll_cb g_told = nullptr;

// A poll that fails, and after it a SIGTERM, which ends whoever goes on.
void fail_and_terminate(uv_poll_t *poll, int, int) {
  g_told(poll, UV_EBADF, 0);
  raise(SIGTERM);
}

}  // namespace

// In place of libuv's. A client waits by then, so that the descriptor is ready in the first turn.
extern "C" int uv_poll_start(uv_poll_t *handle, int events, uv_poll_cb callback) {
  static const auto next =
      reinterpret_cast<int (*)(uv_poll_t *, int, uv_poll_cb)>(dlsym(RTLD_NEXT, "uv_poll_start"));
  EXPECT_EQ(PLATFORM_OK, channel_client_connect(g_socket.c_str(), 10000, &g_client));
  g_told = callback;
  return next(handle, events, fail_and_terminate);
}

namespace {

TEST(Service, EndsInErrorWhenItCannotHearRequests) {
  const auto folder =
      std::filesystem::path(testing::TempDir()) / ("service." + std::to_string(getpid()));
  std::filesystem::create_directory(folder);
  g_socket = folder / "sock";
  std::string error;
  EXPECT_FALSE(kivod::serve(g_socket, std::nullopt, error));
  EXPECT_EQ("cannot hear requests: bad file descriptor", error);
  EXPECT_FALSE(std::filesystem::exists(g_socket));
  channel_client_close(g_client);
  std::filesystem::remove_all(folder);
}

}  // namespace
