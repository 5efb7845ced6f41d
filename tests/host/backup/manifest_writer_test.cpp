#include "backup/manifest_writer.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <filesystem>
#include <memory>
#include <string>

#include "backup/checksums.h"
#include "files/sha256.h"
#include "host/backup/manifest_fixture.h"
#include "support/files.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::bytesOf;
using arvl_test::recordOf;
using arvl_test::someManifest;
using arvl_test::storeErrorOf;

class ManifestWriter : public arvl_test::ManifestFixture {};

TEST_F(ManifestWriter, WritesOneMemberOrEntryPerLine) {
  FileRecord link = recordOf("/a folder/\xff", FileType::kSymlink);
  link.size = 2;
  link.target = "\"\n";
  FileRecord file = recordOf("/file", FileType::kFile);
  file.size = std::int64_t(1) << 40;
  for (const FileRecord &record : {recordOf("/a folder", FileType::kDir), link, file}) {
    files_.add(record);
  }
  write(someManifest());
  const std::string sum(64, 'a');
  const std::string text = bytesOf(path());
  EXPECT_EQ(text.substr(0, text.find('\n', text.find('\n') + 1) + 1),
            "{\"format\":\"arvl-backup\",\"version\":1,\n"
            "\"actual\":{\"dir_count\":2,\"file_count\":1,\"size\":9223372036854775808,"
            "\"symlink_count\":3},\n");
  EXPECT_EQ(
      text.substr(text.find("\"tool\"")),
      R"("tool":"a tool 1.0",)"
      "\n"
      R"("files":[)"
      "\n"
      R"({"path":"/a folder","type":"dir","size":0,"mode":"0640","mtime":1234567890,"mtime_nsec":5},)"
      "\n"
      R"({"path":"/file","type":"file","size":1099511627776,"mode":"0640","mtime":1234567890,)"
      R"("mtime_nsec":5,"sha256":")" +
          sum +
          "\"},\n"
          R"({"path":"/a folder/\udcff","type":"symlink","size":2,"mode":"0640","mtime":1234567890,)"
          R"("mtime_nsec":5,"sha256":")" +
          sum +
          R"(","target":"\"\n"})"
          "\n]}\n");
  EXPECT_EQ(bytesOf(dir_.at("SHA256SUMS")),
            sum + "  data/file\n" + sha256Of(text) + "  manifest.json\n");
}

TEST_F(ManifestWriter, WritesStrictJsonForAnyContent) {
  files_.add(recordOf("/\xff\x01\"", FileType::kFile));
  write(someManifest());
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  const std::string text = bytesOf(path());
  Json::Value value;
  std::string errors;
  ASSERT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors;
  EXPECT_EQ(value["format"], "arvl-backup");
  EXPECT_EQ(value["version"], 1);
  EXPECT_EQ(value["files"].size(), 1u);
  EXPECT_EQ(value["files"][0]["mode"], "0640");
  EXPECT_EQ(text.find('\xff'), std::string::npos);
}

TEST_F(ManifestWriter, WritesAManifestWithoutFiles) {
  write(Manifest());
  EXPECT_TRUE(records().empty());
  EXPECT_EQ(ManifestReader(dir_.path()).manifest().dataVersion(), "");
  checkManifestFile(dir_.path());
}

// Returns nested arrays.
Json::Value nested(int levels) {
  Json::Value value;
  for (int i = 0; i < levels; ++i) {
    Json::Value outer(Json::arrayValue);
    outer.append(value);
    value = outer;
  }
  return value;
}

TEST_F(ManifestWriter, RefusesContentThatCouldNotBeReadAgain) {
  Manifest manifest;
  bool isRefused = false;
  for (int levels = 190; levels <= 210; ++levels) {
    manifest.externalHandlerResult = nested(levels);
    const std::string error = storeErrorOf([&] { write(manifest); });
    if (error.empty()) {
      EXPECT_EQ(ManifestReader(dir_.path()).manifest().externalHandlerResult, nested(levels));
    } else {
      EXPECT_EQ(error, "the manifest cannot hold external_handler_result: it nests too deep");
      isRefused = true;
    }
  }
  EXPECT_TRUE(isRefused);
}

TEST_F(ManifestWriter, LeavesNoFileAfterAnError) {
  Manifest manifest;
  manifest.summary = nested(2000);
  EXPECT_EQ(storeErrorOf([&] { write(manifest); }),
            "the manifest cannot hold summary: it nests too deep");
  EXPECT_TRUE(fs::is_empty(dir_.path()));
}

}  // namespace
}  // namespace arvl_host
