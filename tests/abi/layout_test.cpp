// The sizes, virtual functions and numbers that existing plug-ins were compiled with.

#include <gtest/gtest.h>

#include <type_traits>

#include "zarn/arvlapp/agent.h"
#include "zarn/arvlapp/protocol_util.h"

namespace {

using namespace ZARN::ARVLAPP;

template <typename Handle>
class HandleLayout : public testing::Test {};

using Handles = testing::Types<Agent, FileInfo, DownloadInfo, UploadInfo, SummaryInfo,
                               SelectedSourceInfo, StorageUsage, ExternalDataInfo>;
TYPED_TEST_SUITE(HandleLayout, Handles);

TYPED_TEST(HandleLayout, IsAVirtualTableAndOnePointer) {
  EXPECT_EQ(sizeof(TypeParam), 2 * sizeof(void *));
  EXPECT_EQ(alignof(TypeParam), alignof(void *));
  EXPECT_TRUE(std::has_virtual_destructor<TypeParam>::value);
}

TEST(RecordLayout, ARecordIsCopiedAndNeverMoved) {
  EXPECT_TRUE(std::is_copy_constructible<FileInfo>::value);
  EXPECT_FALSE(std::is_nothrow_move_constructible<FileInfo>::value);  // a move is a copy
  EXPECT_FALSE(std::is_copy_constructible<Agent>::value);
  EXPECT_FALSE(std::is_copy_assignable<Agent>::value);
  EXPECT_FALSE(std::is_move_constructible<Agent>::value);
  EXPECT_FALSE(std::is_move_assignable<Agent>::value);
}

TEST(PacketTypes, AreIntsWithTheNumbersOfTheWire) {
  EXPECT_TRUE((std::is_same<std::underlying_type<PACKET_TYPE>::type, int>::value));
  EXPECT_EQ(PACKET_TYPE_NONE, 0);
  EXPECT_EQ(PACKET_CAN_EXPORT_RESULT, 1);
  EXPECT_EQ(PACKET_ESTIMATE_EXPORTION_RESULT, 2);
  EXPECT_EQ(PACKET_UPLOAD_REQUEST, 3);
  EXPECT_EQ(PACKET_UPLOAD_RESPONSE, 4);
  EXPECT_EQ(PACKET_EXPORT_COMPLETE, 5);
  EXPECT_EQ(PACKET_CAN_IMPORT_RESULT, 6);
  EXPECT_EQ(PACKET_LIST_DIR_REQUEST, 7);
  EXPECT_EQ(PACKET_LIST_DIR_RESPONSE, 8);
  EXPECT_EQ(PACKET_STAT_REQUEST, 9);
  EXPECT_EQ(PACKET_STAT_RESPONSE, 10);
  EXPECT_EQ(PACKET_DOWNLOAD_REQUEST, 11);
  EXPECT_EQ(PACKET_DOWNLOAD_RESPONSE, 12);
  EXPECT_EQ(PACKET_EXPORT_RESULT_REQUEST, 13);
  EXPECT_EQ(PACKET_EXPORT_RESULT_RESPONSE, 14);
  EXPECT_EQ(PACKET_IMPORT_COMPLETE, 15);
  EXPECT_EQ(PACKET_CREATE_DIR_REQUEST, 16);
  EXPECT_EQ(PACKET_CREATE_DIR_RESPONSE, 17);
  EXPECT_EQ(PACKET_SELECTED_SOURCE_REQUEST, 18);
  EXPECT_EQ(PACKET_SELECTED_SOURCE_RESPONSE, 19);
  EXPECT_EQ(PACKET_EXPORT_CONFIG_REQUEST, 20);
  EXPECT_EQ(PACKET_EXPORT_CONFIG_RESPONSE, 21);
  EXPECT_EQ(PACKET_LANGUAGE_REQUEST, 22);
  EXPECT_EQ(PACKET_LANGUAGE_RESPONSE, 23);
  EXPECT_EQ(PACKET_SUMMARY_RESULT, 24);
  EXPECT_EQ(PACKET_SET_PROGRESS_REQUEST, 25);
  EXPECT_EQ(PACKET_SET_PROGRESS_RESPONSE, 26);
}

}  // namespace
