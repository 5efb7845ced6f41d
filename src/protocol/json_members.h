// Several members of an object in one pass over it, where a look-up of each by its name would cost
// several times as much. For what is read entry by entry. Logs nothing.
#ifndef ZARN_PROTOCOL_JSON_MEMBERS_H_
#define ZARN_PROTOCOL_JSON_MEMBERS_H_

#include <json/forwards.h>

#include <initializer_list>
#include <string_view>

namespace ZARN {
namespace ARVLAPP {

struct WantedMember {
  std::string_view name;      // a literal: NUL-terminated
  const Json::Value *&found;  // stays what it is if there is no such member
};

// The value is an object or null.
void findMembers(const Json::Value &value, std::initializer_list<WantedMember> wanted);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_JSON_MEMBERS_H_
