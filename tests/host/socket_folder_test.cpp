// The folder of the default socket: whose it is, who may enter, and what is left alone.
#include "serving/socket_folder.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

class SocketFolder : public testing::Test {
 protected:
  SocketFolder() {
    std::filesystem::create_directory(parent_);
    before_ = umask(0077);
  }
  ~SocketFolder() override {
    umask(before_);
    std::filesystem::remove_all(parent_);
  }
  struct stat state() const {
    struct stat is {};
    EXPECT_EQ(0, lstat(folder_.c_str(), &is));
    return is;
  }

  const std::filesystem::path parent_ =
      std::filesystem::path(testing::TempDir()) / ("folder." + std::to_string(getpid()));
  const std::string folder_ = parent_ / "kivo";
  mode_t before_ = 0;
};

TEST_F(SocketFolder, IsForTheUserAndTheGroupOnly) {
  kivod::make_socket_folder(folder_, std::nullopt);
  EXPECT_EQ(mode_t{S_IFDIR | 0750}, state().st_mode);
  EXPECT_EQ(geteuid(), state().st_uid);
  EXPECT_EQ(getegid(), state().st_gid);
}

TEST_F(SocketFolder, BelongsToTheGroupThatMayAskNow) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to give it to any group";
  for (const char *name : {"daemon", "bin"}) {
    const group *entry = getgrnam(name);
    ASSERT_NE(nullptr, entry);
    const gid_t number = entry->gr_gid;
    kivod::make_socket_folder(folder_, name);
    EXPECT_EQ(number, state().st_gid);
    EXPECT_EQ(mode_t{S_IFDIR | 0750}, state().st_mode);
  }
}

TEST_F(SocketFolder, IsLeftAloneWhenSomebodyElseMadeIt) {
  const std::string any_group = getgrgid(getegid())->gr_name;
  std::filesystem::create_directory(folder_);
  ASSERT_EQ(0, chmod(folder_.c_str(), 01777));
  kivod::make_socket_folder(folder_, any_group);
  EXPECT_EQ(mode_t{S_IFDIR | 01777}, state().st_mode);

  std::filesystem::remove(folder_);
  std::filesystem::create_directory(parent_ / "elsewhere");
  std::filesystem::create_directory_symlink(parent_ / "elsewhere", folder_);
  kivod::make_socket_folder(folder_, any_group);
  EXPECT_TRUE(S_ISLNK(state().st_mode));
  EXPECT_EQ(0700u, static_cast<mode_t>(std::filesystem::status(folder_).permissions()));
}

TEST_F(SocketFolder, WithoutItsGroupIsForTheUser) {
  kivod::make_socket_folder(folder_, "no such group");
  EXPECT_EQ(mode_t{S_IFDIR | 0750}, state().st_mode);
  EXPECT_EQ(getegid(), state().st_gid);
}

}  // namespace
