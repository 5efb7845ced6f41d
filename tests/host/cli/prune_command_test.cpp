// "arvl-host prune".

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "host/support/tree_backup.h"
#include "support/deep_tree.h"
#include "support/json.h"
#include "support/small_file_system.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using Names = std::set<std::string>;

class PruneCommand : public TreeBackup {
 protected:
  // Kills a host while its plug-in waits. Returns the name of the unfinished backup.
  std::string leaveUnfinished() const {
    const std::string fifo = makeFifo();
    script("export", {{"wait", fifo}});
    Command killed(job("backup"), variables());
    EXPECT_TRUE(killed.waitFor("[stdout] waiting\n"));
    killed.signal(SIGKILL);
    killed.finish();
    release(fifo);  // the plug-in notices that its host has ended
    fs::remove(fifo);
    for (const std::string &name : backups()) {
      if (name.find(".partial") != std::string::npos) {
        return name;
      }
    }
    return "";
  }
};

TEST_F(PruneCommand, RemovesOnlyUnfinishedBackups) {
  const fs::path finished = mustBackUp();
  const std::string left = leaveUnfinished();
  ASSERT_NE(left, "");
  const ProcessResult listed = onStore("list");
  EXPECT_EQ(countOf(listed.out, "\nunruly "), 1u);
  EXPECT_EQ(lastLine(listed.out),
            "and 1 that did not finish, or that run now; prune removes what did not finish");
  EXPECT_EQ(countOf(onStore("verify").out, "partial"), 0u);
  EXPECT_EQ(restore({"--backup", left}).status, 2);

  const ProcessResult pruned = onStore("prune");
  EXPECT_EQ(pruned.status, 0);
  EXPECT_EQ(pruned.out, "removed " + at("store/unruly/") + left + "\n");
  EXPECT_EQ(backups(), Names{finished.filename()});
  const ProcessResult again = onStore("prune");
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, "");
}

TEST_F(PruneCommand, RemovesADeepUnfinishedBackup) {
  const std::string left = dir_.makeDir("store/unruly") + "/20261121T092532.123Z.partial";
  makeDeepTree(left);
  Arguments words = {"/bin/sh", "-c", "ulimit -n 64 && exec \"$0\" \"$@\""};
  for (const std::string &word : storeCommand("prune")) {
    words.push_back(word);
  }
  const ProcessResult pruned = run(words);
  EXPECT_EQ(pruned.status, 0) << pruned.err;
  EXPECT_EQ(pruned.out, "removed " + left + "\n");
  EXPECT_EQ(backups(), Names{});
}

TEST_F(PruneCommand, ContinuesAfterABackupThatCannotBeRemoved) {
  const std::string stuck = at("store/unruly/20261121T092532.123Z.partial");
  const std::string mounted = dir_.makeDir("store/unruly/20261121T092532.123Z.partial/mounted");
  const std::string last = dir_.makeDir("store/unruly/20261121T092532.124Z.partial");
  const std::string other = dir_.makeDir("store/zebra/20261121T092532.123Z.partial");
  const SmallFileSystem disk(mounted, "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  const std::string error =
      "cannot remove \"mounted\" in \"" + stuck + "\": Device or resource busy";
  const ProcessResult pruned = onStore("prune");
  EXPECT_EQ(pruned.status, 2);
  EXPECT_EQ(pruned.out, "removed " + last + "\nremoved " + other + "\n");
  EXPECT_EQ(pruned.err, "error: " + error + "\n");
  EXPECT_EQ(parseJson(onStore("prune", {"--json"}).out)["error"], error);

  const ProcessResult next = backup();
  EXPECT_EQ(next.status, 0);
  EXPECT_EQ(next.err, "warning: " + error + "; the backup goes on, remove the directory by hand\n");
  EXPECT_EQ(onStore("verify", {"--name", "unruly"}).status, 0);
}

TEST_F(PruneCommand, KeepsABackupThatIsRunning) {
  const std::string fifo = makeFifo();
  script("export", {{"wait", fifo}});
  Command running(job("backup"), variables());
  ASSERT_TRUE(running.waitFor("[stdout] waiting\n"));
  const Names before = backups();
  const ProcessResult pruned = onStore("prune");
  EXPECT_EQ(pruned.status, 0);
  EXPECT_EQ(pruned.err.substr(0, pruned.err.find(" on ")),
            "warning: the backups in \"" + at("store/unruly") + "\" are in use by process " +
                std::to_string(running.pid()));
  EXPECT_EQ(parseJson(onStore("prune", {"--json"}).out)["busy"].size(), 1u);
  EXPECT_EQ(backups(), before);
  EXPECT_EQ(onStore("list").out,
            "no backups\nand 1 that did not finish, or that run now; prune removes what did not "
            "finish\n");
  release(fifo);
  EXPECT_EQ(running.finish().status, 0);
  EXPECT_EQ(onStore("list").status, 0);
}

}  // namespace
}  // namespace arvl_test
