// The texts for the user, in each supported language.
#ifndef NOTES_PLUGIN_TEXTS_H_
#define NOTES_PLUGIN_TEXTS_H_

#include <string>

namespace notes {

struct Texts {
  const char *backupShort;
  const char *backupLong;
  const char *restoreShort;
  const char *restoreLong;

  const char *copyingDatabase;  // stages of the progress
  const char *uploading;
  const char *downloading;
  const char *checking;
};

// Returns the texts in the language with this code, or in English if it is not supported.
const Texts &textsIn(const std::string &language);

}  // namespace notes

#endif  // NOTES_PLUGIN_TEXTS_H_
