#include "backup/catalog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "host/support/store_error_of.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::storeErrorOf;
using Names = std::vector<std::string>;

class CatalogOf : public testing::Test {
 protected:
  void make(const Names &folders) const {
    for (const std::string &folder : folders) {
      dir_.makeDir(folder);
    }
  }

  std::string storeName() const { return "\"" + dir_.path().string() + "\""; }

  const arvl_test::TempDir dir_;
  const Catalog catalog_{dir_.path()};
};

TEST(ApplicationName, IsAValidDirectoryName) {
  for (const std::string name : {"notes", "an application", "a.b", "\xc3\xa4", "-x"}) {
    EXPECT_EQ(checkApplicationName(name), "") << name;
  }
  EXPECT_EQ(checkApplicationName(std::string(200, 'n')), "");
  for (const std::string name : {"", ".", "..", ".hidden", "a/b", "/", "a\nb", "\xff", "\x1b[1m"}) {
    EXPECT_NE(checkApplicationName(name), "") << name;
  }
  EXPECT_NE(checkApplicationName(std::string(201, 'n')), "");
  EXPECT_EQ(checkApplicationName(".x"),
            "an application's name is the name of a directory, without a full stop in front, not "
            "\".x\"");
}

TEST(CatalogOfNothing, CannotBeOpened) {
  EXPECT_EQ(storeErrorOf([] { Catalog("/no/store"); }),
            "cannot open the directory \"/no/store\": No such file or directory");
  EXPECT_EQ(storeErrorOf([] { Catalog("/dev/null"); }),
            "cannot open the directory \"/dev/null\": Not a directory");
}

TEST_F(CatalogOf, IgnoresEntriesThatAreNoBackups) {
  make({"app/20261121T092532.123Z", "app/20251121T092532.123Z", "app/20261121T092532.124Z.partial",
        "app/lost+found", "app/20261121T092532.123", "app/20261121T092532.123Z.old", "app/.partial",
        "app/x20261121T092532.123Z.partial", "other", ".hidden"});
  std::ofstream(dir_.at("app/20241121T092532.123Z")) << "a file";
  fs::create_directory_symlink("20261121T092532.123Z", dir_.at("app/20231121T092532.123Z"));
  std::ofstream(dir_.at("a file"));
  EXPECT_EQ(catalog_.applications(), (Names{"app", "other"}));
  EXPECT_EQ(catalog_.backups("app"), (Names{"20251121T092532.123Z", "20261121T092532.123Z"}));
  EXPECT_EQ(catalog_.unfinished("app"), Names{"20261121T092532.124Z.partial"});
  EXPECT_EQ(catalog_.backups("other"), Names{});
}

TEST_F(CatalogOf, FollowsALinkToAnApplication) {
  make({"elsewhere/20261121T092532.123Z"});
  fs::create_directory_symlink("elsewhere", dir_.at("app"));
  fs::create_symlink("nothing", dir_.at("broken"));
  make({"lost+found"});
  EXPECT_EQ(catalog_.applications(), (Names{"app", "elsewhere"}));
  EXPECT_EQ(catalog_.backups("app"), Names{"20261121T092532.123Z"});
}

TEST_F(CatalogOf, FindsTheLatestOrTheNamedBackup) {
  make({"app/20261121T092532.123Z", "app/20251121T092532.123Z", "app/20271121T092532.123Z.partial",
        "empty"});
  EXPECT_EQ(catalog_.find("app", ""), "20261121T092532.123Z");
  EXPECT_EQ(catalog_.find("app", "20251121T092532.123Z"), "20251121T092532.123Z");
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("app", "20271121T092532.123Z"); }),
            "there is no backup 20271121T092532.123Z of app; there are 20251121T092532.123Z, "
            "20261121T092532.123Z");
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("empty", ""); }),
            "the store " + storeName() + " has no finished backup of empty");
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("none", ""); }),
            "the store " + storeName() + " has no backup of none; it has backups of app");
}

TEST_F(CatalogOf, ReportsAnEmptyStore) {
  EXPECT_EQ(storeErrorOf([&] { catalog_.find("app", ""); }),
            "the store " + storeName() + " has no backup of app");
}

TEST_F(CatalogOf, ReportsAnApplicationThatCannotBeRead) {
  EXPECT_EQ(storeErrorOf([&] { catalog_.backups("none"); }),
            "cannot read the directory \"" + dir_.at("none") + "\": No such file or directory");
}

}  // namespace
}  // namespace arvl_host
