// Tests of the store, also with hostile requests and a hostile store.

#include "files/store.h"

#include <sys/mount.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <map>
#include <thread>

#include "host/files/store_test_base.h"
#include "support/small_file_system.h"

namespace {

using namespace arvl_host;
using arvl_test::SmallFileSystem;
using arvl_test::storeErrorOf;
namespace fs = std::filesystem;

class StoreTest : public StoreTestBase {};

// Returns the other entries by name.
std::map<std::string, StoreEntry> remaining(StoreListing &listing) {
  std::map<std::string, StoreEntry> entries;
  while (const std::optional<StoreEntry> entry = listing.next()) {
    entries[entry->name] = *entry;
  }
  return entries;
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

TEST_F(StoreTest, RejectsADestinationWithASlashThatIsNotADirectory) {
  write("store/f", "text");
  EXPECT_EQ(storeErrorOf([&] { store_->download("/f", FileType::kFile, at("local/no/")); }),
            "\"" + at("local/no/") + "\" is not a directory");
  EXPECT_EQ(namesIn("local"), Names{});
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

TEST_F(StoreTest, WritesNothingDuringARestore) {
  write("local/f", "x");
  const Store reading(at("store"), {{}, true});
  const std::string error = "the store is read-only during a restore";
  EXPECT_EQ(storeErrorOf([&] { reading.createDir("/d"); }), error);
  EXPECT_EQ(storeErrorOf([&] { reading.upload(at("local/f"), FileType::kFile, true, "/f"); }),
            error);
  EXPECT_EQ(namesIn("store"), Names{});
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

}  // namespace
