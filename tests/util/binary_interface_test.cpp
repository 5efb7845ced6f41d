// What existing plug-ins have compiled into them.

#include <gtest/gtest.h>

#include <type_traits>

#include "zarn/arvlapp/agent.h"
#include "zarn/arvlapp/storage_usage.h"
#include "zarn/arvlapp/summary_info.h"

namespace {

using namespace ZARN::ARVLAPP;

template <typename Class>
constexpr bool kIsAHandle =
    sizeof(Class) == 2 * sizeof(void *) && std::has_virtual_destructor_v<Class>;

TEST(BinaryInterface, HandlesAreAVirtualTableAndAnImplementation) {
  EXPECT_TRUE(kIsAHandle<Agent>);
  EXPECT_TRUE(kIsAHandle<SummaryInfo>);
  EXPECT_TRUE(kIsAHandle<StorageUsage>);
}

TEST(BinaryInterface, AnAgentIsNeitherCopiedNorMoved) {
  EXPECT_FALSE(std::is_copy_constructible_v<Agent>);
  EXPECT_FALSE(std::is_copy_assignable_v<Agent>);
  EXPECT_FALSE(std::is_move_constructible_v<Agent>);
  EXPECT_FALSE(std::is_move_assignable_v<Agent>);
}

}  // namespace
