// Commands that process each application of a store.

#include <gtest/gtest.h>

#include "host/support/job_support.h"

namespace arvl_test {
namespace {

class EachApplication : public JobFolder {};

TEST_F(EachApplication, RefusesAnApplicationThatTheStoreDoesNotHave) {
  for (const char *command : {"list", "prune"}) {
    const ProcessResult result = onStore(command, {"--name", "other"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(holds(result.err, "the store \"" + at("store") + "\" has no backup of other\n"));
  }
  EXPECT_EQ(onStore("verify", {"--name", "other"}).status, 1);
  EXPECT_EQ(onStore("verify", {"--name", "../store"}).status, 2);
}

}  // namespace
}  // namespace arvl_test
