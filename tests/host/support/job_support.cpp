#include "host/support/job_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

namespace fs = std::filesystem;

namespace arvl_test {

std::size_t countOf(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++count;
  }
  return count;
}

std::string replaced(std::string text, const std::string &part, const std::string &by) {
  const std::size_t at = text.find(part);
  EXPECT_NE(at, std::string::npos) << part << " is not in:\n" << text;
  return at == std::string::npos ? text : text.replace(at, part.size(), by);
}

void damage(const fs::path &file, const std::string &part, const std::string &by) {
  const fs::file_time_type time = fs::last_write_time(file);
  writeBytes(file, replaced(bytesOf(file), part, by));
  fs::last_write_time(file, time);
}

std::string sha256Sum(const fs::path &file) {
  // Reads standard input, because sha256sum escapes some names.
  return run({"/bin/sh", "-c", "exec sha256sum < \"$0\"", file.string()}).out.substr(0, 64);
}

std::map<std::string, std::string> treeOf(const fs::path &folder) {
  std::map<std::string, std::string> tree;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
    struct stat status;
    EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
    std::ostringstream text;
    text << std::oct << status.st_mode << std::dec;
    if (entry.is_symlink()) {
      text << " -> " << fs::read_symlink(entry.path()).string();
    } else {
      text << ' ' << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec;
    }
    if (entry.is_regular_file() && !entry.is_symlink()) {
      text << ' ' << status.st_size << ' ' << sha256Sum(entry.path());
    }
    tree[entry.path().string().substr(folder.string().size())] = text.str();
  }
  return tree;
}

namespace {

void setTime(const fs::path &path, time_t seconds, long nanoseconds) {
  const timespec times[2] = {{1, 2}, {seconds, nanoseconds}};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

}  // namespace

void makeOddTree(const fs::path &folder) {
  fs::create_directories(folder / "deep/er/empty folder");
  writeBytes(folder / "plain", "contents\n");
  writeBytes(folder / "empty", "");
  writeBytes(folder / "line\nfeed", "a line feed in its name");
  writeBytes(folder / "back\\slash\nand line feed", "both");
  writeBytes(folder / "carriage\rreturn", "a carriage return");
  writeBytes(folder / "not UTF-8 \xff\xfe", std::string("\0\xff", 2));
  writeBytes(folder / "a surrogate \xed\xb2\x80", "which UTF-8 does not know");
  writeBytes(folder / "deep/\xc3\xa4\xf0\x9f\x98\x80 \"quoted\" $(x) \x01",
             "UTF-8, quotes and control");
  writeBytes(folder / "deep/er/secret", "for one");
  writeBytes(folder / std::string(255, 'n'), "the longest name");
  writeBytes(folder / "sparse", "begin");
  fs::resize_file(folder / "sparse", 3 << 20);
  fs::create_symlink("/no/such\nplace", folder / "link");
  fs::create_symlink("\xff", folder / "deep/link not UTF-8");
  fs::permissions(folder / "deep/er/secret", fs::perms(0400));
  fs::permissions(folder / "plain", fs::perms(04755));
  fs::permissions(folder / "deep/er/empty folder", fs::perms(01700));
  setTime(folder / "plain", 1234567890, 123456789);
  setTime(folder / "empty", -5, 999999999);
  setTime(folder / "sparse", 0, 1);
  setTime(folder / "deep/er/empty folder", 978307200, 1);
  setTime(folder / "deep/er", 978307200, 987654321);
}

// ---- JobFolder.

JobFolder::JobFolder() {
  dir_.makeDir("store");
  dir_.makeDir("script");
  dir_.makeDir("local");
}

void JobFolder::script(const std::string &step, std::initializer_list<Arguments> lines) const {
  std::string text;
  for (const Arguments &words : lines) {
    for (const std::string &word : words) {
      text += word + "\t";
    }
    text.back() = '\n';
  }
  writeBytes(at("script/" + step), text);
}

JobFolder::Arguments JobFolder::job(const std::string &command, const Arguments &more) const {
  Arguments words = storeCommand(command, {"--plugin", UNRULY_PLUGIN});
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

JobFolder::Arguments JobFolder::storeCommand(const std::string &command,
                                             const Arguments &more) const {
  Arguments words = {ARVL_HOST, command, "--store", at("store")};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

fs::path JobFolder::mustBackUp(const Arguments &more) const {
  const ProcessResult result = backup(more);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  return latest();
}

fs::path JobFolder::latest(const std::string &application) const {
  const std::set<std::string> ids = backups(application);
  EXPECT_FALSE(ids.empty());
  return fs::path(at("store")) / application / (ids.empty() ? "none" : *ids.rbegin());
}

std::set<std::string> JobFolder::backups(const std::string &application) const {
  std::set<std::string> names = namesIn(fs::path(at("store")) / application);
  names.erase(".lock");
  return names;
}

std::string JobFolder::makeFifo() const {
  std::string fifo = at("fifo");
  EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  return fifo;
}

void JobFolder::release(const std::string &fifo) {
  close(open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
}

}  // namespace arvl_test
