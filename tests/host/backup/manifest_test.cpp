#include "backup/manifest.h"

#include <gtest/gtest.h>

namespace arvl_host {
namespace {

TEST(Totals, CountEachType) {
  Totals totals;
  FileRecord record;
  record.type = FileType::kFile;
  record.size = 5;
  addTo(totals, record);
  addTo(totals, record);
  record.type = FileType::kDir;
  addTo(totals, record);
  record.type = FileType::kSymlink;
  addTo(totals, record);  // the size of a link is not counted
  EXPECT_EQ(totals.files, 2u);
  EXPECT_EQ(totals.folders, 1u);
  EXPECT_EQ(totals.links, 1u);
  EXPECT_EQ(totals.bytes, 10u);
}

}  // namespace
}  // namespace arvl_host
