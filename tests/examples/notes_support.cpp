#include "examples/notes_support.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <iterator>

namespace fs = std::filesystem;

namespace arvl_test {

std::vector<std::string> Notes::command(const std::vector<std::string> &arguments) const {
  std::vector<std::string> command = {NOTES_PROGRAM, "--dir", dir_};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ProgramOutcome Notes::run(const std::vector<std::string> &arguments, const std::string &input,
                          SystemCallFault fault) const {
  return runProgram(command(arguments), input, fault);
}

std::string Notes::output(const std::vector<std::string> &arguments,
                          const std::string &input) const {
  const ProgramOutcome outcome = run(arguments, input);
  EXPECT_EQ(outcome.exitCode, 0) << arguments.front();
  EXPECT_EQ(outcome.errors, "") << arguments.front();
  return outcome.output;
}

void Notes::make10(int notes, int attachments) const {
  const ProgramOutcome outcome = runProgram(
      {NOTES_MAKE_1_0_PROGRAM, dir_, std::to_string(notes), std::to_string(attachments)});
  ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
}

void Notes::tamper(const std::string &sql) const {
  sqlite3 *handle = nullptr;
  ASSERT_EQ(sqlite3_open_v2(database().c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr),
            SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(handle);
  sqlite3_close(handle);
}

void flipByte(const fs::path &file) {
  std::string content = bytesOf(file);
  char &byte = content.at(content.size() / 2);
  byte = static_cast<char>(byte ^ 0x20);
  writeBytes(file, content);
}

}  // namespace arvl_test
