#include "protocol/json_members.h"

#include <json/value.h>

#include <cstddef>

namespace ZARN {
namespace ARVLAPP {

void findMembers(const Json::Value &value, std::initializer_list<WantedMember> wanted) {
  const auto end = value.end();
  for (auto member = value.begin(); member != end; ++member) {
    const char *nameEnd = nullptr;
    const char *nameBegin = member.memberName(&nameEnd);
    const std::string_view name(nameBegin, static_cast<std::size_t>(nameEnd - nameBegin));
    for (const WantedMember &want : wanted) {
      if (want.name == name) {
        want.found = &*member;
        break;
      }
    }
  }
}

}  // namespace ARVLAPP
}  // namespace ZARN
