// Why a step fails: what the framework shows to the user, and what the log says.
#ifndef NOTES_PLUGIN_FAILURE_H_
#define NOTES_PLUGIN_FAILURE_H_

#include <stdexcept>
#include <string>
#include <utility>

namespace notes {

// Carries the key of a message in the section "notes"; the README lists the keys.
class Failure : public std::runtime_error {
 public:
  Failure(std::string key, const std::string &reason)
      : std::runtime_error(reason), key_(std::move(key)) {}

  const std::string &key() const { return key_; }

 private:
  std::string key_;
};

// Does the work. Turns an Error from it into a Failure with this key, unless it is a Failure.
template <typename Error = std::exception, typename Work>
auto orFail(const char *key, Work &&work) {
  try {
    return work();
  } catch (const Failure &) {
    throw;
  } catch (const Error &error) {
    throw Failure(key, error.what());
  }
}

}  // namespace notes

#endif  // NOTES_PLUGIN_FAILURE_H_
