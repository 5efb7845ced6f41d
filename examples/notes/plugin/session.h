// The framework as the steps see it: supports older versions, and turns refusals into Failures.
#ifndef NOTES_PLUGIN_SESSION_H_
#define NOTES_PLUGIN_SESSION_H_

#include <zarn/arvlapp/agent.h>

#include <list>
#include <string>
#include <vector>

#include "app/schema.h"
#include "plugin/texts.h"

namespace notes {

// Paths on the framework's side.
constexpr const char *kRemoteDir = "/notes";
constexpr const char *kRemoteDatabase = "/notes/notes.db";
constexpr const char *kRemoteAttachments = "/notes/attachments";

// The user's selection for the export.
struct ExportScope {
  bool attachments = true;
  std::vector<std::string> notebooks;  // none: all of them
};

class Session {
 public:
  explicit Session(ZARN::ARVLAPP::Agent &agent) : agent_(agent) {}

  ZARN::ARVLAPP::Agent &agent() { return agent_; }

  // Returns the texts in the user's language, which is queried once.
  const Texts &texts();

  ExportScope exportScope();

  // Returns the version of the data to import, one that migrate() supports.
  DataVersion importedVersion();

  // Throws if the framework has canceled the job. Call it last before an action that cannot be undone.
  void requireNotCanceled();

  // Shows a stage text. Ignores failures other than a cancellation.
  void showProgress(const char *stage, int percentage);

  // Creates a directory on the framework's side; its parent must exist.
  void createDir(const std::string &remote);

  // Uploads a file. The percentage is that of the whole job after this file.
  enum class Source { kStays, kTemporary };
  void upload(const std::filesystem::path &file, const std::string &remote, Source source,
              int percentage);
  void download(const std::string &remote, const std::filesystem::path &file, int percentage);

  // Returns the regular files in a directory on the framework's side.
  std::list<ZARN::ARVLAPP::FileInfo> filesIn(const std::string &remote);

 private:
  // Language, selection, configuration and progress exist since version 2.3.
  bool hasQueries() { return agent_.isVerionNotLessThan(2, 3); }
  bool isCanceled() { return agent_.getFrameworkMajorVersion() < 0; }
  void requireAnswer(bool answered, const char *key, const std::string &what);

  ZARN::ARVLAPP::Agent &agent_;
  const Texts *texts_ = nullptr;
};

}  // namespace notes

#endif  // NOTES_PLUGIN_SESSION_H_
