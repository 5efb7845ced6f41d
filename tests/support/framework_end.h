// The framework's end of a session, for tests that speak to the wire: a socket pair whose other end
// goes to the plug-in, and a script that plays the framework in a thread.
//
//   FrameworkEnd framework;
//   framework.play([&] {
//     EXPECT_EQ(framework.readFrame(), frame(25, "{...}\n"));
//     framework.write(frame(26, "{\"success\":true}"));
//   });
//   Agent agent;
//   ASSERT_TRUE(openSession(agent, "export", framework));
//   ...
//   framework.finish();   // waits for the script
#ifndef ARVL_TESTS_SUPPORT_FRAMEWORK_END_H_
#define ARVL_TESTS_SUPPORT_FRAMEWORK_END_H_

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "zarn/arvlapp/agent.h"

namespace arvl_test {

// Returns the bytes of a frame: DC 55, then the type and the payload's length in network order, then the
// payload. The tests that compare bytes on the wire expect these. It is the only encoder besides the
// codec of src/protocol/, and does not use it, so that an error in the codec shows.
std::string frame(unsigned type, const std::string &payload);

// A command line as main receives it. Resets getopt's index to that of a new process.
class CommandLine {
 public:
  CommandLine(std::initializer_list<std::string> words);
  int argc() const { return static_cast<int>(words_.size()); }
  char **argv() { return pointers_.data(); }

 private:
  std::vector<std::string> words_;
  std::vector<char *> pointers_;
};

class FrameworkEnd {
 public:
  FrameworkEnd();
  ~FrameworkEnd();  // finishes
  FrameworkEnd(const FrameworkEnd &) = delete;
  FrameworkEnd &operator=(const FrameworkEnd &) = delete;

  // The plug-in's descriptor. A session that is opened on it closes it.
  int pluginFd() const { return pluginFd_; }
  int fd() const { return fd_; }

  void play(std::function<void()> script);
  // Waits for the script. Call it when the plug-in will send and read no more: the script then reads only
  // what has been sent, and waits for nothing else. A test of a call that sends nothing fails, therefore,
  // and does not hang.
  void finish();

  // Returns one whole frame, or the part of it that was sent before the plug-in closed.
  std::string readFrame();
  std::string readBytes(std::size_t size);
  // Returns all bytes until the plug-in closes.
  std::string readAll();
  // Returns silently if the plug-in has closed.
  void write(const std::string &bytes);
  // Returns when the plug-in has read all that was written.
  void waitUntilRead() const;
  void close();

 private:
  ssize_t readSome(char *bytes, std::size_t size) const;
  bool isFinishing() const;

  int fd_ = -1;
  int pluginFd_ = -1;
  int finishing_;  // an event descriptor; readable while finish() waits for the script
  std::thread thread_;
};

// Runs init on the framework's socket.
bool openSession(ZARN::ARVLAPP::Agent &agent, const std::string &step,
                 const FrameworkEnd &framework, const std::string &version = "2.3");

int countOpenDescriptors();

}  // namespace arvl_test

#endif  // ARVL_TESTS_SUPPORT_FRAMEWORK_END_H_
