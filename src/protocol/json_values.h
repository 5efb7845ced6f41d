// Counts the values in JSON text before it is parsed, because a value takes many times the memory of its
// text. Logs nothing.
#ifndef ZARN_PROTOCOL_JSON_VALUES_H_
#define ZARN_PROTOCOL_JSON_VALUES_H_

#include <cstddef>
#include <string_view>

namespace ZARN {
namespace ARVLAPP {

// Returns an upper limit of the number of values that parseJsonText() creates from the text. Counts an
// empty array or object as two. Also counts text after the end of the value.
std::size_t countJsonValues(std::string_view text);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_JSON_VALUES_H_
