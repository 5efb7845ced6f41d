// How much JSON text may become, before it is parsed: a value takes many times the memory of its text. Logs
// nothing.
#ifndef ZARN_PROTOCOL_JSON_VALUES_H_
#define ZARN_PROTOCOL_JSON_VALUES_H_

#include <cstddef>
#include <string_view>

namespace ZARN {
namespace ARVLAPP {

// At least the number of values that parseJsonText() makes of the text: objects, arrays and what they hold.
// An empty array or object counts as two, and what comes behind the value is counted as well.
std::size_t countJsonValues(std::string_view text);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_JSON_VALUES_H_
