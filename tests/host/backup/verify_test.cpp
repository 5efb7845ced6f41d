// Progress and cancellation of verifyBackup(). The tests of the command cover the problems it finds.

#include "backup/verify.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/support/job_support.h"
#include "host/support/store_error_of.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using arvl_host::StepProgress;

class Verify : public JobFolder {
 protected:
  Verify() {
    makeOddTree(at("local/tree"));
    script("export", {{"upload", "dir", at("local/tree"), "/tree"}});
  }

  std::vector<StepProgress> progressOf(const fs::path &folder) {
    std::vector<StepProgress> all;
    const arvl_host::Verification result = arvl_host::verifyBackup(
        folder, [this](const std::string &, const std::string &) { ++problems_; },
        [&](const StepProgress &progress) { all.push_back(progress); });
    EXPECT_EQ(result.problems, problems_);
    totals_ = result.totals;
    return all;
  }

  arvl_host::Totals totals_;
  std::uint64_t problems_ = 0;
};

TEST_F(Verify, ReportsProgressTowardsTheSizeInTheManifest) {
  const std::vector<StepProgress> all = progressOf(mustBackUp());
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(problems_, 0u);
  EXPECT_EQ(all.front().files, 0u);
  EXPECT_EQ(all.front().bytes, 0u);
  EXPECT_EQ(all.back().files, totals_.files);
  EXPECT_EQ(all.back().bytes, totals_.bytes);
  EXPECT_GT(totals_.bytes, 0u);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].expectedBytes, totals_.bytes);
    EXPECT_GE(all[i].bytes, i == 0 ? 0 : all[i - 1].bytes);
    EXPECT_LE(all[i].files, totals_.files);
  }
}

TEST_F(Verify, DoesNotCountMissingFiles) {
  const fs::path folder = mustBackUp();
  fs::remove_all(folder / "data");
  const StepProgress last = progressOf(folder).back();
  EXPECT_GT(problems_, 0u);
  EXPECT_EQ(last.files, 0u);
  EXPECT_EQ(last.bytes, 0u);
  EXPECT_EQ(last.expectedBytes, totals_.bytes);
}

// Returns the error of verifyBackup() without root privileges, because root can read everything.
std::string errorAsOtherUser(const fs::path &folder) {
  const bool isSuperuser = geteuid() == 0;
  EXPECT_TRUE(!isSuperuser || seteuid(65534) == 0);
  std::string error = storeErrorOf([&] {
    arvl_host::verifyBackup(
        folder,
        [](const std::string &path, const std::string &problem) {
          ADD_FAILURE() << path << ": " << problem;
        },
        [](const StepProgress &) {});
  });
  EXPECT_TRUE(!isSuperuser || seteuid(0) == 0);
  return error;
}

TEST_F(Verify, ThrowsWithoutPermissionToReadTheBackup) {
  const fs::path folder = mustBackUp();
  fs::permissions(folder, fs::perms::all);
  for (const char *name : {"manifest.json", "SHA256SUMS"}) {
    fs::permissions(folder / name, fs::perms::none);
    EXPECT_EQ(errorAsOtherUser(folder),
              "cannot open \"" + (folder / name).string() + "\": Permission denied");
    fs::permissions(folder / name, fs::perms::all);
  }
  fs::permissions(folder, fs::perms::none);
  EXPECT_EQ(errorAsOtherUser(folder),
            "cannot open \"" + (folder / "manifest.json").string() + "\": Permission denied");
  fs::permissions(folder, fs::perms::all);
}

TEST_F(Verify, PropagatesAnExceptionOfItsListener) {
  const fs::path folder = mustBackUp();
  int calls = 0;
  const auto stop = [&](const StepProgress &) {
    ++calls;
    throw std::logic_error("stop");
  };
  EXPECT_THROW(arvl_host::verifyBackup(
                   folder, [](const std::string &, const std::string &) {}, stop),
               std::logic_error);
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace arvl_test
