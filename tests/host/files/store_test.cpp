// Tests of the store, also with hostile requests and a hostile store.

#include "files/store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "files/read_lease.h"
#include "host/support/store_error_of.h"
#include "support/small_file_system.h"
#include "support/temp_dir.h"

namespace {

using namespace arvl_host;
using arvl_test::SmallFileSystem;
using arvl_test::storeErrorOf;
using arvl_test::TempDir;
namespace fs = std::filesystem;

// Returns the other entries by name.
std::map<std::string, StoreEntry> remaining(StoreListing &listing) {
  std::map<std::string, StoreEntry> entries;
  while (const std::optional<StoreEntry> entry = listing.next()) {
    entries[entry->name] = *entry;
  }
  return entries;
}

// Records each event as a line. Throws at the event `refused`.
class Witness : public TransferWatcher {
 public:
  void onEntry(const std::string &path, struct stat &status) override {
    if (std::count(rivals.begin(), rivals.end(), path) > 0) {
      removeRivalsOf(path);
    }
    note(std::string("entry ") + fileTypeText(*fileTypeOf(status.st_mode)) + " " + path +
         (S_ISREG(status.st_mode) ? " " + std::to_string(status.st_size) : ""));
    if (mode) {
      status.st_mode = (status.st_mode & S_IFMT) | *mode;
      status.st_mtim = {100, 7};
    }
  }
  void onVanished(const std::string &path) override { note("vanished " + path); }
  void onFolderEnd(const std::string &path, std::uint64_t entries) override {
    note("end " + path + " " + std::to_string(entries));
  }
  void onBytes(std::uint64_t count) override {
    note("bytes " + std::to_string(count));
    if (!written.empty()) {
      std::ofstream(written, std::ios::app) << "more";
      written.clear();
    }
  }
  void onChanged(const std::string &path) override { note("changed " + path); }
  void onOpenForWriting(const std::string &path) override { note("open for writing " + path); }
  void onFile(const std::string &path, const std::string &sha256) override {
    note("file " + path + " " + sha256.substr(0, 8));
  }
  void onLink(const std::string &path, const std::string &target) override {
    note("link " + path + " " + target);
  }
  void onStored(const struct stat &status, const std::string &sha256) override {
    note("stored " + std::to_string(status.st_size) + " " + sha256.substr(0, 8));
  }
  void onMoved(const struct stat &status) override {
    removeRivalsOf("");
    note("moved " + std::to_string(status.st_size));
  }
  void onTransferEnd(bool isDelivered) override {
    lines.push_back(isDelivered ? "delivered" : "denied");
  }

  std::vector<std::string> lines;
  std::string refused;
  std::optional<unsigned> mode;     // to set for every entry
  std::string written;              // a file to write to once, after the first bytes
  std::vector<std::string> rivals;  // when one is copied or moved, the others are removed

 private:
  void removeRivalsOf(const std::string &path) {
    for (const std::string &rival : rivals) {
      if (rival != path) {
        fs::remove_all(rival);
      }
    }
  }

  void note(const std::string &line) {
    if (line == refused) {
      throw StoreError("refused");
    }
    lines.push_back(line);
  }
};

class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    fs::create_directory(at("store"));
    fs::create_directory(at("local"));
    store_ = std::make_unique<Store>(at("store"));
  }

  std::string at(const std::string &name) const { return dir_.path().string() + "/" + name; }

  void write(const std::string &name, const std::string &text) const {
    std::ofstream(at(name)) << text;
  }

  std::string read(const std::string &name) const {
    std::ostringstream text;
    text << std::ifstream(at(name)).rdbuf();
    return text.str();
  }

  // Returns the paths of all entries below the directory.
  std::vector<std::string> namesIn(const std::string &directory) const {
    std::vector<std::string> names;
    for (const auto &entry : fs::recursive_directory_iterator(at(directory))) {
      names.push_back(entry.path().lexically_relative(at(directory)));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // Runs the operation as another user if the test runs as root, and returns the error.
  std::string asOtherUser(const std::function<void()> &operation) const {
    fs::permissions(dir_.path(), fs::perms(0777));
    fs::permissions(at("store"), fs::perms(0777));
    const bool isSuperuser = geteuid() == 0;
    EXPECT_TRUE(!isSuperuser || seteuid(65534) == 0);
    std::string error = storeErrorOf(operation);
    EXPECT_TRUE(!isSuperuser || seteuid(0) == 0);
    return error;
  }

  // Returns whether the file system has leases, without which files are copied instead of moved.
  bool hasLeases() const {
    write("lease", "");
    return ReadLease(UniqueFd(open(at("lease").c_str(), O_PATH | O_CLOEXEC)).get()).isHeld();
  }

  using Names = std::vector<std::string>;

  const TempDir dir_;
  std::unique_ptr<Store> store_;
};

TEST_F(StoreTest, UploadsAFileWithItsModeAndTime) {
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

TEST_F(StoreTest, UploadsAFileWithItsHoles) {
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

TEST_F(StoreTest, MovesATemporarySource) {
  write("local/f", "text");
  store_->upload(at("local/f"), FileType::kFile, true, "/g");
  EXPECT_FALSE(fs::exists(at("local/f")));
  EXPECT_EQ(read("store/g"), "text");
}

TEST_F(StoreTest, MovesATemporaryTreeIntoAnExistingOne) {
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

TEST_F(StoreTest, MovesATemporarySourceFromAnotherFileSystem) {
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

TEST_F(StoreTest, UploadsTreesAndLinks) {
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

TEST_F(StoreTest, DownloadsAFileToAPathOrIntoADirectory) {
  write("store/f", "text");
  store_->download("/f", FileType::kFile, at("local/g"));
  EXPECT_EQ(read("local/g"), "text");
  store_->download("/f", FileType::kFile, at("local"));
  EXPECT_EQ(read("local/f"), "text");
  fs::create_symlink("nowhere", at("store/l"));
  store_->download("/l", FileType::kSymlink, at("local"));
  EXPECT_EQ(fs::read_symlink(at("local/l")), "nowhere");
}

TEST_F(StoreTest, ReplacesALinkThatLeadsToItself) {
  write("store/f", "text");
  fs::create_symlink("g", at("local/g"));
  store_->download("/f", FileType::kFile, at("local/g"));
  EXPECT_FALSE(fs::is_symlink(at("local/g")));
  EXPECT_EQ(read("local/g"), "text");
}

TEST_F(StoreTest, DownloadsATreeWithItsModesAndTimes) {
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

TEST_F(StoreTest, KeepsTheModeOfAnExistingDirectory) {
  fs::create_directories(at("store/t/sub"));
  fs::create_directories(at("local/t/sub"));
  fs::permissions(at("local/t"), fs::perms(01777));
  fs::permissions(at("local/t/sub"), fs::perms(0700));
  store_->download("/t", FileType::kDir, at("local"));
  EXPECT_EQ(fs::status(at("local/t")).permissions(), fs::perms(01777));
  EXPECT_EQ(fs::status(at("local/t/sub")).permissions(), fs::perms(0700));
}

TEST_F(StoreTest, RejectsADestinationWithASlashThatIsNotADirectory) {
  write("store/f", "text");
  EXPECT_EQ(storeErrorOf([&] { store_->download("/f", FileType::kFile, at("local/no/")); }),
            "\"" + at("local/no/") + "\" is not a directory");
  EXPECT_EQ(namesIn("local"), Names{});
}

TEST_F(StoreTest, RefusesToCopyATreeIntoItself) {
  fs::create_directories(at("store/t/sub"));
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("store/t"), FileType::kDir, false, "/t/sub/t"); }),
            "cannot copy the directory \"" + at("store/t/sub/t") + "\" into itself");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("store/t"), FileType::kDir, false, "/t"); }),
            "cannot copy the directory \"" + at("store/t") + "\" onto itself");
}

TEST_F(StoreTest, RejectsAPathThatContainsANul) {
  const std::string path("/a\0b", 4);
  const std::string error = "\"/a\\x00b\" is not a valid path: it contains a NUL byte";
  write("local/f", "x");
  write("store/f", "x");
  EXPECT_EQ(storeErrorOf([&] { store_->createDir(path); }), error);
  EXPECT_EQ(storeErrorOf([&] { store_->list(path); }), error);
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, path); }),
            error);
  EXPECT_EQ(storeErrorOf([&] { store_->upload(path, FileType::kFile, false, "/g"); }), error);
  EXPECT_EQ(storeErrorOf([&] { store_->download(path, FileType::kFile, at("local")); }), error);
  EXPECT_EQ(storeErrorOf([&] { store_->download("/f", FileType::kFile, path); }), error);
  EXPECT_EQ(namesIn("store"), Names{"f"});
}

TEST_F(StoreTest, TransfersNothingAfterACancel) {
  write("local/f", "x");
  write("store/g", "x");
  store_->cancel();
  const std::string error = "the transfer has been canceled";
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/f"); }),
            error);
  EXPECT_EQ(storeErrorOf([&] { store_->download("/g", FileType::kFile, at("local")); }), error);
  EXPECT_EQ(namesIn("store"), Names{"g"});
  EXPECT_EQ(namesIn("local"), Names{"f"});
}

TEST_F(StoreTest, CreatesDirectoriesWithTheirParents) {
  store_->createDir("/a/b//c/");
  store_->createDir("/a/b");
  store_->createDir("/");
  EXPECT_EQ(namesIn("store"), (Names{"a", "a/b", "a/b/c"}));
  write("store/f", "");
  EXPECT_NE(storeErrorOf([&] { store_->createDir("/f/x"); }), "");
  EXPECT_NE(storeErrorOf([&] { store_->createDir("/f"); }), "");
}

TEST_F(StoreTest, RemovesTheDirectoriesOfADeniedRequest) {
  const std::string tooLong(256, 'n');
  store_->createDir("/a");
  write("store/f", "");
  for (const std::string &path :
       {"/a/b/c/" + tooLong + "/d", "/b/../c/../a/d/" + tooLong, std::string("/a/b/../../f/c")}) {
    EXPECT_NE(storeErrorOf([&] { store_->createDir(path); }), "") << path;
    EXPECT_EQ(namesIn("store"), (Names{"a", "f"})) << path;
  }
}

TEST_F(StoreTest, RejectsAnEntryWhosePathIsTooLong) {
  std::string deep;
  while (at("store").size() + deep.size() < PATH_MAX - 1 - 202) {
    deep += "/" + std::string(100, 'n');
  }
  store_->createDir(deep);
  const std::string fits(PATH_MAX - 1 - at("store").size() - deep.size() - 1, 'f');
  const std::string beyond = fits + "f";
  ASSERT_LE(beyond.size(), NAME_MAX);
  const auto errorOf = [](const std::string &path) {
    return "cannot write \"" + path +
           "\": with the path of the store it would be longer than 4095 bytes";
  };
  write("local/file", "x");
  fs::create_directory(at("local/tree"));
  write("local/tree/" + beyond, "x");
  fs::create_symlink("." + deep, at("store/way"));  // the path counts without the link
  EXPECT_EQ(storeErrorOf([&] { store_->createDir("/way/" + beyond); }), errorOf("/way/" + beyond));
  for (const bool isTemporary : {false, true}) {
    EXPECT_EQ(storeErrorOf([&] {
                store_->upload(at("local/file"), FileType::kFile, isTemporary, "/way/" + beyond);
              }),
              errorOf("/way/" + beyond));
  }
  write("store" + deep + "/own", "");  // the tree is merged, and its own entries stay
  for (const bool isTemporary : {false, true}) {
    EXPECT_EQ(
        storeErrorOf([&] { store_->upload(at("local/tree"), FileType::kDir, isTemporary, deep); }),
        errorOf(deep + "/" + beyond));
  }
  EXPECT_EQ(namesIn("store" + deep), Names{"own"});

  store_->createDir("/way/" + fits);
  fs::remove(at("store" + deep) + "/" + fits);
  store_->upload(at("local/file"), FileType::kFile, false, "/way/" + fits);
  fs::rename(at("local/tree/" + beyond), at("local/tree/" + fits));
  store_->upload(at("local/tree"), FileType::kDir, false, deep);
  EXPECT_EQ(namesIn("store" + deep), (Names{fits, "own"}));
}

TEST_F(StoreTest, ListsFilesDirectoriesAndLinks) {
  fs::create_directory(at("store/b"));
  write("store/a", "12345");
  fs::create_symlink("x", at("store/c"));
  mkfifo(at("store/d").c_str(), 0600);
  StoreListing listing = store_->list("/");
  std::map<std::string, StoreEntry> entries = remaining(listing);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries["a"].size, 5);
  EXPECT_EQ(entries["a"].type, FileType::kFile);
  EXPECT_EQ(entries["b"].type, FileType::kDir);
  EXPECT_EQ(entries["c"].type, FileType::kSymlink);
  listing.rewind();
  EXPECT_EQ(remaining(listing).size(), 3u);
}

using Lines = std::vector<std::string>;

TEST_F(StoreTest, TellsItsWatcherOfACopyAndItsChecksum) {
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

TEST_F(StoreTest, TellsItsWatcherOfATreeByItsRealPath) {
  fs::create_directories(at("store/real/t"));
  write("store/real/t/f", "abc");
  fs::create_symlink("f", at("store/real/t/l"));
  fs::create_symlink("real", at("store/way"));
  Witness witness;
  Store watched(at("store"), {{&witness, Durability::kEachFile}, true});
  watched.download("/way//t", FileType::kDir, at("local"));
  std::sort(witness.lines.begin(), witness.lines.end());
  EXPECT_EQ(witness.lines,
            (Lines{"bytes 3", "delivered", "end /real/t 2", "entry dir /real/t",
                   "entry file /real/t/f 3", "entry symlink /real/t/l", "file /real/t/f ba7816bf",
                   "link /real/t/l f", "stored 3 ba7816bf"}));
  witness.lines.clear();
  StoreListing listing = watched.list("/way/t/");
  remaining(listing);
  std::sort(witness.lines.begin(), witness.lines.end());
  EXPECT_EQ(witness.lines, (Lines{"end /real/t 2", "entry dir /real/t", "entry file /real/t/f 3",
                                  "entry symlink /real/t/l"}));
}

TEST_F(StoreTest, TellsItsWatcherOfAFileThatChangesDuringTheCopy) {
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

TEST_F(StoreTest, SkipsAnEntryThatVanishesFromATreeAndNamesIt) {
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

TEST_F(StoreTest, SetsTheModesAndTimesThatItsWatcherGives) {
  fs::create_directories(at("store/t"));
  write("store/t/f", "abc");
  Witness witness;
  witness.mode = 0750;
  Store watched(at("store"), {{&witness, Durability::kEachFile}, true});
  watched.download("/t", FileType::kDir, at("local"));
  for (const char *name : {"local/t", "local/t/f"}) {
    struct stat status;
    ASSERT_EQ(stat(at(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0750u) << name;
    EXPECT_EQ(status.st_mtim.tv_sec, 100) << name;
    EXPECT_EQ(status.st_mtim.tv_nsec, 7) << name;
  }
  StoreListing listing = watched.list("/t");
  EXPECT_EQ(remaining(listing)["f"].mtime, 100);
}

// Only root can change the owner of a file.
TEST_F(StoreTest, DropsSetUserIdIfTheOwnerChanges) {
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

TEST_F(StoreTest, CopiesATemporarySourceThatHasOtherNames) {
  write("local/f", "text");
  fs::create_hard_link(at("local/f"), at("local/other"));
  store_->upload(at("local/f"), FileType::kFile, true, "/f");
  std::ofstream(at("local/other"), std::ios::app) << " and more";
  EXPECT_EQ(read("store/f"), "text");
  EXPECT_EQ(namesIn("local"), Names{"other"});
}

TEST_F(StoreTest, CopiesATemporarySourceThatIsOpenForWriting) {
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

TEST_F(StoreTest, CopiesOnlyTheFilesOfATemporaryTreeThatAreOpenForWriting) {
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

TEST_F(StoreTest, LeavesNoOpenDirectoryIntoAMovedTree) {
  fs::create_directories(at("local/t/sub"));
  const UniqueFd directory(open(at("local/t/sub").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  store_->upload(at("local/t"), FileType::kDir, true, "/t");
  EXPECT_FALSE(UniqueFd(openat(directory.get(), "new", O_WRONLY | O_CREAT | O_CLOEXEC, 0600)));
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/sub"}));
}

TEST_F(StoreTest, MovesAReadOnlyTree) {
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

TEST_F(StoreTest, RefusesToMoveATreeIntoItself) {
  fs::create_directories(at("store/t/sub"));
  write("store/t/f", "text");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("store/t"), FileType::kDir, true, "/t/sub/t"); }),
            "cannot move the directory \"" + at("store/t") + "\" into itself");
  EXPECT_EQ(namesIn("store"), (Names{"t", "t/f", "t/sub"}));
}

TEST_F(StoreTest, LeavesNoPartialTree) {
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

TEST_F(StoreTest, MovesNothingOfATreeThatHoldsAFifo) {
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

TEST_F(StoreTest, DeliversNothingThatItsWatcherRefuses) {
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

TEST_F(StoreTest, WritesNothingDuringARestore) {
  write("local/f", "x");
  const Store reading(at("store"), {{}, true});
  const std::string error = "the store is read-only during a restore";
  EXPECT_EQ(storeErrorOf([&] { reading.createDir("/d"); }), error);
  EXPECT_EQ(storeErrorOf([&] { reading.upload(at("local/f"), FileType::kFile, true, "/f"); }),
            error);
  EXPECT_EQ(namesIn("store"), Names{});
}

// The temporary name of "f", with the first digits of the SHA-256 of "f".
constexpr const char *kTemporaryOfF = ".arvl-252f10c83610ebca.partial";

TEST_F(StoreTest, ReplacesTheLeftoverOfAKilledHost) {
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

TEST_F(StoreTest, RejectsAFileThatAnotherHostIsWriting) {
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

TEST_F(StoreTest, ResolvesDotsAndLinksInsideTheStore) {
  write("local/secret", "secret");
  fs::create_symlink(at("local"), at("store/out"));
  fs::create_symlink("../local/secret", at("store/up"));
  fs::create_symlink("/etc/passwd", at("store/passwd"));
  fs::create_symlink("b", at("store/a"));
  fs::create_symlink("a", at("store/b"));
  for (const char *path :
       {"/../local/secret", "/up", "/out/secret", "/passwd", "/a", "/x/../../y"}) {
    EXPECT_NE(storeErrorOf([&] { store_->download(path, FileType::kFile, at("local/got")); }), "")
        << path;
  }
  EXPECT_NE(storeErrorOf([&] { store_->list("/out"); }), "");
  EXPECT_FALSE(fs::exists(at("local/got")));

  write("local/f", "text");
  EXPECT_NE(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/out/f2"); }),
            "");
  EXPECT_NE(storeErrorOf([&] { store_->createDir("/out/made"); }), "");
  store_->upload(at("local/f"), FileType::kFile, false,
                 "/../../f3");  // ".." of the root is the root
  EXPECT_EQ(read("store/f3"), "text");
  EXPECT_EQ(namesIn("local"), (Names{"f", "secret"}));
  EXPECT_FALSE(fs::exists(at("f3")));

  // An absolute link is resolved inside the store.
  fs::create_directory(at("store/etc"));
  write("store/etc/passwd", "the store's own");
  store_->download("/passwd", FileType::kFile, at("local/got"));
  EXPECT_EQ(read("local/got"), "the store's own");
}

TEST_F(StoreTest, OpensAnEntryWithoutFollowingLinks) {
  fs::create_directories(at("store/directory"));
  std::ofstream(at("store/directory/file")) << "contents";
  std::ofstream(at("outside")) << "outside";
  fs::create_symlink("directory", at("store/inner"));
  fs::create_symlink(dir_.path(), at("store/outer"));
  const Store store(at("store"));
  EXPECT_TRUE(store.openEntry("/", O_PATH));
  EXPECT_TRUE(store.openEntry("/directory/file", O_RDONLY));
  EXPECT_TRUE(store.openEntry("/inner", O_PATH));  // the link
  for (const char *path : {"/inner", "/inner/file", "/outer/outside", "/../outside", "/none",
                           "/directory/file/below"}) {
    EXPECT_FALSE(store.openEntry(path, O_RDONLY)) << path;
  }
  EXPECT_EQ(storeErrorOf([&] { store.openEntry(std::string(5000, 'n'), O_PATH); }),
            "cannot open \"" + std::string(5000, 'n') + "\" in the store: File name too long");
}

TEST_F(StoreTest, StaysInsideWhileALinkIsSwappedIn) {
  write("local/f", "text");
  fs::create_directories(at("local/t/sub"));
  write("local/t/sub/g", "text");
  fs::create_directory(at("outside"));
  fs::create_directories(at("outside/sub"));
  fs::create_directories(at("store/d/sub"));
  fs::create_symlink(at("outside"), at("store/link"));

  std::atomic<bool> isOver{false};
  std::atomic<int> swaps{0};
  std::thread swapper([&] {
    while (!isOver) {
      swaps += renameat2(AT_FDCWD, at("store/d").c_str(), AT_FDCWD, at("store/link").c_str(),
                         RENAME_EXCHANGE) == 0
                   ? 1
                   : 0;
    }
  });
  int taken = 0;
  for (int i = 0; i < 500; ++i) {
    const std::string error =
        storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/d/f"); });
    taken += error.empty() ? 1 : 0;
    storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/d/t"); });
    storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/d"); });
    storeErrorOf([&] { store_->createDir("/d/sub/made"); });
    storeErrorOf([&] { store_->download("/d/secret", FileType::kFile, at("local/got")); });
  }
  isOver = true;
  swapper.join();
  EXPECT_EQ(namesIn("outside"), Names{"sub"});
  EXPECT_GT(taken, 0);
  EXPECT_GT(swaps, 0);
}

TEST_F(StoreTest, ReplacesALinkAndDoesNotWriteThroughIt) {
  write("local/victim", "untouched");
  fs::create_symlink(at("local/victim"), at("store/f"));
  write("local/f", "new");
  store_->upload(at("local/f"), FileType::kFile, false, "/f");
  EXPECT_EQ(read("local/victim"), "untouched");
  EXPECT_FALSE(fs::is_symlink(at("store/f")));
  EXPECT_EQ(read("store/f"), "new");
}

TEST_F(StoreTest, FollowsNoLinkInAMergedTree) {
  fs::create_directories(at("local/t/sub"));
  write("local/t/sub/f", "x");
  fs::create_directories(at("store/t"));
  fs::create_directory(at("local/elsewhere"));
  fs::create_symlink(at("local/elsewhere"), at("store/t/sub"));
  EXPECT_NE(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/t"); }), "");
  EXPECT_TRUE(fs::is_empty(at("local/elsewhere")));
}

TEST_F(StoreTest, RefusesAFifoWithoutOpeningIt) {
  mkfifo(at("local/fifo").c_str(), 0600);  // opening it would block
  mkfifo(at("store/fifo").c_str(), 0600);
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/fifo"), FileType::kFile, false, "/f"); }),
            "\"" + at("local/fifo") + "\" is neither a file, a directory nor a link");
  EXPECT_EQ(storeErrorOf([&] { store_->download("/fifo", FileType::kFile, at("local/f")); }),
            "\"/fifo\" is neither a file, a directory nor a link");
  fs::create_directory(at("local/t"));
  mkfifo(at("local/t/fifo").c_str(), 0600);
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/t"), FileType::kDir, false, "/t"); }),
            "\"" + at("local/t/fifo") +
                "\" is neither a file, a directory nor a link, and is not copied");
}

TEST_F(StoreTest, RejectsASourceOfAnotherType) {
  write("local/f", "x");
  fs::create_symlink("f", at("local/l"));
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kDir, false, "/f"); }),
            "\"" + at("local/f") + "\" is of type file, not dir");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/l"), FileType::kFile, false, "/f"); }),
            "\"" + at("local/l") + "\" is of type symlink, not file");
  EXPECT_EQ(namesIn("store"), Names{});
}

TEST_F(StoreTest, NamesAMissingPath) {
  write("local/f", "x");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/g"), FileType::kFile, false, "/g"); }),
            "cannot find \"" + at("local/g") + "\": No such file or directory");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/no/f"); }),
            "\"/no/\" is not in the store: No such file or directory");
  EXPECT_EQ(storeErrorOf([&] { store_->download("/g", FileType::kFile, at("local/x")); }),
            "\"/g\" is not in the store: No such file or directory");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/"); }),
            "\"/\" does not end in a name");
  EXPECT_EQ(storeErrorOf([&] { store_->upload(at("local/f"), FileType::kFile, false, "/.."); }),
            "\"/..\" does not end in a name");
}

TEST_F(StoreTest, RejectsAListingOfAFile) {
  write("store/f", "");
  EXPECT_EQ(storeErrorOf([&] { store_->list("/f"); }),
            "cannot open \"/f\" in the store: Not a directory");
}

TEST_F(StoreTest, RejectsAListingOfAnUnreadableDirectory) {
  fs::create_directory(at("store/d"));
  write("store/d/f", "x");
  fs::permissions(at("store/d"), fs::perms(0444));
  EXPECT_EQ(asOtherUser([&] { store_->list("/d"); }),
            "cannot read the directory \"/d\": Permission denied");
  fs::permissions(at("store/d"), fs::perms(0755));
}

TEST_F(StoreTest, NamesAFileThatCannotBeRead) {
  write("local/f", "x");
  fs::permissions(at("local/f"), fs::perms(0));
  const std::string error =
      asOtherUser([&] { store_->upload(at("local/f"), FileType::kFile, false, "/f"); });
  EXPECT_EQ(error, "cannot open \"" + at("local/f") + "\": Permission denied");
  EXPECT_EQ(namesIn("store"), Names{});
}

// Tests the errors of destinations, without the path of the test's directory.
class StoreDestination : public StoreTest {
 protected:
  StoreDestination() {
    fs::create_directories(at("store/t/sub"));
    write("store/f", "text");
    write("store/t/f", "text");
    fs::create_symlink("f", at("store/l"));
  }

  std::string download(const std::string &path, FileType type, const std::string &to) const {
    std::string error = asOtherUser([&] { store_->download(path, type, at(to)); });
    for (std::size_t found = 0; (found = error.find(at(""))) != std::string::npos;) {
      error.erase(found, at("").size());
    }
    return error;
  }
};

TEST_F(StoreDestination, NamesADirectoryThatIsNotWritable) {
  fs::permissions(at("local"), fs::perms(0555));
  EXPECT_EQ(download("/f", FileType::kFile, "local"),
            "cannot create \"local/f\": Permission denied");
  EXPECT_EQ(download("/l", FileType::kSymlink, "local/g"),
            "cannot create \"local/g\": Permission denied");
  EXPECT_EQ(download("/t", FileType::kDir, "local"),
            "cannot create the directory \"local/t\": Permission denied");
}

TEST_F(StoreDestination, NamesADirectoryThatIsNotSearchable) {
  fs::create_directory(at("local/d"));
  write("local/d/f", "old");
  fs::permissions(at("local/d"), fs::perms(0666));
  EXPECT_EQ(download("/f", FileType::kFile, "local/d"),
            "cannot create \"local/d/f\": Permission denied");
  EXPECT_EQ(download("/f", FileType::kFile, "local/d/f"),
            "cannot examine \"local/d/f\": Permission denied");
  EXPECT_EQ(download("/f", FileType::kFile, "local/d/e/"),
            "cannot examine \"local/d/e/\": Permission denied");
  EXPECT_EQ(download("/t", FileType::kDir, "local/d"),
            "cannot create the directory \"local/d/t\": Permission denied");
  fs::permissions(at("local/d"), fs::perms(0755));
  EXPECT_EQ(read("local/d/f"), "old");
}

TEST_F(StoreDestination, NamesAReadOnlyFileSystem) {
  const SmallFileSystem disk(at("local"), "size=64k");
  if (!disk.isMounted() ||
      mount(nullptr, at("local").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
    GTEST_SKIP() << "mounting is not permitted here";
  }
  EXPECT_EQ(download("/f", FileType::kFile, "local"),
            "cannot create \"local/f\": Read-only file system");
  EXPECT_EQ(download("/t", FileType::kDir, "local/t"),
            "cannot create the directory \"local/t\": Read-only file system");
}

TEST_F(StoreTest, NamesASourceInADirectoryThatIsNotSearchable) {
  write("local/f", "x");
  fs::permissions(at("local"), fs::perms(0666));
  EXPECT_EQ(asOtherUser([&] { store_->upload(at("local/f"), FileType::kFile, false, "/f"); }),
            "cannot open \"" + at("local/f") + "\": Permission denied");
  fs::permissions(at("local"), fs::perms(0755));
}

TEST_F(StoreTest, LeavesNothingOfAFileThatDoesNotFit) {
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
