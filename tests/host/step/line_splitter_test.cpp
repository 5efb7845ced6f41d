#include "step/line_splitter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using arvl_host::LineSplitter;
using Lines = std::vector<std::string>;

Lines split(const std::vector<std::string> &parts) {
  Lines lines;
  LineSplitter splitter([&lines](std::string_view line) { lines.emplace_back(line); });
  for (const std::string &part : parts) {
    splitter.add(part);
  }
  splitter.finish();
  return lines;
}

TEST(LineSplitter, GivesLinesWhateverTheChunks) {
  EXPECT_EQ(split({"a\nb\n"}), (Lines{"a", "b"}));
  EXPECT_EQ(split({"a", "\n", "b\nc", "d", "\n"}), (Lines{"a", "b", "cd"}));
  EXPECT_EQ(split({"\n\n"}), (Lines{"", ""}));
  EXPECT_EQ(split({}), Lines{});
}

TEST(LineSplitter, GivesTheLastLineWithoutALineFeed) {
  EXPECT_EQ(split({"a\nb"}), (Lines{"a", "b"}));
  EXPECT_EQ(split({"a\n"}), Lines{"a"});
}

TEST(LineSplitter, KeepsBytesOfAnyValue) {
  const std::string line("a\0\r\xff", 4);
  EXPECT_EQ(split({line + "\n"}), Lines{line});
}

TEST(LineSplitter, CountsTheBytesItDropsFromALongLine) {
  const std::string most(LineSplitter::kMaxLine, 'x');
  EXPECT_EQ(split({most + "\n"}), Lines{most});
  EXPECT_EQ(split({most + "y\nz"}), (Lines{most + " [1 more bytes]", "z"}));
  EXPECT_EQ(split({most, "yy", "yyy"}), Lines{most + " [5 more bytes]"});
}

}  // namespace
