#include "backup/manifest_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "backup/backup_file.h"
#include "host/backup/manifest_fixture.h"
#include "host/support/same_record.h"
#include "support/files.h"

namespace arvl_host {
namespace {

using arvl_test::bytesOf;
using arvl_test::expectSame;
using arvl_test::recordOf;
using arvl_test::someManifest;
using arvl_test::storeErrorOf;

class ManifestReaderOf : public arvl_test::ManifestFixture {};

TEST_F(ManifestReaderOf, ReadsWhatWasWritten) {
  const Manifest written = someManifest();
  FileRecord folder = recordOf("/folder", FileType::kDir);
  FileRecord file = recordOf("/folder/na\xffme\n\\ \xed\xb2\x80", FileType::kFile);
  file.size = std::int64_t(1) << 40;
  file.mtime = -1;
  file.mode = 07777;
  FileRecord link = recordOf("/folder/z", FileType::kSymlink);
  link.target = "\xfe\n";
  for (const FileRecord &record : {folder, file, link}) {
    files_.add(record);
  }
  write(written);

  const Manifest read = ManifestReader(dir_.path()).manifest();
  EXPECT_EQ(read.application, written.application);
  EXPECT_EQ(read.id, written.id);
  EXPECT_EQ(read.tool, written.tool);
  EXPECT_EQ(read.frameworkVersion, written.frameworkVersion);
  EXPECT_EQ(read.started, written.started);
  EXPECT_EQ(read.finished, written.finished);
  EXPECT_EQ(read.summary, written.summary);
  // Compare text: one parser makes large numbers signed, the other unsigned.
  EXPECT_EQ(read.estimate.toStyledString(), written.estimate.toStyledString());
  EXPECT_TRUE(read.isEstimateRefused);
  EXPECT_EQ(read.exportResult, written.exportResult);
  EXPECT_EQ(read.externalHandlerResult, written.externalHandlerResult);
  EXPECT_EQ(read.dataVersion(), "1.10");
  EXPECT_EQ(totalsJson(read.totals), totalsJson(written.totals));
  EXPECT_EQ(read.changed.texts, written.changed.texts);
  EXPECT_EQ(read.changed.count, written.changed.count);
  EXPECT_EQ(read.skipped.count, 3u);
  EXPECT_EQ(read.skipped.texts, written.skipped.texts);
  EXPECT_EQ(read.denials.count, 7u);
  EXPECT_EQ(read.denials.texts, written.denials.texts);

  const std::vector<FileRecord> records = this->records();
  ASSERT_EQ(records.size(), 3u);
  expectSame(records[0], folder);
  expectSame(records[1], file);
  expectSame(records[2], link);
}

TEST_F(ManifestReaderOf, ReadsAnOlderManifestWithoutCounts) {
  write(someManifest());
  std::string text = bytesOf(path());
  for (const std::string line :
       {"\"denial_count\":7,\n", "\"skipped\":[\"/c\\udcff\"],\n", "\"skipped_count\":3,\n"}) {
    ASSERT_NE(text.find(line), std::string::npos) << text;
    text.erase(text.find(line), line.size());
  }
  dir_.makeFile("manifest.json", text);
  const Manifest read = ManifestReader(dir_.path()).manifest();
  EXPECT_EQ(read.denials.count, 2u);
  EXPECT_EQ(read.skipped.count, 0u);
  EXPECT_TRUE(read.skipped.texts.empty());
}

struct Text {
  std::string text;
  const char *error;
};

TEST_F(ManifestReaderOf, RefusesAnInvalidManifestWithTheLineNumber) {
  const std::string first = "{\"format\":\"arvl-backup\",\"version\":1,\n";
  const std::string head = first + "\"application\":\"a\",\n\"files\":[\n";
  const std::string good = R"({"path":"/a","type":"file","size":0,"mode":"0644","mtime":0,)"
                           R"("mtime_nsec":0,"sha256":""})";
  const Text cases[] = {
      {"", "line 1: this is not the manifest of a backup"},
      {"{}\n", "line 1: this is not the manifest of a backup"},
      {"{\"format\":\"other\",\"version\":1,\n", "line 1: this is not the manifest of a backup"},
      {"{\"format\":\"arvl-backup\",\"version\":\"1\",\n",
       "line 1: this is not the manifest of a backup"},
      {"no JSON,\n", "line 1: invalid manifest line"},
      {first, "line 2: the manifest ends too early"},
      {first + "\"application\":\"a", "line 3: the manifest ends too early"},
      {first + "\"application\":\"a\n\"files\":[\n", "line 3: invalid manifest line"},
      {first + "\"actual\":{\"size\":-1},\n\"files\":[\n",
       "line 3: LargestInt out of UInt64 range"},
      {head, "line 4: the manifest ends too early"},
      {head + good + "\n", "line 5: the manifest ends too early"},
      {head + good.substr(0, 20), "line 4: invalid manifest line"},
      {head + "[],\n]}\n", "line 4: invalid manifest line"},
      {head + "{},\n]}\n", "line 4: there is no type \"\""},
      {head + "{\"type\":\"pipe\"},\n]}\n", "line 4: there is no type \"pipe\""},
      {head + std::string(3000, '[') + "\n]}\n", "line 4: invalid manifest line"},
  };
  for (const Text &row : cases) {
    EXPECT_EQ(errorWith(row.text), row.error) << row.text.substr(0, 200);
  }
  EXPECT_EQ(errorWith(head + good + "\n]}\n"), "");
  std::string relative = good;
  relative.replace(relative.find("/a"), 2, "a");
  EXPECT_EQ(errorWith(head + relative + "\n]}\n"), "line 4: a path does not begin with a slash");
}

// Accepts only paths below the backup.
TEST_F(ManifestReaderOf, RefusesAnUnsafePathWithTheLineNumber) {
  const std::string head = "{\"format\":\"arvl-backup\",\"version\":1,\n\"files\":[\n";
  const auto errorOfPath = [&](const std::string &path) {
    return errorWith(head + "{\"path\":\"" + path +
                     "\",\"type\":\"file\",\"size\":0,\"mode\":\"0644\",\"mtime\":0,"
                     "\"mtime_nsec\":0,\"sha256\":\"\"}\n]}\n");
  };
  for (const std::string path : {"/..", "/../a", "/a/..", "/a/../../b"}) {
    EXPECT_EQ(errorOfPath(path),
              "line 3: invalid path \"" + path + "\": it has a component \"..\"");
  }
  for (const std::string path : {"/.", "/./a", "/a/.", "/a/./b"}) {
    EXPECT_EQ(errorOfPath(path), "line 3: invalid path \"" + path + "\": it has a component \".\"");
  }
  for (const std::string path : {"/", "//", "//a", "/a/", "/a//b"}) {
    EXPECT_EQ(errorOfPath(path), "line 3: invalid path \"" + path + "\": it has a component \"\"");
  }
  EXPECT_EQ(errorOfPath("/a\\u0000b"), "line 3: invalid path \"/a\\x00b\": it holds a NUL");
  for (const std::string path : {"/...", "/..a/.b", "/a../b."}) {
    EXPECT_EQ(errorOfPath(path), "") << path;
  }
}

TEST_F(ManifestReaderOf, RefusesANewerVersionWithoutReadingFurther) {
  dir_.makeFile("manifest.json", "{\"format\":\"arvl-backup\",\"version\":2,\nanything\n");
  EXPECT_THROW(ManifestReader reader(dir_.path()), CannotExamine);
  EXPECT_EQ(storeErrorOf([&] { ManifestReader reader(dir_.path()); }),
            "\"" + path() +
                "\" is of version 2, this arvl-host reads up to version 1: use the newer one");
}

TEST_F(ManifestReaderOf, NamesAMissingManifest) {
  EXPECT_EQ(storeErrorOf([&] { ManifestReader reader(dir_.path()); }),
            "cannot open \"" + path() + "\": No such file or directory");
}

}  // namespace
}  // namespace arvl_host
