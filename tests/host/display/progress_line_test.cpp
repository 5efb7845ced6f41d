#include "display/progress_line.h"

#include <gtest/gtest.h>

#include <limits>

namespace arvl_host {
namespace {

constexpr std::uint64_t kMebibyte = 1024 * 1024;
constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

StepProgress stageOf(const std::string &stage) {
  StepProgress progress;
  progress.step = "export";
  progress.stage = stage;
  return progress;
}

// "export: Copying mail  42 %  1,234 files  56.0 MiB  8.0 MiB/s  0:07 left"
StepProgress busy() {
  StepProgress progress = stageOf("Copying mail");
  progress.percentage = 42;
  progress.files = 1234;
  progress.bytes = 56 * kMebibyte;
  progress.expectedBytes = 112 * kMebibyte;
  progress.seconds = 7;
  return progress;
}

// Returns "0:07" from a line that ends in "  0:07 left".
std::string timeLeft(const std::string &line) {
  const std::size_t end = line.rfind(" left");
  const std::size_t begin = line.rfind("  ") + 2;
  return end == std::string::npos ? "" : line.substr(begin, end - begin);
}

TEST(ProgressLine, ShowsEveryKnownFigure) {
  EXPECT_EQ(progressLine(busy(), 200),
            "export: Copying mail  42 %  1,234 files  56.0 MiB  8.0 MiB/s  0:07 left");
}

TEST(ProgressLine, OmitsUnknownFigures) {
  StepProgress progress = stageOf("");
  EXPECT_EQ(progressLine(progress, 80), "export");
  progress.seconds = 5;
  EXPECT_EQ(progressLine(progress, 80), "export");
  progress.files = 1;
  EXPECT_EQ(progressLine(progress, 80), "export  1 file");
  progress.bytes = 10240;
  EXPECT_EQ(progressLine(progress, 80), "export  1 file  10.0 KiB  2.0 KiB/s");
  progress.files = 0;
  progress.seconds = 0;
  EXPECT_EQ(progressLine(progress, 80), "export  10.0 KiB");
  progress.stage = "Copying";
  EXPECT_EQ(progressLine(progress, 80), "export: Copying  10.0 KiB");
}

TEST(ProgressLine, GroupsTheDigitsOfManyFiles) {
  StepProgress progress = stageOf("");
  const std::pair<std::uint64_t, const char *> rows[] = {
      {999, "export  999 files"},
      {1000, "export  1,000 files"},
      {123456, "export  123,456 files"},
      {1234567, "export  1,234,567 files"},
      {kMost, "export  18,446,744,073,709,551,615 files"},
  };
  for (const auto &[files, line] : rows) {
    progress.files = files;
    EXPECT_EQ(progressLine(progress, 80), line);
  }
}

TEST(PercentageOf, ComesFromThePluginOrTheExpectedBytes) {
  struct Row {
    std::optional<int> said;
    std::uint64_t bytes;
    std::optional<std::uint64_t> expected;
    std::optional<int> shown;
  };
  const Row rows[] = {
      {std::nullopt, 0, std::nullopt, std::nullopt},
      {std::nullopt, 50, std::nullopt, std::nullopt},
      {0, 50, std::nullopt, 0},
      {42, 50, 100, 42},
      {100, 50, 100, 100},
      {std::nullopt, 0, 0, std::nullopt},
      {std::nullopt, 5, 0, std::nullopt},
      {std::nullopt, 0, 200, 0},
      {std::nullopt, 1, 200, 0},
      {std::nullopt, 101, 200, 50},
      {std::nullopt, 29, 100, 29},
      {std::nullopt, 200, 200, 99},
      {std::nullopt, 5000, 200, 99},
      {std::nullopt, kMost, 1, 99},
      {std::nullopt, kMost / 2, kMost, 50},
  };
  for (const Row &row : rows) {
    StepProgress progress;
    progress.percentage = row.said;
    progress.bytes = row.bytes;
    progress.expectedBytes = row.expected;
    EXPECT_EQ(percentageOf(progress), row.shown) << (&row - rows);
  }
}

TEST(ProgressLine, EstimatesTheTimeLeft) {
  struct Row {
    std::optional<int> percentage;
    std::uint64_t bytes;
    std::optional<std::uint64_t> expected;
    double seconds;
    const char *left;
  };
  const Row rows[] = {
      // From the missing bytes, whatever the percentage.
      {std::nullopt, 100, 400, 10, "0:30"},
      {90, 100, 400, 10, "0:30"},
      {0, 100, 400, 10, "0:30"},
      {std::nullopt, 399, 400, 10, "0:00"},
      {std::nullopt, 1, 101, 100, "2:46:40"},
      // From the percentage.
      {25, 0, std::nullopt, 10, "0:30"},
      {25, 100, std::nullopt, 10, "0:30"},
      {25, 0, 400, 10, "0:30"},
      {99, 0, std::nullopt, 99, "0:01"},
      // The expected bytes are reached or exceeded.
      {25, 400, 400, 10, "0:30"},
      {25, 500, 400, 10, "0:30"},
      {25, 500, 0, 10, "0:30"},
      {std::nullopt, 400, 400, 10, ""},
      {std::nullopt, 500, 400, 10, ""},
      {std::nullopt, kMost, 1, 10, ""},
      // Nothing is known.
      {std::nullopt, 0, std::nullopt, 10, ""},
      {std::nullopt, 100, std::nullopt, 10, ""},
      {std::nullopt, 0, 400, 10, ""},
      {0, 0, std::nullopt, 10, ""},
      {100, 0, std::nullopt, 10, ""},
      {25, 100, 400, 0, ""},
      // Limit of the shown time.
      {std::nullopt, 1, kMost, 10, ""},
      {1, 0, std::nullopt, 3636, "99:59:24"},
      {1, 0, std::nullopt, 3637, ""},
  };
  for (const Row &row : rows) {
    StepProgress progress = stageOf("");
    progress.percentage = row.percentage;
    progress.bytes = row.bytes;
    progress.expectedBytes = row.expected;
    progress.seconds = row.seconds;
    EXPECT_EQ(timeLeft(progressLine(progress, 200)), row.left) << (&row - rows);
  }
}

TEST(ProgressLine, CutsTheStageFirst) {
  const std::string figures = "  42 %  1,234 files  56.0 MiB  8.0 MiB/s  0:07 left";
  EXPECT_EQ(progressLine(busy(), 71), "export: Copying mail" + figures);
  EXPECT_EQ(progressLine(busy(), 70), "export: Copying ma…" + figures);
  EXPECT_EQ(progressLine(busy(), 61), "export: C…" + figures);
  EXPECT_EQ(progressLine(busy(), 60), "export: …" + figures);
  EXPECT_EQ(progressLine(busy(), 59), "export" + figures);
  EXPECT_EQ(progressLine(busy(), 57), "export" + figures);
}

TEST(ProgressLine, DropsFiguresFromTheEnd) {
  EXPECT_EQ(progressLine(busy(), 56), "export: Copying…  42 %  1,234 files  56.0 MiB  8.0 MiB/s");
  EXPECT_EQ(progressLine(busy(), 45), "export: Copying…  42 %  1,234 files  56.0 MiB");
  EXPECT_EQ(progressLine(busy(), 12), "export  42 %");
}

TEST(ProgressLine, FitsIntoANarrowTerminal) {
  EXPECT_EQ(progressLine(busy(), 11), "export: Co…");
  EXPECT_EQ(progressLine(busy(), 10), "export: C…");
  EXPECT_EQ(progressLine(busy(), 8), "export");
  EXPECT_EQ(progressLine(busy(), 6), "export");
  EXPECT_EQ(progressLine(busy(), 5), "expo…");
  EXPECT_EQ(progressLine(busy(), 1), "…");
  EXPECT_EQ(progressLine(busy(), 0), "");
}

TEST(ProgressLine, GivesWideCharactersTwoCells) {
  const StepProgress progress = stageOf("日本語😀");
  EXPECT_EQ(progressLine(progress, 16), "export: 日本語😀");
  EXPECT_EQ(progressLine(progress, 15), "export: 日本語…");
  EXPECT_EQ(progressLine(progress, 14), "export: 日本…") << "half a character is none";
  EXPECT_EQ(progressLine(progress, 10), "export: …");
}

TEST(ProgressLine, GivesCombiningCharactersNoCell) {
  const std::string accented = "e\u0301\u0323";
  const StepProgress progress = stageOf(accented + accented + accented);
  EXPECT_EQ(progressLine(progress, 11), "export: " + accented + accented + accented);
  EXPECT_EQ(progressLine(progress, 10), "export: " + accented + "…");
  EXPECT_EQ(progressLine(progress, 9), "export: …");
}

TEST(ProgressLine, SplitsNoCharacter) {
  const StepProgress progress = stageOf("Größe");
  EXPECT_EQ(progressLine(progress, 13), "export: Größe");
  EXPECT_EQ(progressLine(progress, 12), "export: Grö…");
  EXPECT_EQ(progressLine(progress, 11), "export: Gr…");
}

TEST(ProgressLine, EscapesControlCharactersAndInvalidBytes) {
  EXPECT_EQ(progressLine(stageOf("a\x1b[2J\r\n\xff\u202e"), 80),
            R"(export: a\x1b[2J\r\n\xff\u202e)");
  EXPECT_EQ(progressLine(stageOf("a\x1b[2J"), 12), R"(export: a\x…)") << "as wide as it shows";
}

TEST(ProgressLine, GivesAnUnassignedCharacterOneCell) {
  EXPECT_EQ(progressLine(stageOf("\u0378\u0378"), 10), "export: \u0378\u0378");
  EXPECT_EQ(progressLine(stageOf("\u0378\u0378"), 9), "export: …");
}

}  // namespace
}  // namespace arvl_host
