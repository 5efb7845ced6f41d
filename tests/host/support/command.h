// Runs a program and captures its output.
#ifndef ARVL_TESTS_HOST_SUPPORT_COMMAND_H_
#define ARVL_TESTS_HOST_SUPPORT_COMMAND_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace arvl_test {

struct ProcessResult {
  int status = -1;  // exit code, or minus the number of the signal that ended the program
  std::string out;
  std::string err;
};

class Command {
 public:
  // words[0] is the program; each of the variables is "NAME=VALUE".
  explicit Command(const std::vector<std::string> &words,
                   const std::vector<std::string> &variables = {});
  ~Command();  // kills the program if it still runs
  Command(const Command &) = delete;
  Command &operator=(const Command &) = delete;

  // Reads until stdout holds the text. Returns false if stdout ends before.
  bool waitFor(const std::string &text);
  const std::string &outSoFar() const { return result_.out; }
  pid_t pid() const { return pid_; }
  void signal(int number) const;
  ProcessResult finish();

 private:
  bool readMore();

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  ProcessResult result_;
};

ProcessResult run(const std::vector<std::string> &words,
                  const std::vector<std::string> &variables = {});

// Checks that a text has a part. A failure shows the text.
testing::AssertionResult holds(const std::string &text, const std::string &part);

std::string lastLine(const std::string &text);

}  // namespace arvl_test

#endif  // ARVL_TESTS_HOST_SUPPORT_COMMAND_H_
