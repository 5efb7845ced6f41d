// "arvl-host list".

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "host/support/tree_backup.h"
#include "support/json.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

class ListCommand : public TreeBackup {};

TEST_F(ListCommand, ListsTheBackupsOfEachApplication) {
  EXPECT_EQ(onStore("list").out, "no backups\n");
  const std::string first = mustBackUp().filename();
  const std::string second = mustBackUp().filename();
  ASSERT_EQ(backup({"--name", "an application"}).status, 0);
  const std::string third = latest("an application").filename();
  const ProcessResult all = onStore("list");
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.out,
            "APPLICATION     BACKUP                DATA  CONTENT\n"
            "an application  " +
                third +
                "  1.0   2 files, 2 folders, 1 link, 8 B\n"
                "unruly          " +
                first +
                "  1.0   2 files, 2 folders, 1 link, 8 B\n"
                "unruly          " +
                second + "  1.0   2 files, 2 folders, 1 link, 8 B\n");
  EXPECT_EQ(onStore("list", {"--name", "an application"}).out,
            "APPLICATION     BACKUP                DATA  CONTENT\n"
            "an application  " +
                third + "  1.0   2 files, 2 folders, 1 link, 8 B\n");
}

TEST_F(ListCommand, AlignsColumnsByTerminalCells) {
  for (const char *name : {"\u65e5\u672c", "caf\u00e9"}) {
    ASSERT_EQ(backup({"--name", name}).status, 0);
  }
  damage(latest("caf\u00e9") / "manifest.json", "\"1.0\",\"success\"",
         "\"1\\u001b.0\",\"success\"");
  EXPECT_EQ(onStore("list").out,
            "APPLICATION  BACKUP                DATA     CONTENT\n"
            "caf\u00e9         " +
                latest("caf\u00e9").filename().string() +
                "  1\\x1b.0  2 files, 2 folders, 1 link, 8 B\n"
                "\u65e5\u672c         " +
                latest("\u65e5\u672c").filename().string() +
                "  1.0      2 files, 2 folders, 1 link, 8 B\n");
}

TEST_F(ListCommand, ReportsTheStartOfEachBackupInJson) {
  const fs::path folder = mustBackUp();
  const Json::Value report = parseJson(onStore("list", {"--json"}).out);
  ASSERT_EQ(report["backups"].size(), 1u);
  const Json::Value &listed = report["backups"][0];
  EXPECT_EQ(listed.getMemberNames(), (Arguments{"actual", "app_data_version", "application",
                                                "backup", "error", "finished", "path", "started"}));
  const std::string started = listed["started"].asString();
  EXPECT_TRUE(std::regex_match(
      started, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z")))
      << started;
  EXPECT_LE(started, listed["finished"].asString());
  EXPECT_TRUE(holds(bytesOf(folder / "manifest.json"), "\"started\":\"" + started + "\""));
}

TEST_F(ListCommand, ListsABackupWhoseManifestCannotBeRead) {
  const fs::path folder = mustBackUp();
  const std::string manifest = folder / "manifest.json";
  damage(manifest, "\"version\":1", "\"version\":2");
  const std::string newer = "\"" + manifest +
                            "\" is of version 2, this arvl-host reads up to version 1: use the "
                            "newer one";
  const ProcessResult result = onStore("list");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(lastLine(result.out),
            "unruly       " + folder.filename().string() + "  -     " + newer);
  EXPECT_EQ(parseJson(onStore("list", {"--json"}).out)["backups"][0]["error"], newer);
  writeBytes(manifest, "");
  EXPECT_TRUE(holds(onStore("list").out, "  -     \"" + manifest +
                                             "\", line 1: this is not the manifest of a backup\n"));
}

TEST_F(ListCommand, ListsAManifestWithAnExportResultOfAnotherType) {
  const fs::path folder = mustBackUp();
  damage(folder / "manifest.json", "{\"app_data_version\":\"1.0\",\"success\":true}", "\"1.0\"");
  const ProcessResult result = onStore("list");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(holds(lastLine(result.out), "  -     \"" + (folder / "manifest.json").string()));
}

}  // namespace
}  // namespace arvl_test
