// A store and a local directory, and a watcher that records the transfers between them.
#ifndef ARVL_TESTS_HOST_FILES_STORE_TEST_BASE_H_
#define ARVL_TESTS_HOST_FILES_STORE_TEST_BASE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "files/read_lease.h"
#include "files/store.h"
#include "host/support/store_error_of.h"
#include "support/temp_dir.h"

namespace arvl_host {

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
        std::filesystem::remove_all(rival);
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

class StoreTestBase : public testing::Test {
 protected:
  StoreTestBase() {
    std::filesystem::create_directory(at("store"));
    std::filesystem::create_directory(at("local"));
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
    for (const auto &entry : std::filesystem::recursive_directory_iterator(at(directory))) {
      names.push_back(entry.path().lexically_relative(at(directory)));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // Runs the operation as another user if the test runs as root, and returns the error.
  std::string asOtherUser(const std::function<void()> &operation) const {
    std::filesystem::permissions(dir_.path(), std::filesystem::perms(0777));
    std::filesystem::permissions(at("store"), std::filesystem::perms(0777));
    const bool isSuperuser = geteuid() == 0;
    EXPECT_TRUE(!isSuperuser || seteuid(65534) == 0);
    std::string error = arvl_test::storeErrorOf(operation);
    EXPECT_TRUE(!isSuperuser || seteuid(0) == 0);
    return error;
  }

  // Returns whether the file system has leases, without which files are copied instead of moved.
  bool hasLeases() const {
    write("lease", "");
    return ReadLease(UniqueFd(open(at("lease").c_str(), O_PATH | O_CLOEXEC)).get()).isHeld();
  }

  using Lines = std::vector<std::string>;
  using Names = std::vector<std::string>;

  const arvl_test::TempDir dir_;
  std::unique_ptr<Store> store_;
};

}  // namespace arvl_host

#endif  // ARVL_TESTS_HOST_FILES_STORE_TEST_BASE_H_
