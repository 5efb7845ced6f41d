// Fixture for whole jobs: a store, scripted plug-ins, and checks of the files on disk.
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

// Replaces the first occurrence in a file and keeps its mode and times. Fails the test if there is none.
void damage(const std::filesystem::path &file, const std::string &part, const std::string &by);
std::string sha256Sum(const std::filesystem::path &file);

// Maps each relative path below a directory to its type and mode, its modification time (except for links,
// because no copy keeps their time), and its size with checksum or its target.
std::map<std::string, std::string> treeOf(const std::filesystem::path &folder);

// Makes files of every kind: odd names, modes and times, links, empty and sparse files.
void makeOddTree(const std::filesystem::path &folder);

class JobFolder : public testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  JobFolder();

  std::string at(const std::string &name) const { return dir_.at(name); }

  // Writes the script of a step of the unruly plug-in: the words of one action per line.
  void script(const std::string &step, std::initializer_list<Arguments> lines) const;

  // Returns the words of a command that runs the scripted plug-in on the store.
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

  // Makes a backup, which must succeed, and returns its directory.
  std::filesystem::path mustBackUp(const Arguments &more = {}) const;
  std::filesystem::path latest(const std::string &application = "unruly") const;
  std::set<std::string> backups(const std::string &application = "unruly") const;

  // Makes a FIFO for a "wait" of a script. Call release() when the plug-in waits.
  std::string makeFifo() const;
  static void release(const std::string &fifo);

  const TempDir dir_;
};

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_JOB_SUPPORT_H_
