// Tests of the copies and moves of a store.

#include "files/copier.h"

#include <sys/file.h>

#include "host/files/store_test_base.h"
#include "support/small_file_system.h"

namespace {

using namespace arvl_host;
using arvl_test::SmallFileSystem;
using arvl_test::storeErrorOf;
namespace fs = std::filesystem;

class CopierTest : public StoreTestBase {};

TEST_F(CopierTest, UploadsAFileWithItsModeAndTime) {
  write("local/f", "text");
  fs::permissions(at("local/f"), fs::perms(0604));
  const timespec times[2] = {{100, 0}, {200, 5}};
  utimensat(AT_FDCWD, at("local/f").c_str(), times, 0);
  store_->upload(at("local/f"), FileType::kFile, false, "/g");
  struct stat status;
  ASSERT_EQ(stat(at("store/g").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0604u);
  EXPECT_EQ(status.st_mtim.tv_sec, 200);
  EXPECT_EQ(read("store/g"), "text");
  EXPECT_TRUE(fs::exists(at("local/f")));
  write("local/f", "other");
  store_->upload(at("local/f"), FileType::kFile, false, "/g");
  EXPECT_EQ(read("store/g"), "other");
  EXPECT_EQ(namesIn("store"), Names{"g"});
}

TEST_F(CopierTest, UploadsAFileWithItsHoles) {
  // Data at the beginning and between two holes, and a hole at the end.
  constexpr off_t kHole = 8 << 20;
  const UniqueFd file(open(at("local/f").c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_EQ(pwrite(file.get(), "begin", 5, 0), 5);
  ASSERT_EQ(pwrite(file.get(), "middle", 6, kHole), 6);
  ASSERT_EQ(ftruncate(file.get(), 2 * kHole + 3), 0);
  Witness witness;
  Store watched(at("store"), {{&witness, Durability::kEachFile}, false});
  watched.upload(at("local/f"), FileType::kFile, false, "/f");
  EXPECT_EQ(read("store/f"), read("local/f"));
  struct stat status;
  ASSERT_EQ(stat(at("store/f").c_str(), &status), 0);
  struct stat source;
  ASSERT_EQ(fstat(file.get(), &source), 0);
  EXPECT_LE(status.st_blocks, source.st_blocks);
  std::string text = read("local/f");
  EXPECT_EQ(witness.lines.at(witness.lines.size() - 2),
            "stored " + std::to_string(text.size()) + " " + sha256Of(text).substr(0, 8));

  ASSERT_EQ(ftruncate(file.get(), 0), 0);
  ASSERT_EQ(ftruncate(file.get(), kHole), 0);  // only a hole
  watched.upload(at("local/f"), FileType::kFile, false, "/g");
  EXPECT_EQ(read("store/g"), std::string(kHole, '\0'));
}

TEST_F(CopierTest, MovesATemporarySource) {
  write("local/f", "text");
  store_->upload(at("local/f"), FileType::kFile, true, "/g");
  EXPECT_FALSE(fs::exists(at("local/f")));
  EXPECT_EQ(read("store/g"), "text");
}

TEST_F(CopierTest, MovesATemporaryTreeIntoAnExistingOne) {
  fs::create_directories(at("local/t/sub/deep"));
  write("local/t/sub/f", "new");
  write("local/t/sub/g", "new");
  fs::create_symlink("f", at("local/t/sub/l"));
  fs::create_directories(at("store/t/sub/deep"));
  write("store/t/sub/deep/h", "old");
  write("store/t/sub/g", "old");
  store_->upload(at("local/t"), FileType::kDir, true, "/t");
  EXPECT_EQ(namesIn("store"),
            (Names{"t", "t/sub", "t/sub/deep", "t/sub/deep/h", "t/sub/f", "t/sub/g", "t/sub/l"}));
  EXPECT_EQ(read("store/t/sub/g"), "new");
  EXPECT_EQ(namesIn("local"), Names{});
}

TEST_F(CopierTest, MovesATemporarySourceFromAnotherFileSystem) {
  struct stat here;
  struct stat there;
  const std::string shm = "/dev/shm/arvl-test-" + std::to_string(getpid());
  std::error_code error;
  if (!fs::create_directory(shm, error) || stat(shm.c_str(), &there) != 0 ||
      stat(at("store").c_str(), &here) != 0 || here.st_dev == there.st_dev) {
    fs::remove_all(shm, error);
    GTEST_SKIP() << "/dev/shm is not a separate file system";
  }
  fs::create_directory(shm + "/sub");
  std::ofstream(shm + "/sub/f") << "text";
  store_->upload(shm, FileType::kDir, true, "/t");
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/sub", "t/sub/f"}));
  EXPECT_EQ(read("store/t/sub/f"), "text");
  EXPECT_FALSE(fs::exists(shm));
  fs::remove_all(shm);
}

TEST_F(CopierTest, UploadsTreesAndLinks) {
  fs::create_directories(at("local/t/sub"));
  write("local/t/sub/f\nwith a line feed", "x");
  fs::create_symlink("/etc/passwd", at("local/t/l"));
  store_->upload(at("local/t"), FileType::kDir, false, "/t");
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/l", "t/sub", "t/sub/f\nwith a line feed"}));
  EXPECT_EQ(fs::read_symlink(at("store/t/l")), "/etc/passwd");
  store_->upload(at("local/t/l"), FileType::kSymlink, false, "/l");
  EXPECT_EQ(fs::read_symlink(at("store/l")), "/etc/passwd");
  store_->upload(at("local/t"), FileType::kDir, false, "/t");  // into the existing tree
  EXPECT_EQ(namesIn("store").size(), 5u);
}

TEST_F(CopierTest, DownloadsATreeWithItsModesAndTimes) {
  fs::create_directories(at("store/t/sub"));
  write("store/t/sub/f", "x");
  fs::permissions(at("store/t"), fs::perms(0750));
  const timespec times[2] = {{100, 0}, {200, 0}};
  utimensat(AT_FDCWD, at("store/t").c_str(), times, 0);
  store_->download("/t", FileType::kDir, at("local/copy"));
  struct stat status;
  ASSERT_EQ(stat(at("local/copy").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0750u);
  EXPECT_EQ(status.st_mtim.tv_sec, 200);
  EXPECT_EQ(read("local/copy/sub/f"), "x");
}

TEST_F(CopierTest, KeepsTheModeOfAnExistingDirectory) {
  fs::create_directories(at("store/t/sub"));
  fs::create_directories(at("local/t/sub"));
  fs::permissions(at("local/t"), fs::perms(01777));
  fs::permissions(at("local/t/sub"), fs::perms(0700));
  store_->download("/t", FileType::kDir, at("local"));
  EXPECT_EQ(fs::status(at("local/t")).permissions(), fs::perms(01777));
  EXPECT_EQ(fs::status(at("local/t/sub")).permissions(), fs::perms(0700));
}

TEST_F(CopierTest, RefusesToCopyATreeIntoItself) {
  fs::create_directories(at("store/t/sub"));
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("store/t"), FileType::kDir, false, "/t/sub/t"); }),
            "cannot copy the directory \"" + at("store/t/sub/t") + "\" into itself");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("store/t"), FileType::kDir, false, "/t"); }),
            "cannot copy the directory \"" + at("store/t") + "\" onto itself");
}

TEST_F(CopierTest, TellsItsWatcherOfACopyAndItsChecksum) {
  Witness witness;
  Store watched(at("store"), {{&witness, Durability::kLeftToCaller}, false});
  write("local/f", "abc");
  watched.upload(at("local/f"), FileType::kFile, false, "/f");
  EXPECT_EQ(witness.lines,
            (Lines{"entry file " + at("local/f") + " 3", "bytes 3",
                   "file " + at("local/f") + " ba7816bf", "stored 3 ba7816bf", "delivered"}));
  witness.lines.clear();
  watched.upload(at("local/f"), FileType::kFile, true, "/g");
  if (hasLeases()) {
    EXPECT_EQ(witness.lines, (Lines{"moved 3", "delivered"}));
  }
}

TEST_F(CopierTest, TellsItsWatcherOfAFileThatChangesDuringTheCopy) {
  write("local/f", std::string(1 << 20, 'x'));
  Witness witness;
  Store watched(at("store"), {{&witness, Durability::kLeftToCaller}, false});
  const std::string changed = "changed " + at("local/f");
  watched.upload(at("local/f"), FileType::kFile, false, "/f");
  EXPECT_EQ(std::count(witness.lines.begin(), witness.lines.end(), changed), 0);
  witness.written = at("local/f");
  watched.upload(at("local/f"), FileType::kFile, false, "/g");
  EXPECT_EQ(std::count(witness.lines.begin(), witness.lines.end(), changed), 1);
}

TEST_F(CopierTest, SkipsAnEntryThatVanishesFromATreeAndNamesIt) {
  const std::function<void(const std::string &)> makers[] = {
      [](const std::string &path) { std::ofstream(path) << "x"; },
      [](const std::string &path) { fs::create_directories(path + "/deep"); },
      [](const std::string &path) { fs::create_symlink("x", path); },
  };
  for (const bool isTemporary : {false, true}) {
    for (const auto &make : makers) {
      fs::create_directory(at("store/t"));
      write("store/t/own",
            "");  // a tree is merged into one that holds something, not renamed whole
      fs::create_directory(at("local/t"));
      Witness witness;
      witness.rivals = {at("local/t/a"), at("local/t/b")};
      std::for_each(witness.rivals.begin(), witness.rivals.end(), make);
      Store watched(at("store"), {{&witness, Durability::kLeftToCaller}, false});
      watched.upload(at("local/t"), FileType::kDir, isTemporary, "/t");
      const auto heard = [&witness](const std::string &line) {
        return std::count(witness.lines.begin(), witness.lines.end(), line);
      };
      const bool isFirst = fs::symlink_status(at("store/t/a")).type() != fs::file_type::not_found;
      EXPECT_EQ(heard("vanished " + at("local/t/") + (isFirst ? "b" : "a")), 1);
      EXPECT_EQ(heard("end " + at("local/t") + " 1"), 1);
      const auto kept = [](const std::string &name) { return name == "a" || name == "b"; };
      const Names stored = namesIn("store/t");
      EXPECT_EQ(std::count_if(stored.begin(), stored.end(), kept), 1);
      fs::remove_all(at("local/t"));
      fs::remove_all(at("store/t"));
    }
  }
}

// Only root can change the owner of a file.
TEST_F(CopierTest, DropsSetUserIdIfTheOwnerChanges) {
  write("local/f", "text");
  fs::create_directory(at("local/d"));
  for (const char *name : {"local/f", "local/d"}) {
    if (geteuid() != 0 || chown(at(name).c_str(), 65534, 65534) != 0) {
      GTEST_SKIP() << "cannot change the owner of a file";
    }
    ASSERT_EQ(chmod(at(name).c_str(), 06755), 0);
  }
  store_->upload(at("local/f"), FileType::kFile, false, "/f");
  store_->upload(at("local/d"), FileType::kDir, false, "/d");
  write("local/own", "text");
  ASSERT_EQ(chmod(at("local/own").c_str(), 04755), 0);
  store_->upload(at("local/own"), FileType::kFile, false, "/own");
  const auto modeOf = [this](const char *name) {
    struct stat status;
    return stat(at(name).c_str(), &status) == 0 ? status.st_mode & 07777 : 0U;
  };
  EXPECT_EQ(modeOf("store/f"), 0755u);
  EXPECT_EQ(modeOf("store/d"), 0755u);
  EXPECT_EQ(modeOf("store/own"), 04755u);
}

TEST_F(CopierTest, CopiesATemporarySourceThatHasOtherNames) {
  write("local/f", "text");
  fs::create_hard_link(at("local/f"), at("local/other"));
  store_->upload(at("local/f"), FileType::kFile, true, "/f");
  std::ofstream(at("local/other"), std::ios::app) << " and more";
  EXPECT_EQ(read("store/f"), "text");
  EXPECT_EQ(namesIn("local"), Names{"other"});
}

TEST_F(CopierTest, CopiesATemporarySourceThatIsOpenForWriting) {
  write("local/f", "text");
  Witness witness;
  const Store watched(at("store"), {{&witness, Durability::kLeftToCaller}, false});
  std::ofstream writer(at("local/f"), std::ios::app);
  watched.upload(at("local/f"), FileType::kFile, true, "/f");
  writer << " and more" << std::flush;
  EXPECT_EQ(read("store/f"), "text");
  EXPECT_EQ(namesIn("local"), Names{});
  if (hasLeases()) {
    EXPECT_EQ(witness.lines.front(), "open for writing " + at("local/f"));
  }
}

TEST_F(CopierTest, CopiesOnlyTheFilesOfATemporaryTreeThatAreOpenForWriting) {
  if (!hasLeases()) {
    GTEST_SKIP() << "the file system has no leases";
  }
  fs::create_directories(at("local/t/sub"));
  write("local/t/sub/f", "text");
  write("local/t/sub/g", "text");
  fs::create_symlink("f", at("local/t/sub/l"));
  Witness witness;
  const Store watched(at("store"), {{&witness, Durability::kLeftToCaller}, false});
  std::ofstream writer(at("local/t/sub/f"), std::ios::app);
  watched.upload(at("local/t"), FileType::kDir, true, "/t");
  writer << " and more" << std::flush;
  EXPECT_EQ(read("store/t/sub/f"), "text");
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/sub", "t/sub/f", "t/sub/g", "t/sub/l"}));
  EXPECT_EQ(namesIn("local"), Names{});
  const auto countOf = [&](const std::string &line) {
    return std::count(witness.lines.begin(), witness.lines.end(), line);
  };
  EXPECT_EQ(countOf("open for writing " + at("local/t/sub/f")), 1);
  EXPECT_EQ(countOf("stored 4 " + sha256Of("text").substr(0, 8)), 1);
  EXPECT_EQ(countOf("moved 4"), 1);  // the other file
}

TEST_F(CopierTest, LeavesNoOpenDirectoryIntoAMovedTree) {
  fs::create_directories(at("local/t/sub"));
  const UniqueFd directory(open(at("local/t/sub").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  store_->upload(at("local/t"), FileType::kDir, true, "/t");
  EXPECT_FALSE(UniqueFd(openat(directory.get(), "new", O_WRONLY | O_CREAT | O_CLOEXEC, 0600)));
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/sub"}));
}

TEST_F(CopierTest, MovesAReadOnlyTree) {
  fs::permissions(at("local"), fs::perms::all);
  const std::string error = asOtherUser([&] {
    fs::create_directories(at("local/t/sub"));
    write("local/t/sub/f", "text");
    fs::permissions(at("local/t/sub"), fs::perms(0555));
    fs::permissions(at("local/t"), fs::perms(0500));
    store_->upload(at("local/t"), FileType::kDir, true, "/t");
  });
  EXPECT_EQ(error, "");
  EXPECT_EQ(namesIn("local"), Names{});
  EXPECT_EQ(read("store/t/sub/f"), "text");
  EXPECT_EQ(fs::status(at("store/t")).permissions(), fs::perms(0500));
  EXPECT_EQ(fs::status(at("store/t/sub")).permissions(), fs::perms(0555));
  fs::permissions(at("store/t"), fs::perms(0700));
  fs::permissions(at("store/t/sub"), fs::perms(0700));
}

TEST_F(CopierTest, RefusesToMoveATreeIntoItself) {
  fs::create_directories(at("store/t/sub"));
  write("store/t/f", "text");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("store/t"), FileType::kDir, true, "/t/sub/t"); }),
            "cannot move the directory \"" + at("store/t") + "\" into itself");
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/f", "t/sub"}));
}

TEST_F(CopierTest, LeavesNoPartialTree) {
  fs::create_directories(at("local/t/deep"));
  write("local/t/deep/f", "x");
  mkfifo(at("local/t/deep/pipe").c_str(), 0600);
  EXPECT_NE(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/t"); }), "");
  EXPECT_EQ(namesIn("store"), Names{});
  fs::create_directory(at("store/t"));
  write("store/t/own", "x");  // an existing tree stays
  EXPECT_NE(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/t"); }), "");
  EXPECT_TRUE(fs::exists(at("store/t/own")));
}

TEST_F(CopierTest, MovesNothingOfATreeThatHoldsAFifo) {
  fs::create_directories(at("local/t/deep"));
  write("local/t/f", "x");
  const std::string fifo = at("local/t/deep/pipe");
  mkfifo(fifo.c_str(), 0600);
  const std::string error =
      "\"" + fifo + "\" is neither a file, a directory nor a link, and is not moved";
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, true, "/t"); }),
            error);
  EXPECT_EQ(namesIn("store"), Names{});
  fs::create_directory(at("store/t"));
  write("store/t/own", "x");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, true, "/t"); }),
            error);
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/own"}));
  EXPECT_EQ(namesIn("local"), (Names{"t", "t/deep", "t/deep/pipe", "t/f"}));
}

TEST_F(CopierTest, DeliversNothingThatItsWatcherRefuses) {
  write("store/f", "abc");
  fs::create_symlink("f", at("store/l"));
  Witness witness;
  Store watched(at("store"), {{&witness, Durability::kEachFile}, true});
  witness.refused = "file /f ba7816bf";
  EXPECT_EQ(storeErrorOf([&] { watched.download("/f", FileType::kFile, at("local")); }), "refused");
  witness.refused = "link /l f";
  EXPECT_EQ(storeErrorOf([&] { watched.download("/l", FileType::kSymlink, at("local")); }),
            "refused");
  EXPECT_EQ(namesIn("local"), Names{});
  EXPECT_EQ(std::count(witness.lines.begin(), witness.lines.end(), "denied"), 2);
  EXPECT_EQ(std::count(witness.lines.begin(), witness.lines.end(), "delivered"), 0);
}

// The temporary name of "f", with the first digits of the SHA-256 of "f".
constexpr const char *kTemporaryOfF = ".arvl-252f10c83610ebca.partial";

TEST_F(CopierTest, ReplacesTheLeftoverOfAKilledHost) {
  write("local/f", "text");
  for (const char *leftover : {"a much longer text", "x", ""}) {
    write(std::string("store/") + kTemporaryOfF, leftover);
    fs::permissions(at(std::string("store/") + kTemporaryOfF), fs::perms(0400));
    store_->upload(at("local/f"), FileType::kFile, false, "/f");
    EXPECT_EQ(namesIn("store"), Names{"f"});
    EXPECT_EQ(read("store/f"), "text");
  }
  fs::create_symlink("target", at("local/l"));
  fs::create_symlink("leftover", at(std::string("store/") + kTemporaryOfF));
  store_->upload(at("local/l"), FileType::kSymlink, false, "/f");
  EXPECT_EQ(namesIn("store"), Names{"f"});
  EXPECT_EQ(fs::read_symlink(at("store/f")), "target");
  fs::create_symlink("leftover", at(std::string("store/") + kTemporaryOfF));
  store_->upload(at("local/f"), FileType::kFile, false, "/f");
  EXPECT_EQ(namesIn("store"), Names{"f"});
  EXPECT_EQ(read("store/f"), "text");
}

TEST_F(CopierTest, RejectsAFileThatAnotherHostIsWriting) {
  write("local/f", "text");
  fs::create_symlink("target", at("local/l"));
  write(std::string("store/") + kTemporaryOfF, "half");
  const UniqueFd other(open(at(std::string("store/") + kTemporaryOfF).c_str(), O_RDONLY));
  ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/f"); }),
            "another transfer is writing \"/f\"");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/l"), FileType::kSymlink, false, "/f"); }),
            "another transfer is writing \"/f\"");
  EXPECT_EQ(read(std::string("store/") + kTemporaryOfF), "half");
}

TEST_F(CopierTest, ReplacesALinkAndDoesNotWriteThroughIt) {
  write("local/victim", "untouched");
  fs::create_symlink(at("local/victim"), at("store/f"));
  write("local/f", "new");
  store_->upload(at("local/f"), FileType::kFile, false, "/f");
  EXPECT_EQ(read("local/victim"), "untouched");
  EXPECT_FALSE(fs::is_symlink(at("store/f")));
  EXPECT_EQ(read("store/f"), "new");
}

TEST_F(CopierTest, FollowsNoLinkInAMergedTree) {
  fs::create_directories(at("local/t/sub"));
  write("local/t/sub/f", "x");
  fs::create_directories(at("store/t"));
  fs::create_directory(at("local/elsewhere"));
  fs::create_symlink(at("local/elsewhere"), at("store/t/sub"));
  EXPECT_NE(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/t"); }), "");
  EXPECT_TRUE(fs::is_empty(at("local/elsewhere")));
}

TEST_F(CopierTest, LeavesNothingOfAFileThatDoesNotFit) {
  write("local/f", std::string(1 << 20, 'x'));
  const SmallFileSystem disk(at("store"), "size=64k");
  if (!disk.isMounted()) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  EXPECT_EQ(
      storeErrorOf([&] { Store(at("store")).upload(at("local/f"), FileType::kFile, false, "/f"); }),
      "cannot write \"/f\": No space left on device");
  EXPECT_EQ(namesIn("store"), Names{});
}

}  // namespace
