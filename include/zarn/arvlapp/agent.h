/// The plug-in's side of the framework connection: start here.
#ifndef ZARN_ARVLAPP_AGENT_H_
#define ZARN_ARVLAPP_AGENT_H_

#include <json/forwards.h>

#include <list>
#include <memory>
#include <string>

#include "zarn/arvlapp/download_info.h"
#include "zarn/arvlapp/external_data_info.h"
#include "zarn/arvlapp/file_info.h"
#include "zarn/arvlapp/selected_source_info.h"
#include "zarn/arvlapp/storage_usage.h"
#include "zarn/arvlapp/summary_info.h"
#include "zarn/arvlapp/upload_info.h"
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
/// failure leaves its reason in syslog, at LOG_ERR; only a refusal by the framework (see
/// getErrorString) and, after cancellation, getAppDataVersion and the version getters are silent.
/// Nothing here throws but std::bad_alloc, when memory runs out, and JsonCpp's Json::LogicError: for a
/// text of 2 GiB, which JsonCpp cannot hold, and in listDir for an odd answer of a foreign type. The
/// destructor throws nothing.
///
/// JSON: this header only declares Json::Value. Include <json/value.h> to use it.
///
/// Sizes: a packet's payload, as JSON text, is at most 32 MiB (0x2000000 bytes). A request beyond it is
/// not sent and fails, with the error state as it was; a completion beyond it is not sent. Either
/// leaves its reason in syslog. An answer that announces more fails its call, and every later one.
/// An answer whose payload is within 7 bytes of the limit (0x1FFFFF9 to 0x2000000) never becomes
/// complete, because its frame exceeds 32 MiB: the call waits until the framework closes the connection.
///
/// Cancellation: the framework cancels a plug-in by closing the socket. The exchange that meets the
/// close fails, and from then on every exchange fails at once, the version getters return -1,
/// setSuccess and setErrorMsg are ignored, and no completion is sent. A framework that is gone never
/// kills the plug-in by SIGPIPE, and the signal dispositions and mask of the process stay its own.
///
/// Processes: a program that the plug-in starts does not inherit the socket. A process that is forked
/// without exec has the socket too and must not use the Agent, nor leave by a way that destroys it:
/// leave with _exit.
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
  /// non-blocking and close-on-exec, so that no program that the plug-in starts holds the connection
  /// open; the Agent owns it from then on and closes it when destroyed.
  ///
  /// @param argc, argv  as main received them; argv[0] is a path whose base name is a step's name
  /// @return false, with the reason in syslog, if an argument is missing or malformed, the socket
  ///         cannot be used, or an earlier call on this Agent, even one that failed, has read a name
  ///         from argv[0]. A call that was refused for argc or for a missing argv may be repeated.
  bool init(int argc, char **argv);

  /// The framework's version from -v; -1 before init has succeeded (with a line in syslog) and after
  /// cancellation.
  int getFrameworkMajorVersion();
  int getFrameworkMinorVersion();

  /// Tells whether the framework's version is at least major.minor. Requests use it to refuse what
  /// an older framework does not know. Before init every non-negative version gives false. After
  /// cancellation it still compares the version that -v gave. The spelling of the name is part of the
  /// exported interface.
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

  /// Records what the step produced; the last call counts, at whatever time before destruction. The
  /// completion of the step named checks it, even if the step has failed anyway. When the check does
  /// not hold, the completion reports failure and a line goes to syslog:
  ///
  /// | call              | step               | check                          |
  /// |-------------------|--------------------|--------------------------------|
  /// | setAppDataVersion | export             | both numbers at least 0        |
  /// | setStorageUsage   | estimate_exportion | no counter below 0             |
  /// | setSummaryInfo    | summary            | no text empty                  |
  ///
  /// Without a call the version and the texts fail their checks; the storage usage passes, and a
  /// success reports four zeros. A record is copied. An estimate is sent in 64 bits, but the protocol
  /// admits only counters that fit a signed 32-bit number: a framework refuses a larger one.
  void setAppDataVersion(int major, int minor);
  void setStorageUsage(const StorageUsage &usage);
  void setSummaryInfo(const SummaryInfo &info);

  /// Requests. Each is one exchange: one packet to the framework, one answer, both inside the call,
  /// which blocks until the answer is there or the connection is lost. They may be called in any
  /// order and any number of times after init has succeeded.
  ///
  /// @return true when the framework answered and granted the request. Otherwise false with
  ///         - error number 2 and the framework's text, if it refused;
  ///         - error number 3, if its version is below the one given; nothing is sent then;
  ///         - error number 1, if the connection was lost in this call or before;
  ///         - the error state as it was, if init has not succeeded, the answer broke the protocol or
  ///           an argument is not acceptable. The reason is in syslog (a refusal alone is not).
  ///         An argument to be filled is written only on success, unless said otherwise.

  /// Fetches the framework's record of the export that produced the data of this run.
  ///
  /// @param result  an object with at least "success" and "app_data_version"
  bool getExportResult(Json::Value &result);

  /// Fetches the version that the export recorded with setAppDataVersion. An exchange of its own.
  bool getAppDataVersion(int &major, int &minor);

  /// Fetches what the user selected. Since framework 2.3.
  ///
  /// Any valid answer counts: a framework that reports a failure and still sends both lists gives
  /// true, and leaves the error state alone.
  bool getSelectedSource(SelectedSourceInfo &source);

  /// Fetches the settings of this export, whose form is between framework and plug-in. Since
  /// framework 2.3.
  ///
  /// @param config  any JSON value, null included
  bool getExportConfig(Json::Value &config);

  /// Fetches the language setting, such as "enu". Since framework 2.3.
  bool getLanguage(std::string &language);

  /// Tells how far the step has come. Since framework 2.3.
  ///
  /// @param stage       any text; its meaning is between framework and plug-in
  /// @param percentage  of the whole step; sent as given, but a framework refuses what is not
  ///                    within 0 to 100
  bool setProgress(const std::string &stage, int percentage);

  /// Has the framework deliver one file to this machine, or take one from it. A source without a type
  /// or a path that is not absolute is sent as given, and refused by the framework.
  bool download(const DownloadInfo &info);
  bool upload(const UploadInfo &info);

  /// Has the framework create a directory on its side.
  ///
  /// @param dir  absolute; another path is refused here, with a line in syslog
  bool createDir(const std::string &dir);

  /// Fetches what external handlers reported for the export. Since framework 2.2.
  ///
  /// @param results  the records are appended in the framework's order; nothing is cleared. If memory
  ///                 runs out on the way, those appended stay.
  bool getExternalHandleResult(std::list<ExternalDataInfo> &results);

  /// Lists a directory on the framework's side, asking for page after page until the listing is
  /// complete.
  ///
  /// Only regular files and directories can be listed: an entry of another type, or of a negative
  /// size, fails the call. So does a page with an entry whose size or time exceeds a signed 32-bit
  /// number, by the rule of its packet.
  ///
  /// @param path     as the framework names it; a relative path is sent as given, and refused by the
  ///                 framework
  /// @param entries  emptied first, unless init has not succeeded; on failure it holds what had been
  ///                 read before
  /// @throws Json::LogicError from JsonCpp, when a packet of another type comes in place of a page and
  ///         holds a member of a type that cannot be read; entries keeps what had been read
  bool listDir(const std::string &path, std::list<FileInfo> &entries);

 private:
  class ZARN_LOCAL AgentImpl;
  std::unique_ptr<AgentImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_AGENT_H_
