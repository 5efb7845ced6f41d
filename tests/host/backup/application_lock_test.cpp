#include "backup/application_lock.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include "host/support/store_error_of.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::storeErrorOf;

TEST(ApplicationLock, HasOneHolderAtATime) {
  const arvl_test::TempDir dir;
  std::optional<ApplicationLock> lock(std::in_place, dir.at("app"));
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir.at("app")); })
                .find("the backups in \"" + dir.at("app") + "\" are in use by process " +
                      std::to_string(getpid()) + " on "),
            0u);
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir.at("other")); }), "");
  lock.reset();
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir.at("app")); }), "");
}

TEST(ApplicationLock, IsFreeAfterItsHolderExits) {
  const arvl_test::TempDir dir;
  const pid_t child = fork();
  if (child == 0) {
    const ApplicationLock lock(dir.at("app"));
    _exit(0);  // without the destructor, like a killed process
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir.at("app")); }), "");
}

TEST(ApplicationLock, RefusesASymbolicLinkAsLockFile) {
  const arvl_test::TempDir dir;
  dir.makeDir("app");
  std::ofstream(dir.at("precious")) << "contents";
  fs::create_symlink(dir.at("precious"), dir.at("app/.lock"));
  EXPECT_EQ(storeErrorOf([&] { ApplicationLock(dir.at("app")); }),
            "cannot open \"" + dir.at("app/.lock") + "\": Too many levels of symbolic links");
  EXPECT_EQ(fs::file_size(dir.at("precious")), 8u);
}

}  // namespace
}  // namespace arvl_host
