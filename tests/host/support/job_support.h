// Whole jobs under test: a store, plug-ins that a script leads, and what is to be found on disk.
#ifndef ARVL_TESTS_HOST_SUPPORT_JOB_SUPPORT_H_
#define ARVL_TESTS_HOST_SUPPORT_JOB_SUPPORT_H_

#include <gtest/gtest.h>
#include <json/value.h>

#include <filesystem>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/support/command.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace arvl_test {

std::size_t countOf(const std::string &text, const std::string &part);
std::string replaced(std::string text, const std::string &part, const std::string &by);

// Replaces the first occurrence, which has to be there. The file's mode and times stay.
void damage(const std::filesystem::path &file, const std::string &part, const std::string &by);
std::string sha256Sum(const std::filesystem::path &file);

// What is below a folder, by the path from there: type, mode, time of modification (but that of a link,
// which no copy keeps), and size with checksum, or target.
std::map<std::string, std::string> treeOf(const std::filesystem::path &folder);

// Files of every kind that a backup has to keep: odd names, modes and times, links, empty and sparse ones.
void makeOddTree(const std::filesystem::path &folder);

class JobFolder : public testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  JobFolder();

  std::string at(const std::string &name) const { return dir_.at(name); }

  // Each line is the words of one thing that the step does; see the unruly plug-in.
  void script(const std::string &step, std::initializer_list<Arguments> lines) const;

  // The command on the store, of a plug-in that the script leads.
  Arguments job(const std::string &command, const Arguments &more = {}) const;
  Arguments storeCommand(const std::string &command, const Arguments &more = {}) const;
  Arguments variables() const { return {"UNRULY_SCRIPT=" + at("script"), "UNRULY="}; }

  ProcessResult backup(const Arguments &more = {}) const {
    return run(job("backup", more), variables());
  }
  ProcessResult restore(const Arguments &more = {}) const {
    return run(job("restore", more), variables());
  }
  ProcessResult onStore(const std::string &command, const Arguments &more = {}) const {
    return run(storeCommand(command, more));
  }

  // A backup that must succeed; its folder.
  std::filesystem::path mustBackUp(const Arguments &more = {}) const;
  std::filesystem::path latest(const std::string &application = "unruly") const;
  std::set<std::string> backups(const std::string &application = "unruly") const;

  // A FIFO that a script waits for; released once the plug-in is known to wait.
  std::string makeFifo() const;
  static void release(const std::string &fifo);

  const TempDir dir_;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_JOB_SUPPORT_H_
