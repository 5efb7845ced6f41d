// The notes example under test: its programs, a data directory, and ways to damage it.
#ifndef ARVL_TESTS_EXAMPLES_NOTES_SUPPORT_H_
#define ARVL_TESTS_EXAMPLES_NOTES_SUPPORT_H_

#include <filesystem>
#include <string>
#include <vector>

#include "examples/program_run.h"
#include "support/files.h"

namespace arvl_test {

// SHA-256 of "abc", as the standard gives it.
constexpr const char *kAbcSha256 =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class Notes {
 public:
  explicit Notes(std::filesystem::path dir) : dir_(std::move(dir)) {}

  const std::filesystem::path &dir() const { return dir_; }
  std::filesystem::path database() const { return dir_ / "notes.db"; }
  std::filesystem::path attachments() const { return dir_ / "attachments"; }

  std::vector<std::string> command(const std::vector<std::string> &arguments) const;
  ProgramOutcome run(const std::vector<std::string> &arguments, const std::string &input = "",
                     SystemCallFault fault = {}) const;

  // Returns the output of a command that must succeed and write nothing to standard error.
  std::string output(const std::vector<std::string> &arguments,
                     const std::string &input = "") const;

  std::string dump() const { return output({"dump"}); }
  std::string check() const { return run({"check"}).output; }  // "ok\n" if all is well

  // Writes the data directory as release 1.0 of the application would.
  void make10(int notes, int attachments) const;

  // Executes SQL statements on the database without enforcing foreign keys.
  void tamper(const std::string &sql) const;

 private:
  std::filesystem::path dir_;
};

// Changes the byte in the middle of a file.
void flipByte(const std::filesystem::path &file);

}  // namespace arvl_test

#endif  // ARVL_TESTS_EXAMPLES_NOTES_SUPPORT_H_
