// The six steps of a job. A step returns on success and throws on failure.
#ifndef NOTES_PLUGIN_STEPS_H_
#define NOTES_PLUGIN_STEPS_H_

#include "app/data_dir.h"
#include "plugin/session.h"

namespace notes {

void summarize(Session &session);
void estimateExportion(Session &session, const DataDir &dir);
void canExport(Session &session, const DataDir &dir);
void exportData(Session &session, const DataDir &dir);
void canImport(Session &session, const DataDir &dir);
void importData(Session &session, const DataDir &dir);

}  // namespace notes

#endif  // NOTES_PLUGIN_STEPS_H_
