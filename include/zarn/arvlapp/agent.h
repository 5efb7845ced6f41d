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
/// The framework runs a plug-in executable once per job step. The base name of the executable names the
/// step; `-f` gives the descriptor of a connected stream socket, and `-v` the framework's version. A
/// plug-in creates one Agent, calls init with the command line, does its work, records the outcome and
/// destroys the Agent. The destructor reports the outcome to the framework:
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
/// Errors: functions return false, or -1 for a number that is not available. Each failure writes its
/// reason to syslog at LOG_ERR, except a refusal by the framework (see getErrorString) and, after
/// cancellation, getAppDataVersion and the version getters. Functions throw only std::bad_alloc, if
/// memory runs out, and Json::LogicError from JsonCpp: for a text of 2 GiB, which JsonCpp cannot hold,
/// and in listDir. The destructor throws nothing.
///
/// JSON: this header only declares Json::Value. Include <json/value.h> to use it.
///
/// Sizes: the payload of a packet, as JSON text, is at most 32 MiB (0x2000000 bytes). A larger request
/// or completion is not sent, with the reason in syslog; the request fails and leaves the error state as
/// it was. An answer that announces a larger payload fails its call and every later one. An answer
/// within 7 bytes of the limit (0x1FFFFF9 to 0x2000000) never becomes complete, because its frame
/// exceeds 32 MiB: the call waits until the framework closes the connection.
///
/// Cancellation: the framework cancels a plug-in by closing the socket. The request that notices the
/// close fails. From then on every request fails at once, the version getters return -1, setSuccess
/// and setErrorMsg are ignored, and no completion is sent. The closed socket never raises SIGPIPE in the
/// plug-in, and the signal dispositions and mask of the process do not change.
///
/// Processes: a program that the plug-in starts does not inherit the socket. A process that is forked
/// without exec inherits it, must not use the Agent, and must end with _exit, so that the Agent's
/// destructor does not run.
///
/// Threads: one Agent per process, used from one thread. Time: there are no timeouts; a framework that
/// neither answers nor closes the socket blocks the plug-in.
class ZARN_EXPORT Agent {
 public:
  /// The names of the job steps, as the base name of the plug-in executable spells them.
  static const char *const PLUGIN_NAME_SUMMARY;             ///< "summary"
  static const char *const PLUGIN_NAME_ESTIMATE_EXPORTION;  ///< "estimate_exportion"
  static const char *const PLUGIN_NAME_CAN_EXPORT;          ///< "can_export"
  static const char *const PLUGIN_NAME_EXPORT;              ///< "export"
  static const char *const PLUGIN_NAME_CAN_IMPORT;          ///< "can_import"
  static const char *const PLUGIN_NAME_IMPORT;              ///< "import"

  /// Allocates the session's state. Does no input or output.
  Agent();

  /// Reports the outcome and ends the session.
  ///
  /// If init has succeeded and the session is not canceled, sends the completion packet of the step,
  /// blocks until it has been written and closes the socket. Otherwise sends nothing and closes the
  /// socket only if init has taken ownership of it. Throws nothing.
  virtual ~Agent();

  Agent(const Agent &) = delete;
  Agent &operator=(const Agent &) = delete;

  /// Reads the command line and opens the session.
  ///
  /// Parses with getopt(3) and the options "f:v:", from the current value of getopt's global index;
  /// other options are ignored. -f takes the descriptor of a connected stream socket, decimal and at
  /// least 1; -v takes the framework's version as "major.minor", neither of them negative. Makes the
  /// descriptor non-blocking and close-on-exec, so that no program that the plug-in starts keeps the
  /// connection open. The Agent then owns the descriptor and closes it when destroyed.
  ///
  /// @param argc, argv  as main received them; argv[0] is a path whose base name is a step's name
  /// @return false, with the reason in syslog, if an argument is missing or malformed, the socket
  ///         cannot be used, or init has been called before. Only a call that failed because of argc
  ///         or a missing argv, or because argv[0] has no base name, may be repeated.
  bool init(int argc, char **argv);

  /// Returns the framework's version from -v, or -1 before init has succeeded (with a line in syslog)
  /// and after cancellation.
  int getFrameworkMajorVersion();
  int getFrameworkMinorVersion();

  /// Returns true if the framework's version is at least major.minor. Requests use it to detect a
  /// framework that is too old for them. Returns false for every non-negative version before init.
  /// Still compares the version from -v after cancellation. The spelling of the name is part of the
  /// exported interface.
  bool isVerionNotLessThan(int major, int minor);

  /// Return the number and the text of the latest error. Nothing resets them.
  ///
  /// | number | meaning                                             | error string           |
  /// |--------|-----------------------------------------------------|------------------------|
  /// | 0      | nothing                                             | empty                  |
  /// | 1      | the connection ended (cancellation) or failed       | unchanged              |
  /// | 2      | the framework answered a request with a failure     | its text               |
  /// | 3      | the framework is too old for a request              | "Arvelo not support"   |
  int getErrno() const;
  std::string getErrorString() const;

  /// Records why the step failed: the section and key of a message that the framework shows to the
  /// user. The completion carries them only if the step failed and both are non-empty. Ignored before
  /// init and after cancellation. Does not undo setSuccess.
  void setErrorMsg(const std::string &section, const std::string &key);

  /// Records that the step succeeded. Without this call the completion reports a failure. Nothing
  /// undoes it. Ignored before init and after cancellation.
  void setSuccess();

  /// Record what the step produced. May be called at any time; the last call counts. The completion of
  /// the step checks the record, even if the step failed. If the check fails, the completion reports a
  /// failure and writes a line to syslog:
  ///
  /// | call              | step               | check                          |
  /// |-------------------|--------------------|--------------------------------|
  /// | setAppDataVersion | export             | both numbers at least 0        |
  /// | setStorageUsage   | estimate_exportion | no counter below 0             |
  /// | setSummaryInfo    | summary            | no text empty                  |
  ///
  /// Without a call, the version and the texts fail their checks; the storage usage passes and is sent
  /// as four zeros. A record is copied. The counters of an estimate are sent in 64 bits, but a framework
  /// refuses a counter that does not fit a signed 32-bit number.
  void setAppDataVersion(int major, int minor);
  void setStorageUsage(const StorageUsage &usage);
  void setSummaryInfo(const SummaryInfo &info);

  /// Requests. Each call sends one packet to the framework and blocks until the answer has arrived or
  /// the connection is lost. They may be called in any order and any number of times after init has
  /// succeeded.
  ///
  /// @return true if the framework granted the request. Otherwise false with
  ///         - error number 2 and the framework's text, if it refused;
  ///         - error number 3, if its version is too old; nothing is sent then;
  ///         - error number 1, if the connection was lost in this call or before;
  ///         - an unchanged error state, if init has not succeeded, the answer breaks the protocol or
  ///           an argument is invalid.
  ///         The reason is in syslog, except for a refusal. Output arguments are written only on
  ///         success, unless said otherwise.

  /// Fetches the framework's record of the export that produced the data.
  ///
  /// @param result  an object with at least "success" and "app_data_version"
  bool getExportResult(Json::Value &result);

  /// Fetches the version that the export recorded with setAppDataVersion. Sends its own request.
  bool getAppDataVersion(int &major, int &minor);

  /// Fetches what the user selected. Since framework 2.3.
  ///
  /// Returns true for any valid answer: a failure that has both lists returns true as well and leaves
  /// the error state unchanged.
  bool getSelectedSource(SelectedSourceInfo &source);

  /// Fetches the settings of this export. Framework and plug-in agree on their form. Since framework
  /// 2.3.
  ///
  /// @param config  any JSON value, null included
  bool getExportConfig(Json::Value &config);

  /// Fetches the language setting, such as "enu". Since framework 2.3.
  bool getLanguage(std::string &language);

  /// Reports the progress of the step. Since framework 2.3.
  ///
  /// @param stage       any text; framework and plug-in agree on its meaning
  /// @param percentage  of the whole step; sent as given, but a framework refuses a number outside 0
  ///                    to 100
  bool setProgress(const std::string &stage, int percentage);

  /// Ask the framework to deliver a file to this machine, or to take a file from it. A source without a
  /// type or a path that is not absolute is sent as given, and the framework refuses it.
  bool download(const DownloadInfo &info);
  bool upload(const UploadInfo &info);

  /// Asks the framework to create a directory on its side.
  ///
  /// @param dir  absolute; otherwise the call fails with a line in syslog and sends nothing
  bool createDir(const std::string &dir);

  /// Fetches the results of external handlers for the export. Since framework 2.2.
  ///
  /// @param results  the records are appended in the framework's order. If memory runs out, the records
  ///                 appended before stay.
  bool getExternalHandleResult(std::list<ExternalDataInfo> &results);

  /// Lists a directory on the framework's side. Sends one request per page until the listing is
  /// complete.
  ///
  /// Fails if an entry is neither a regular file nor a directory, or if its size is negative. Also fails
  /// if a size or time does not fit a signed 32-bit number.
  ///
  /// @param path     as the framework names it; a relative path is sent as given, and the framework
  ///                 refuses it
  /// @param entries  emptied first, unless init has not succeeded; after a failure it holds the entries
  ///                 read before
  /// @throws Json::LogicError if a packet of another type arrives instead of a page and a member has a
  ///         type that cannot be converted; `entries` keeps the entries read before
  bool listDir(const std::string &path, std::list<FileInfo> &entries);

 private:
  class ZARN_LOCAL AgentImpl;
  std::unique_ptr<AgentImpl> impl_;
};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_ARVLAPP_AGENT_H_
