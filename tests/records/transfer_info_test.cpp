// The percentage of downloads and uploads. It belongs to one transfer.

#include <gtest/gtest.h>

#include "zarn/arvlapp/download_info.h"
#include "zarn/arvlapp/upload_info.h"

namespace {

using namespace ZARN::ARVLAPP;

template <typename Transfer>
class TransferInfo : public testing::Test {};

using Transfers = testing::Types<DownloadInfo, UploadInfo>;
TYPED_TEST_SUITE(TransferInfo, Transfers);

TYPED_TEST(TransferInfo, HasNoPercentageAtFirst) {
  EXPECT_EQ(TypeParam().getPercentage(), -1);
}

TYPED_TEST(TransferInfo, TakesAnyPercentage) {
  TypeParam transfer;
  for (const int percentage : {40, 0, -7, 1000}) {
    transfer.setPercentage(percentage);
    EXPECT_EQ(transfer.getPercentage(), percentage);
  }
}

TYPED_TEST(TransferInfo, LeavesThePercentageBehindWhenItIsCopied) {
  TypeParam transfer;
  transfer.setPercentage(40);
  const TypeParam copy(transfer);
  EXPECT_EQ(copy.getPercentage(), -1);
  EXPECT_EQ(transfer.getPercentage(), 40);
}

TYPED_TEST(TransferInfo, KeepsItsOwnPercentageWhenItIsAssignedTo) {
  TypeParam source;
  source.setDestinationPath("/to");
  source.setPercentage(40);
  TypeParam target;
  target.setPercentage(10);
  target = source;
  EXPECT_EQ(target.getPercentage(), 10);
  EXPECT_EQ(target.getDestinationPath(), "/to");
  TypeParam &same = target;
  target = same;
  EXPECT_EQ(target.getPercentage(), 10);
}

TYPED_TEST(TransferInfo, HasACopyOfItsSource) {
  FileInfo source;
  source.setPath("/from");
  TypeParam transfer;
  transfer.setSource(source);
  source.setPath("/elsewhere");
  EXPECT_EQ(transfer.getSource().getPath(), "/from");
}

}  // namespace
