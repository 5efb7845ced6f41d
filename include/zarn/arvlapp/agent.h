/// The plug-in's side of the framework connection: start here.
#ifndef ZARN_ARVLAPP_AGENT_H_
#define ZARN_ARVLAPP_AGENT_H_

#include <memory>
#include <string>

#include "zarn/arvlapp/storage_usage.h"
#include "zarn/arvlapp/summary_info.h"
#include "zarn/visibility.h"

namespace ZARN {
namespace ARVLAPP {

/// The session of one plug-in run with the backup framework.
///
/// The framework runs a plug-in executable once per job step. The base name of the executable says
/// which step; `-f` hands it the descriptor of a connected stream socket, `-v` the framework's
/// version. A plug-in makes one Agent, lets it read the command line, does its work, records the
/// outcome and destroys the Agent, which reports the outcome to the framework:
///
/// @code
///   int main(int argc, char **argv) {
///     ZARN::ARVLAPP::Agent agent;
///     if (!agent.init(argc, argv)) {
///       return 1;                               // the reason is in syslog
///     }
///     if (exportEverything()) {
///       agent.setAppDataVersion(1, 0);
///       agent.setSuccess();
///     } else {
///       agent.setErrorMsg("export", "disk_full");
///     }
///   }                                           // ~Agent sends the completion
/// @endcode
///
/// Failure is reported by return values: false, or -1 for a number that is not available. Each
/// failure leaves its reason in syslog, at LOG_ERR. Nothing here throws, but for want of memory
/// (std::bad_alloc).
///
/// Cancellation: the framework cancels a plug-in by closing the socket. The exchange that meets the
/// close fails, and from then on every exchange fails at once, the version getters return -1,
/// setSuccess and setErrorMsg are ignored, and no completion is sent. A framework that is gone never
/// kills the plug-in by SIGPIPE, and the signal dispositions and mask of the process stay its own.
///
/// Threads: one Agent per process, used from one thread. Time: there are no time-outs; a framework
/// that neither answers nor closes the socket blocks the plug-in for good.
class ZARN_EXPORT Agent {
 public:
  /// The names of the job steps, as the base name of the plug-in executable spells them.
  static const char *const PLUGIN_NAME_SUMMARY;             ///< "summary"
  static const char *const PLUGIN_NAME_ESTIMATE_EXPORTION;  ///< "estimate_exportion"
  static const char *const PLUGIN_NAME_CAN_EXPORT;          ///< "can_export"
  static const char *const PLUGIN_NAME_EXPORT;              ///< "export"
  static const char *const PLUGIN_NAME_CAN_IMPORT;          ///< "can_import"
  static const char *const PLUGIN_NAME_IMPORT;              ///< "import"

  /// Allocates the session's state; no input or output.
  Agent();

  /// Reports the outcome and ends the session.
  ///
  /// After a successful init, and unless canceled, this sends the one completion packet of the step
  /// and blocks until it has been written out; then it closes the socket. Otherwise nothing is sent;
  /// a socket named by -f is closed only if init got as far as opening the session on it. Throws
  /// nothing.
  virtual ~Agent();

  Agent(const Agent &) = delete;
  Agent &operator=(const Agent &) = delete;

  /// Reads the command line and opens the session.
  ///
  /// Parses with getopt(3) and the options "f:v:", from wherever getopt's global index stands; other
  /// options are ignored. -f takes a connected stream socket's descriptor, decimal and at least 1;
  /// -v the framework's version as "major.minor", neither of them negative. The descriptor is made
  /// non-blocking, and the Agent owns it from then on and closes it when destroyed.
  ///
  /// @param argc, argv  as main received them; argv[0] is a path whose base name is a step's name
  /// @return false, with the reason in syslog, if an argument is missing or malformed, the socket
  ///         cannot be used, or init has been called on this Agent before (even in vain)
  bool init(int argc, char **argv);

  /// The framework's version from -v; -1 before init has succeeded (with a line in syslog) and after
  /// cancellation.
  int getFrameworkMajorVersion();
  int getFrameworkMinorVersion();

  /// Tells whether the framework's version is at least major.minor. Requests use it to refuse what
  /// an older framework does not know. Before init every non-negative version gives false. The
  /// spelling of the name is part of the exported interface.
  bool isVerionNotLessThan(int major, int minor);

  /// The error state: what went wrong last, for the plug-in's own decisions. Nothing resets it.
  ///
  /// | number | meaning                                             | error string           |
  /// |--------|-----------------------------------------------------|------------------------|
  /// | 0      | nothing                                             | empty                  |
  /// | 1      | the connection ended (cancellation) or failed       | unchanged              |
  /// | 2      | the framework answered a request with a failure     | its text               |
  /// | 3      | the framework is too old for a request              | "Arvelo not support"   |
  int getErrno() const;
  std::string getErrorString() const;

  /// Records why the step failed, for the completion: the section and key of a message that the
  /// framework shows to the user. Sent only if the step is not a success, and only if both are
  /// non-empty. Ignored before init and after cancellation. Does not undo setSuccess.
  void setErrorMsg(const std::string &section, const std::string &key);

  /// Records that the step succeeded; without it the completion reports failure. Nothing undoes it.
  /// Ignored before init and after cancellation.
  void setSuccess();

  /// Records what the step produced; the last call counts, at whatever time before destruction. A
  /// successful completion of the step named needs it, and is turned into a failure (with a line in
  /// syslog) when the check does not hold:
  ///
  /// | call              | step               | check                          |
  /// |-------------------|--------------------|--------------------------------|
  /// | setAppDataVersion | export             | both numbers at least 0        |
  /// | setStorageUsage   | estimate_exportion | no counter below 0             |
  /// | setSummaryInfo    | summary            | no text empty                  |
  ///
  /// A record is copied. An estimate is sent in 64 bits, but the protocol admits only counters that
  /// fit a signed 32-bit number: a framework refuses a larger one.
  void setAppDataVersion(int major, int minor);
  void setStorageUsage(const StorageUsage &usage);
  void setSummaryInfo(const SummaryInfo &info);

 private:
  class ZARN_LOCAL AgentImpl;
  std::unique_ptr<AgentImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_AGENT_H_
