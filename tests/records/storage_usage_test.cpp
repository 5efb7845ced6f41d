#include "zarn/arvlapp/storage_usage.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <ostream>

#include "support/log_capture.h"
#include "support/log_source.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using ZARN::ARVLAPP::StorageUsage;
using namespace arvl_test;

// ---- Counts, and how the tests compute the expected ones.

struct Counts {
  std::int64_t files = 0;
  std::int64_t dirs = 0;
  std::int64_t bytes = 0;
  std::int64_t blocks = 0;

  bool operator==(const Counts &other) const {
    return files == other.files && dirs == other.dirs && bytes == other.bytes &&
           blocks == other.blocks;
  }
};

std::ostream &operator<<(std::ostream &stream, const Counts &counts) {
  return stream << counts.files << " files, " << counts.dirs << " directories, " << counts.bytes
                << " bytes, " << counts.blocks << " blocks";
}

Counts countsOf(StorageUsage &usage) {
  return {usage.getFileCount(), usage.getDirCount(), usage.getSizeByte(), usage.getBlockCount()};
}

struct stat statusOf(const std::string &path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

// Returns the counts of the entries. An entry that is given twice counts twice.
Counts sumOf(const std::vector<std::string> &paths) {
  Counts sum;
  for (const std::string &path : paths) {
    const struct stat status = statusOf(path);
    sum.files += S_ISREG(status.st_mode) || S_ISLNK(status.st_mode) ? 1 : 0;
    sum.dirs += S_ISDIR(status.st_mode) ? 1 : 0;
    sum.bytes += status.st_size;
    sum.blocks += status.st_blocks;
  }
  return sum;
}

void collect(const fs::path &path, std::vector<std::string> &paths) {
  const fs::file_status status = fs::symlink_status(path);
  if (!fs::is_regular_file(status) && !fs::is_symlink(status) && !fs::is_directory(status)) {
    return;
  }
  paths.push_back(path);
  if (!fs::is_directory(status)) {
    return;
  }
  std::vector<fs::path> children;  // no descriptor stays open on the way down
  for (const fs::directory_entry &entry : fs::directory_iterator(path)) {
    children.push_back(entry.path());
  }
  for (const fs::path &child : children) {
    collect(child, paths);
  }
}

// Walks the tree independently of the library.
Counts walk(const fs::path &start) {
  std::vector<std::string> paths;
  collect(start, paths);
  return sumOf(paths);
}

std::size_t countOpenDescriptors() {
  const auto entries = fs::directory_iterator("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

void makeFifo(const std::string &path) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << std::strerror(errno);
}

void makeSocket(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, path.c_str());
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), 0)
      << std::strerror(errno);
  ::close(descriptor);
}

// Owns an accumulator and checks the lines that its calls log.
class StorageUsageTest : public testing::Test {
 protected:
  ~StorageUsageTest() override { EXPECT_EQ(countOpenDescriptors(), openDescriptors_); }

  // Expects success and no log line.
  void addOne(const std::string &path) {
    EXPECT_TRUE(usage_.addOne(path)) << path;
    EXPECT_EQ(capture_.take(), LogLines{});
  }
  void addDirRecursive(const std::string &path) {
    EXPECT_TRUE(usage_.addDirRecursive(path)) << path;
    EXPECT_EQ(capture_.take(), LogLines{});
  }

  // Expects a failure with these lines.
  void failToAddOne(const std::string &path, const std::vector<std::string> &messages) {
    EXPECT_FALSE(usage_.addOne(path)) << path;
    expectLog(messages);
  }
  void failToAddDirRecursive(const std::string &path, const std::vector<std::string> &messages) {
    EXPECT_FALSE(usage_.addDirRecursive(path)) << path;
    expectLog(messages);
  }

  void expectLog(const std::vector<std::string> &messages) {
    LogLines lines;
    for (const std::string &message : messages) {
      lines.push_back("storage_usage.cpp: " + message);
    }
    const std::vector<LogRecord> records = capture_.takeRecords();
    EXPECT_EQ(toLines(records), lines);
    EXPECT_TRUE(nameTheirStatements(records));
  }

  Counts counts() { return countsOf(usage_); }

  TempDir dir_;
  StorageUsage usage_;

 private:
  LogCapture capture_;
  std::size_t openDescriptors_ = countOpenDescriptors();
};

std::string invalidFile(int isChar, int isBlock, int isFifo, int isSocket) {
  return "failed to calculate storage usage of invalid file:(char:" + std::to_string(isChar) +
         ", blk:" + std::to_string(isBlock) + ", fifo: " + std::to_string(isFifo) +
         ", lnk: 0, sock: " + std::to_string(isSocket) + ")";
}

// ---- One entry.

using StorageUsageAddOne = StorageUsageTest;

TEST_F(StorageUsageAddOne, CountsNothingBeforeTheFirstEntry) {
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddOne, CountsARegularFile) {
  const std::string file = dir_.makeFile("ten", "0123456789");
  addOne(file);
  EXPECT_EQ(counts(), (Counts{1, 0, 10, statusOf(file).st_blocks}));
}

TEST_F(StorageUsageAddOne, CountsAnEmptyFile) {
  addOne(dir_.makeFile("empty"));
  EXPECT_EQ(counts(), (Counts{1, 0, 0, 0}));
}

TEST_F(StorageUsageAddOne, CountsADirectoryWithItsOwnSizeOnly) {
  const std::string directory = dir_.makeDir("directory");
  dir_.makeFile("directory/file", "0123456789");
  addOne(directory);
  const struct stat status = statusOf(directory);
  EXPECT_EQ(counts(), (Counts{0, 1, status.st_size, status.st_blocks}));
}

TEST_F(StorageUsageAddOne, CountsASymbolicLinkAsAFileOfTheLinksOwnSize) {
  dir_.makeFile("target", std::string(100'000, 'x'));
  fs::create_symlink("target", dir_.at("link"));
  addOne(dir_.at("link"));
  EXPECT_EQ(counts(), (Counts{1, 0, 6, statusOf(dir_.at("link")).st_blocks}));
}

TEST_F(StorageUsageAddOne, CountsADanglingLinkAndALinkToADirectoryAsFiles) {
  fs::create_symlink("nowhere", dir_.at("dangling"));
  fs::create_directory_symlink("/usr", dir_.at("to directory"));
  addOne(dir_.at("dangling"));
  addOne(dir_.at("to directory"));
  EXPECT_EQ(counts(), sumOf({dir_.at("dangling"), dir_.at("to directory")}));
  EXPECT_EQ(counts().files, 2);
  EXPECT_EQ(counts().bytes, 7 + 4);
}

TEST_F(StorageUsageAddOne, CountsTheSizeOfASparseFileIn64Bits) {
  const std::string file = dir_.makeFile("sparse");
  fs::resize_file(file, 5'000'000'000);
  addOne(file);
  addOne(file);
  EXPECT_EQ(counts(), (Counts{2, 0, 10'000'000'000, 2 * statusOf(file).st_blocks}));
  EXPECT_LT(counts().blocks, 1000);
}

TEST_F(StorageUsageAddOne, CountsAnEntryEachTimeItIsAdded) {
  const std::string file = dir_.makeFile("file", "abc");
  fs::create_hard_link(file, dir_.at("hard link"));
  addOne(file);
  addOne(dir_.at("hard link"));
  addOne(file);
  EXPECT_EQ(counts(), sumOf({file, file, file}));
  EXPECT_EQ(counts().files, 3);
}

TEST_F(StorageUsageAddOne, AcceptsARelativePath) {
  const fs::path before = fs::current_path();
  const std::string file = dir_.makeFile("file", "abc");
  fs::current_path(dir_.path());
  addOne("file");
  addOne(".");
  fs::current_path(before);
  EXPECT_EQ(counts(), sumOf({file, dir_.path()}));
}

TEST_F(StorageUsageAddOne, RefusesAFifo) {
  makeFifo(dir_.at("fifo"));
  failToAddOne(dir_.at("fifo"), {invalidFile(0, 0, 1, 0)});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddOne, RefusesASocket) {
  makeSocket(dir_.at("socket"));
  failToAddOne(dir_.at("socket"), {invalidFile(0, 0, 0, 1)});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddOne, RefusesACharacterDevice) {
  failToAddOne("/dev/null", {invalidFile(1, 0, 0, 0)});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddOne, RefusesABlockDevice) {
  const std::string device = dir_.at("block");
  if (::mknod(device.c_str(), S_IFBLK | 0600, makedev(7, 0)) != 0) {
    GTEST_SKIP() << "cannot make a block device: " << std::strerror(errno);
  }
  failToAddOne(device, {invalidFile(0, 1, 0, 0)});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddOne, ReportsAnEntryThatCannotBeExamined) {
  const std::string missing = dir_.at("missing");
  const std::string below = dir_.makeFile("file") + "/entry";
  const std::string tooLong = dir_.at(std::string(300, 'x'));
  failToAddOne(missing, {"Failed to stat(" + missing + ") [No such file or directory]"});
  failToAddOne(below, {"Failed to stat(" + below + ") [Not a directory]"});
  failToAddOne(tooLong, {"Failed to stat(" + tooLong + ") [File name too long]"});
  failToAddOne("", {"Failed to stat() [No such file or directory]"});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddOne, LogsAnyNameUnchanged) {
  const std::string odd = dir_.at("100%s %n\nnext line");
  failToAddOne(odd, {"Failed to stat(" + odd + ") [No such file or directory]"});
  addOne(dir_.makeFile("100%s %n\nnext line", "abc"));
  EXPECT_EQ(counts(), sumOf({odd}));
}

TEST_F(StorageUsageAddOne, KeepsItsCountsAfterAFailure) {
  const std::string file = dir_.makeFile("file", "abc");
  addOne(file);
  failToAddOne("/dev/null", {invalidFile(1, 0, 0, 0)});
  failToAddOne("", {"Failed to stat() [No such file or directory]"});
  EXPECT_EQ(counts(), sumOf({file}));
  addOne(file);
  EXPECT_EQ(counts(), sumOf({file, file}));
}

// ---- A tree.

using StorageUsageAddDirRecursive = StorageUsageTest;

TEST_F(StorageUsageAddDirRecursive, CountsAnEmptyDirectory) {
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), sumOf({dir_.path()}));
  EXPECT_EQ(counts().dirs, 1);
}

TEST_F(StorageUsageAddDirRecursive, CountsEveryEntryOfATree) {
  std::vector<std::string> entries = {
      dir_.path(),
      dir_.makeDir("a"),
      dir_.makeDir("a/b"),
      dir_.makeDir("empty"),
      dir_.makeFile("file", "0123456789"),
      dir_.makeFile("a/.hidden", std::string(5000, 'x')),
      dir_.makeFile("a/b/100%s %n\nnext line", "abc"),
      dir_.makeFile("a/b/nothing"),
  };
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), sumOf(entries));
  EXPECT_EQ(counts().files, 4);
  EXPECT_EQ(counts().dirs, 4);
}

TEST_F(StorageUsageAddDirRecursive, CountsAHardLinkedFileOncePerName) {
  const std::string file = dir_.makeFile("file", std::string(5000, 'x'));
  dir_.makeDir("a");
  fs::create_hard_link(file, dir_.at("second"));
  fs::create_hard_link(file, dir_.at("a/third"));
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), sumOf({dir_.path(), dir_.at("a"), file, file, file}));
  EXPECT_EQ(counts().files, 3);
}

TEST_F(StorageUsageAddDirRecursive, CountsLinksAsFilesAndFollowsNone) {
  const std::string start = dir_.makeDir("start");
  dir_.makeDir("elsewhere");
  dir_.makeFile("elsewhere/file", std::string(5000, 'x'));
  fs::create_directory_symlink("../elsewhere", dir_.at("start/to directory"));
  fs::create_symlink("../elsewhere/file", dir_.at("start/to file"));
  fs::create_symlink("nowhere", dir_.at("start/dangling"));
  fs::create_directory_symlink(".", dir_.at("start/loop"));
  addDirRecursive(start);
  EXPECT_EQ(counts(), sumOf({start, dir_.at("start/to directory"), dir_.at("start/to file"),
                             dir_.at("start/dangling"), dir_.at("start/loop")}));
  EXPECT_EQ(counts().files, 4);
  EXPECT_EQ(counts().dirs, 1);
}

TEST_F(StorageUsageAddDirRecursive, SkipsFifosAndSocketsSilently) {
  makeFifo(dir_.at("fifo"));
  makeSocket(dir_.at("socket"));
  const std::string file = dir_.makeFile("file", "abc");
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), sumOf({dir_.path(), file}));
}

TEST_F(StorageUsageAddDirRecursive, SkipsDevicesSilently) {
  for (const mode_t type : {S_IFCHR, S_IFBLK}) {
    const std::string device = dir_.at("device " + std::to_string(type));
    if (::mknod(device.c_str(), type | 0600, makedev(1, 3)) != 0) {
      GTEST_SKIP() << "cannot make a device: " << std::strerror(errno);
    }
  }
  const std::string file = dir_.makeFile("file", "abc");
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), sumOf({dir_.path(), file}));
}

TEST_F(StorageUsageAddDirRecursive, CountsASparseFileByItsSizeAndItsBlocks) {
  const std::string file = dir_.makeFile("sparse");
  fs::resize_file(file, 5'000'000'000);
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), sumOf({dir_.path(), file}));
  EXPECT_GE(counts().bytes, 5'000'000'000);
}

// Deeper than the walk may hold descriptors.
TEST_F(StorageUsageAddDirRecursive, WalksATreeDeeperThanItsDescriptorLimit) {
  constexpr int kLevels = 700;
  std::string level;
  for (int i = 0; i < kLevels; ++i) {
    level += "d/";
    fs::create_directory(dir_.at(level));
    dir_.makeFile(level + "a", "a");
    dir_.makeFile(level + "z", "zz");
  }
  addDirRecursive(dir_.path());
  EXPECT_EQ(counts(), walk(dir_.path()));
  EXPECT_EQ(counts().files, 2 * kLevels);
  EXPECT_EQ(counts().dirs, kLevels + 1);
}

TEST_F(StorageUsageAddDirRecursive, AgreesWithAnotherWalkOfARealTree) {
  addDirRecursive(ARVL_SOURCE_DIR);
  EXPECT_EQ(counts(), walk(ARVL_SOURCE_DIR));
  EXPECT_GT(counts().files, 0);
}

TEST_F(StorageUsageAddDirRecursive, CountsAStartThatIsNotADirectoryAsOneEntry) {
  const std::string file = dir_.makeFile("file", "abc");
  dir_.makeDir("directory");
  fs::create_directory_symlink("directory", dir_.at("link"));
  addDirRecursive(file);
  EXPECT_EQ(counts(), sumOf({file}));
  addDirRecursive(dir_.at("link"));
  EXPECT_EQ(counts(), sumOf({file, dir_.at("link")}));
  EXPECT_EQ(counts().dirs, 0);
}

TEST_F(StorageUsageAddDirRecursive, CountsNothingAtAStartThatIsAFifo) {
  makeFifo(dir_.at("fifo"));
  addDirRecursive(dir_.at("fifo"));
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddDirRecursive, RefusesAPathThatIsNotAbsolute) {
  failToAddDirRecursive("", {"bad param []"});
  failToAddDirRecursive(".", {"bad param [.]"});
  failToAddDirRecursive("relative/x", {"bad param [relative/x]"});
  failToAddDirRecursive(" /tmp", {"bad param [ /tmp]"});
  failToAddDirRecursive("%s%n", {"bad param [%s%n]"});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddDirRecursive, ReportsAStartThatCannotBeExamined) {
  const std::string missing = dir_.at("missing %s");
  const std::string below = dir_.makeFile("file") + "/entry";
  const std::string tooLong = dir_.at(std::string(300, 'x'));
  failToAddDirRecursive(missing,
                        {"nftw [" + missing + "] failed. ret = [-1], [No such file or directory]"});
  failToAddDirRecursive(below, {"nftw [" + below + "] failed. ret = [-1], [Not a directory]"});
  failToAddDirRecursive(tooLong,
                        {"nftw [" + tooLong + "] failed. ret = [-1], [File name too long]"});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageAddDirRecursive, AddsUpOverCalls) {
  const std::string first = dir_.makeDir("first");
  const std::string second = dir_.makeDir("second");
  const std::string file = dir_.makeFile("first/file", "abc");
  const std::string other = dir_.makeFile("second/other", "0123456789");
  addDirRecursive(first);
  addDirRecursive(second);
  addOne(file);
  failToAddDirRecursive("", {"bad param []"});
  addDirRecursive(first);
  EXPECT_EQ(counts(), sumOf({first, file, second, other, file, first, file}));
}

TEST_F(StorageUsageAddDirRecursive, CountsIntoTheRecordThatWalks) {
  const std::string first = dir_.makeDir("first");
  const std::string second = dir_.makeDir("second");
  const std::string file = dir_.makeFile("second/file", "abc");
  StorageUsage other;
  addDirRecursive(first);
  EXPECT_TRUE(other.addDirRecursive(second));
  EXPECT_EQ(counts(), sumOf({first}));
  EXPECT_EQ(countsOf(other), sumOf({second, file}));
}

TEST_F(StorageUsageAddDirRecursive, LeavesCopiesIndependent) {
  const std::string file = dir_.makeFile("file", "abc");
  addDirRecursive(dir_.path());
  const Counts before = counts();

  StorageUsage copy(usage_);
  addOne(file);
  EXPECT_EQ(countsOf(copy), before);
  EXPECT_TRUE(copy.addDirRecursive(dir_.path()));
  EXPECT_EQ(counts(), sumOf({dir_.path(), file, file}));
  EXPECT_EQ(countsOf(copy), sumOf({dir_.path(), file, dir_.path(), file}));

  usage_ = StorageUsage();
  EXPECT_EQ(counts(), Counts{});
}

// ---- Directories that the user may not read. Root can read them all, so these tests become another user.

constexpr uid_t kNobody = 65534;

class OrdinaryUser {
 public:
  OrdinaryUser() : isActive_(::geteuid() != 0 || ::seteuid(kNobody) == 0), error_(errno) {}
  ~OrdinaryUser() {
    if (::getuid() == 0) {
      EXPECT_EQ(::seteuid(0), 0) << std::strerror(errno);
    }
  }
  OrdinaryUser(const OrdinaryUser &) = delete;
  OrdinaryUser &operator=(const OrdinaryUser &) = delete;

  bool isActive() const { return isActive_; }
  const char *reason() const { return std::strerror(error_); }

 private:
  bool isActive_;
  int error_;
};

class StorageUsageWithoutPermission : public StorageUsageTest {
 protected:
  // A directory with one file in it.
  std::string makeClosedDir(const std::string &name, unsigned mode) {
    closed_ = dir_.makeDir(name);
    dir_.makeFile(name + "/file", "abc");
    fs::permissions(closed_, fs::perms(mode));
    return closed_;
  }

  void TearDown() override { fs::permissions(closed_, fs::perms::owner_all); }

  // Walks as a user whom the mode bits bind. The log is compared with the sources, which that user may
  // not be able to read.
  void failToWalk(const std::string &path, const std::vector<std::string> &messages) {
    {
      const OrdinaryUser user;
      if (!user.isActive()) {
        GTEST_SKIP() << "cannot become another user: " << user.reason();
      }
      EXPECT_FALSE(usage_.addDirRecursive(path)) << path;
    }
    expectLog(messages);
  }

 private:
  std::string closed_;
};

TEST_F(StorageUsageWithoutPermission, FailsAtAnUnreadableDirectoryAndKeepsItsCounts) {
  const std::string start = dir_.makeDir("start");
  const std::string middle = dir_.makeDir("start/middle");
  const std::string closed = makeClosedDir("start/middle/closed", 0000);
  failToWalk(start, {"failed to stat: [" + closed + "], flag = 2",
                     "nftw [" + start + "] failed. ret = [1], [Permission denied]"});
  if (IsSkipped()) {
    return;
  }
  EXPECT_EQ(counts(), sumOf({start, middle}));

  addOne(start);
  addDirRecursive(dir_.makeDir("open"));
  EXPECT_EQ(counts(), sumOf({start, middle, start, dir_.at("open")}));
}

TEST_F(StorageUsageWithoutPermission, FailsAtAnUnreadableStart) {
  const std::string closed = makeClosedDir("closed", 0000);
  failToWalk(closed, {"failed to stat: [" + closed + "], flag = 2",
                      "nftw [" + closed + "] failed. ret = [1], [Permission denied]"});
  EXPECT_EQ(counts(), Counts{});
}

TEST_F(StorageUsageWithoutPermission, FailsAtAnEntryItCannotExamine) {
  const std::string closed = makeClosedDir("readable only", 0444);
  failToWalk(closed, {"failed to stat: [" + closed + "/file], flag = 3",
                      "nftw [" + closed + "] failed. ret = [1], [Permission denied]"});
  if (!IsSkipped()) {
    EXPECT_EQ(counts(), sumOf({closed}));
  }
}

TEST_F(StorageUsageWithoutPermission, FailsAtAStartItCannotReach) {
  const std::string file = makeClosedDir("closed", 0000) + "/file";
  failToWalk(file, {"nftw [" + file + "] failed. ret = [-1], [Permission denied]"});
  EXPECT_EQ(counts(), Counts{});
}

// ---- A mount below the start.

// Runs the function in a child process with its own mount namespace, with an empty file system mounted on
// the directory. Returns an empty string, or the reason why that is not possible.
template <typename Function>
std::string withMountOn(const std::string &directory, Function &&function) {
  int report[2];
  if (::pipe(report) != 0) {
    return "pipe failed";
  }
  const pid_t child = ::fork();
  if (child == 0) {
    std::string obstacle;
    if (::unshare(CLONE_NEWNS) != 0) {
      obstacle = std::string("no mount namespace: ") + std::strerror(errno);
    } else if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
               ::mount("none", directory.c_str(), "tmpfs", 0, nullptr) != 0) {
      obstacle = std::string("cannot mount: ") + std::strerror(errno);
    } else {
      function();
    }
    std::fflush(stdout);
    const ssize_t written = ::write(report[1], obstacle.data(), obstacle.size());
    ::_exit(written >= 0 && !testing::Test::HasFailure() ? 0 : 1);
  }
  ::close(report[1]);
  std::string obstacle(200, '\0');
  const ssize_t length = ::read(report[0], obstacle.data(), obstacle.size());
  obstacle.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  ::close(report[0]);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "the child's own failures are above";
  return obstacle;
}

TEST_F(StorageUsageAddDirRecursive, NeitherCountsNorEntersAMountBelowItsStart) {
  const std::string start = dir_.makeDir("start");
  const std::string mountPoint = dir_.makeDir("start/mount");
  const std::string file = dir_.makeFile("start/file", "abc");
  const std::string obstacle = withMountOn(mountPoint, [&] {
    const std::string mounted = dir_.makeFile("start/mount/mounted", "0123456789");
    addDirRecursive(start);
    EXPECT_EQ(counts(), sumOf({start, file}));

    // The walk stays on the file system where it starts.
    StorageUsage inside;
    EXPECT_TRUE(inside.addDirRecursive(mountPoint));
    EXPECT_EQ(countsOf(inside), sumOf({mountPoint, mounted}));
  });
  if (!obstacle.empty()) {
    GTEST_SKIP() << obstacle;
  }
}

}  // namespace
