#include "plugin/texts.h"

namespace notes {
namespace {

constexpr Texts kEnglish = {
    "Notes and attachments",
    "All notebooks with their notes, and the files attached to them.",
    "Notes and attachments",
    "Notes and attachments come back as they were; what has been written since is replaced.",
    "Copying the database",
    "Backing up",
    "Restoring",
    "Checking",
};

constexpr Texts kGerman = {
    "Notizen und Anhänge",
    "Alle Notizbücher mit ihren Notizen und den Dateien, die daran hängen.",
    "Notizen und Anhänge",
    "Notizen und Anhänge werden zurückgesetzt; was seither geschrieben wurde, wird ersetzt.",
    "Datenbank wird kopiert",
    "Daten werden gesichert",
    "Daten werden wiederhergestellt",
    "Daten werden geprüft",
};

}  // namespace

const Texts &textsIn(const std::string &language) {
  return language == "ger" ? kGerman : kEnglish;
}

}  // namespace notes
