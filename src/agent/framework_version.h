// The version of the framework, as a plug-in's command line gives it.
#ifndef ZARN_AGENT_FRAMEWORK_VERSION_H_
#define ZARN_AGENT_FRAMEWORK_VERSION_H_

namespace ZARN {
namespace ARVLAPP {

// Both numbers are -1 while no version is known.
struct Version {
  int major = -1;
  int minor = -1;

  bool isAtLeast(Version other) const {
    return major > other.major || (major == other.major && minor >= other.minor);
  }
};

// The versions that introduced requests.
constexpr Version kVersion22 = {2, 2};
constexpr Version kVersion23 = {2, 3};
constexpr Version kEveryVersion = {0, 0};

}  // namespace ARVLAPP
}  // namespace ZARN

#endif  // ZARN_AGENT_FRAMEWORK_VERSION_H_
