#include "zarn/arvlapp/summary_info.h"

#include <gtest/gtest.h>

namespace {

using ZARN::ARVLAPP::SummaryInfo;

std::vector<std::string> texts(const SummaryInfo &info) {
  return {info.getBackupShort(), info.getBackupLong(), info.getRestoreShort(),
          info.getRestoreLong()};
}

using Texts = std::vector<std::string>;

TEST(SummaryInfo, StartsWithFourEmptyTexts) {
  EXPECT_EQ(texts(SummaryInfo()), Texts(4));
}

TEST(SummaryInfo, KeepsEachTextInItsPlace) {
  SummaryInfo info;
  info.setSummaryInfo("bs", "bl", "rs", "rl");
  EXPECT_EQ(texts(info), (Texts{"bs", "bl", "rs", "rl"}));
}

TEST(SummaryInfo, KeepsOnlyTheLastSet) {
  SummaryInfo info;
  info.setSummaryInfo("a long text that goes to the heap", "b", "c", "d");
  info.setSummaryInfo("1", "2", "", "4");
  EXPECT_EQ(texts(info), (Texts{"1", "2", "", "4"}));
}

TEST(SummaryInfo, KeepsAnyBytes) {
  const Texts bytes = {"Grüße, 世界", "two\nlines\r\n\t", std::string("a\0b", 3), "\xFF\xFE %s%n"};
  SummaryInfo info;
  info.setSummaryInfo(bytes[0], bytes[1], bytes[2], bytes[3]);
  EXPECT_EQ(texts(info), bytes);
}

TEST(SummaryInfo, KeepsLongTexts) {
  const std::string text(5'000'000, 'x');
  SummaryInfo info;
  info.setSummaryInfo(text, "", "", text);
  EXPECT_EQ(texts(info), (Texts{text, "", "", text}));
}

TEST(SummaryInfo, KeepsCopiesOfItsArguments) {
  std::string text = "before";
  SummaryInfo info;
  info.setSummaryInfo(text, text, text, text);
  text = "after";
  EXPECT_EQ(texts(info), Texts(4, "before"));
}

TEST(SummaryInfo, ReturnsReferencesToItsOwnTexts) {
  SummaryInfo info;
  info.setSummaryInfo("1", "2", "3", "4");
  EXPECT_EQ(&info.getBackupShort(), &info.getBackupShort());
  EXPECT_EQ(&info.getBackupLong(), &info.getBackupLong());
  EXPECT_EQ(&info.getRestoreShort(), &info.getRestoreShort());
  EXPECT_EQ(&info.getRestoreLong(), &info.getRestoreLong());
}

TEST(SummaryInfo, CanBeSetFromItsOwnTexts) {
  SummaryInfo info;
  info.setSummaryInfo("1", "2", "3", "4");
  info.setSummaryInfo(info.getBackupLong(), info.getBackupShort(), info.getRestoreLong(),
                      info.getRestoreShort());
  EXPECT_EQ(texts(info), (Texts{"2", "1", "4", "3"}));
}

}  // namespace
