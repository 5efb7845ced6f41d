// Sample notes and attachments: the same number always gives the same content.
#ifndef NOTES_APP_SAMPLE_H_
#define NOTES_APP_SAMPLE_H_

#include <cstdint>
#include <string>

namespace notes {

std::string sampleNotebook(std::int64_t number);
std::string sampleTitle(std::int64_t number);
std::string sampleBody(std::int64_t number);

// Returns between 1 KiB and 64 KiB of bytes that do not compress.
std::string sampleAttachment(std::int64_t number);

}  // namespace notes

#endif  // NOTES_APP_SAMPLE_H_
