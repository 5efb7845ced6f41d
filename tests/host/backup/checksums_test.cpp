#include "backup/checksums.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "files/sha256.h"
#include "host/support/command.h"
#include "host/support/store_error_of.h"
#include "support/temp_dir.h"

namespace arvl_host {
namespace {

using arvl_test::storeErrorOf;
using arvl_test::TempDir;

const std::vector<std::string> kNames = {
    "plain",    "with space", " in front",  "back\\slash", "line\nfeed", "cr\rx",
    "\\n",      "\\",         "\n",         "tab\tbed",    "*star",      "not \xff",
    "\xc3\xa4", "\x01\x7f",   "both\\\n\r", "\"quoted\"'", "end\\",      "#not a comment",
    "(x) = y",
};

TEST(Checksums, AreWrittenAsSha256sumWritesThem) {
  const TempDir dir;
  for (const std::string &name : kNames) {
    dir.makeFile(name, name);
    const std::string line =
        arvl_test::run(
            {"/bin/sh", "-c", "cd \"$0\" && exec sha256sum -- \"$1\"", dir.path().string(), name},
            {"LC_ALL=C"})
            .out;
    EXPECT_EQ(checksumLine(sha256Of(name), name) + "\n", line);
  }
}

TEST(Checksums, AreReadAsTheyWereWritten) {
  const TempDir dir;
  std::string text;
  for (const std::string &name : kNames) {
    text += checksumLine(sha256Of(name), name) + "\n";
  }
  dir.makeFile("SHA256SUMS", text);
  ChecksumsReader reader(dir.path());
  for (const std::string &name : kNames) {
    const std::optional<ChecksumsReader::Line> line = reader.next();
    ASSERT_TRUE(line);
    EXPECT_EQ(line->name, name);
    EXPECT_EQ(line->sha256, sha256Of(name));
  }
  EXPECT_FALSE(reader.next());
}

TEST(Checksums, WithAnUnsafePathAreRefusedWithTheLineNumber) {
  const TempDir dir;
  const std::string sum(64, 'a');
  const std::pair<const char *, const char *> cases[] = {
      {"data/../../b", ".."}, {"..", ".."}, {"data/./b", "."}, {"data//b", ""},
      {"/data/b", ""},        {"", ""},     {"data/", ""},
  };
  for (const auto &[name, component] : cases) {
    dir.makeFile("SHA256SUMS", sum + "  data/..a/b..\n" + sum + "  " + name + "\n");
    ChecksumsReader reader(dir.path());
    EXPECT_TRUE(reader.next());
    EXPECT_EQ(storeErrorOf([&] { reader.next(); }),
              "\"" + dir.at("SHA256SUMS") + "\", line 2: invalid path \"" + name +
                  "\": it has a component \"" + component + "\"");
  }
}

TEST(Checksums, WithAnInvalidLineAreRefusedWithTheLineNumber) {
  const TempDir dir;
  const std::string sum(64, 'a');
  for (const std::string &line :
       {std::string(), std::string("\\"), sum, sum + " name", sum + "a  name",
        sum.substr(1) + "  name", "A" + sum.substr(1) + "  name", " " + sum + "  name",
        "\\\\" + sum + "  name"}) {
    dir.makeFile("SHA256SUMS", sum + "  name\n" + line + "\n");
    ChecksumsReader reader(dir.path());
    EXPECT_TRUE(reader.next());
    EXPECT_EQ(
        storeErrorOf([&] { reader.next(); }),
        "\"" + dir.at("SHA256SUMS") + "\", line 2: invalid line: it is not a checksum and a name")
        << line;
  }
}

TEST(Checksums, AreComparedWithTheManifest) {
  const TempDir dir;
  const std::string manifest = "\"" + dir.at("manifest.json") + "\"";
  dir.makeFile("manifest.json", "a manifest");
  dir.makeFile("SHA256SUMS", checksumLine(sha256Of("a manifest"), "manifest.json") + "\n");
  EXPECT_EQ(storeErrorOf([&] { checkManifestFile(dir.path()); }), "");
  dir.makeFile("manifest.json", "another");
  EXPECT_EQ(
      storeErrorOf([&] { checkManifestFile(dir.path()); }),
      manifest + " is not the file that SHA256SUMS has the checksum of: one of the two is damaged");
  dir.makeFile("SHA256SUMS", "");
  EXPECT_EQ(storeErrorOf([&] { checkManifestFile(dir.path()); }),
            "\"" + dir.at("SHA256SUMS") + "\" has no checksum of manifest.json");
}

}  // namespace
}  // namespace arvl_host
