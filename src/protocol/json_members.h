// Finds several members of an object in one pass, which is several times faster than a look-up of each
// by its name. For rules that run once per entry of a list. Logs nothing.
#ifndef ZARN_PROTOCOL_JSON_MEMBERS_H_
#define ZARN_PROTOCOL_JSON_MEMBERS_H_

#include <json/forwards.h>

#include <initializer_list>
#include <string_view>

namespace ZARN {
namespace ARVLAPP {

struct WantedMember {
  std::string_view name;      // a literal: NUL-terminated
  const Json::Value *&found;  // unchanged if there is no such member
};

// Sets `found` of each wanted member that the value has. The value must be an object or null.
void findMembers(const Json::Value &value, std::initializer_list<WantedMember> wanted);

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_PROTOCOL_JSON_MEMBERS_H_
