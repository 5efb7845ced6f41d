#include "backup/manifest.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "files/sha256.h"
#include "host/support/command.h"
#include "host/support/same_record.h"
#include "host/support/store_error_of.h"
#include "support/files.h"
#include "support/json.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace arvl_host {
namespace {

using arvl_test::bytesOf;
using arvl_test::expectSame;
using arvl_test::parseJson;
using arvl_test::storeErrorOf;
using arvl_test::TempDir;

FileRecord recordOf(const std::string &path, FileType type) {
  FileRecord record;
  record.path = path;
  record.type = type;
  record.mode = 0640;
  record.mtime = 1234567890;
  record.mtimeNsec = 5;
  if (type != FileType::kDir) {
    record.sha256 = std::string(64, 'a');
  }
  return record;
}

Manifest someManifest() {
  Manifest manifest;
  manifest.application = "an \"application\"";
  manifest.id = "20261121T092532.123Z";
  manifest.tool = "a tool 1.0";
  manifest.frameworkVersion = "2.3";
  manifest.started = "2026-11-21T09:25:32Z";
  manifest.finished = "2026-11-21T09:25:33Z";
  manifest.summary = parseJson(R"({"backup_short": "ä\n\u0001"})");
  manifest.estimate = parseJson(R"({"size": 3000000000, "file_count": -1})");
  manifest.isEstimateRefused = true;
  manifest.exportResult = parseJson(R"({"success": true, "app_data_version": "1.10"})");
  manifest.externalHandlerResult = parseJson(R"([{"handler": "h", "result": null}])");
  manifest.totals = {1, 2, 3, std::uint64_t(1) << 63};
  manifest.changed = {"/a\xff", "/b"};
  manifest.skipped = {3, {"/c\xff"}};
  manifest.denials = {7, {"one", "two\n"}};
  return manifest;
}

class ManifestIn : public testing::Test {
 protected:
  void write(const Manifest &manifest) { writeManifest(dir_.path(), manifest, files_); }

  std::string path() const { return dir_.at("manifest.json"); }

  std::vector<FileRecord> records() const {
    ManifestReader reader(dir_.path());
    std::vector<FileRecord> records;
    while (const std::optional<FileRecord> record = reader.next()) {
      records.push_back(*record);
    }
    EXPECT_FALSE(reader.next());  // and stays at the end
    return records;
  }

  // Of a manifest of that text, without its path.
  std::string errorWith(const std::string &text) const {
    dir_.makeFile("manifest.json", text);
    const std::string error = storeErrorOf([this] { records(); });
    const std::string begin = "\"" + path() + "\", ";
    return error.compare(0, begin.size(), begin) == 0 ? error.substr(begin.size()) : error;
  }

  const TempDir dir_;
  FileIndex files_;
};

TEST_F(ManifestIn, IsReadAsItWasWritten) {
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
  EXPECT_EQ(read.estimate, written.estimate);
  EXPECT_TRUE(read.isEstimateRefused);
  EXPECT_EQ(read.exportResult, written.exportResult);
  EXPECT_EQ(read.externalHandlerResult, written.externalHandlerResult);
  EXPECT_EQ(read.dataVersion(), "1.10");
  EXPECT_EQ(totalsJson(read.totals), totalsJson(written.totals));
  EXPECT_EQ(read.changed, written.changed);
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

TEST_F(ManifestIn, OfAnOlderVersionIsReadWithoutCounts) {
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

TEST_F(ManifestIn, IsStrictJsonWhateverItHolds) {
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

TEST_F(ManifestIn, HoldsNoFileAsWell) {
  write(Manifest());
  EXPECT_TRUE(records().empty());
  EXPECT_EQ(ManifestReader(dir_.path()).manifest().dataVersion(), "");
  checkManifestFile(dir_.path());
}

// Arrays within arrays.
Json::Value nested(int levels) {
  Json::Value value;
  for (int i = 0; i < levels; ++i) {
    Json::Value outer(Json::arrayValue);
    outer.append(value);
    value = outer;
  }
  return value;
}

TEST_F(ManifestIn, IsWrittenOnlyIfItCanBeReadAgain) {
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

TEST_F(ManifestIn, IsNotHalfWritten) {
  Manifest manifest;
  manifest.summary = nested(2000);
  EXPECT_EQ(storeErrorOf([&] { write(manifest); }),
            "the manifest cannot hold summary: it nests too deep");
  EXPECT_TRUE(fs::is_empty(dir_.path()));
}

struct Text {
  std::string text;
  const char *error;
};

TEST_F(ManifestIn, ThatIsNoneIsRefusedWithTheLine) {
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
      {"no JSON,\n", "line 1: this is not what a manifest holds"},
      {first, "line 2: the manifest ends too early"},
      {first + "\"application\":\"a", "line 3: the manifest ends too early"},
      {first + "\"application\":\"a\n\"files\":[\n", "line 3: this is not what a manifest holds"},
      {first + "\"actual\":{\"size\":-1},\n\"files\":[\n",
       "line 3: LargestInt out of UInt64 range"},
      {head, "line 4: the manifest ends too early"},
      {head + good + "\n", "line 5: the manifest ends too early"},
      {head + good.substr(0, 20), "line 4: this is not what a manifest holds"},
      {head + "[],\n]}\n", "line 4: this is not what a manifest holds"},
      {head + "{},\n]}\n", "line 4: there is no type \"\""},
      {head + "{\"type\":\"pipe\"},\n]}\n", "line 4: there is no type \"pipe\""},
      {head + std::string(3000, '[') + "\n]}\n", "line 4: this is not what a manifest holds"},
  };
  for (const Text &row : cases) {
    EXPECT_EQ(errorWith(row.text), row.error) << row.text.substr(0, 200);
  }
  EXPECT_EQ(errorWith(head + good + "\n]}\n"), "");
  std::string relative = good;
  relative.replace(relative.find("/a"), 2, "a");
  EXPECT_EQ(errorWith(head + relative + "\n]}\n"), "line 4: a path does not begin with a slash");
}

// Below a backup, and nowhere else.
TEST_F(ManifestIn, WithAPathThatCouldLeadElsewhereIsRefusedWithTheLine) {
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

TEST_F(ManifestIn, OfALaterVersionIsRefusedByItsVersionAlone) {
  dir_.makeFile("manifest.json", "{\"format\":\"arvl-backup\",\"version\":2,\nanything\n");
  EXPECT_THROW(ManifestReader reader(dir_.path()), CannotExamine);
  EXPECT_EQ(storeErrorOf([&] { ManifestReader reader(dir_.path()); }),
            "\"" + path() +
                "\" is of version 2, this arvl-host reads up to version 1: use the newer one");
}

TEST_F(ManifestIn, ThatIsMissingIsNamed) {
  EXPECT_EQ(storeErrorOf([&] { ManifestReader reader(dir_.path()); }),
            "cannot open \"" + path() + "\": No such file or directory");
}

TEST_F(ManifestIn, IsComparedWithItsChecksum) {
  write(someManifest());
  EXPECT_EQ(storeErrorOf([&] { checkManifestFile(dir_.path()); }), "");
  std::ofstream(path(), std::ios::app) << "\n";
  EXPECT_EQ(storeErrorOf([&] { checkManifestFile(dir_.path()); }),
            "\"" + path() +
                "\" is not the file that SHA256SUMS has the checksum of: one of the two is "
                "damaged");
}

// ---- SHA256SUMS

TEST(Totals, CountEachType) {
  Totals totals;
  FileRecord record = recordOf("/a", FileType::kFile);
  record.size = 5;
  addTo(totals, record);
  addTo(totals, record);
  addTo(totals, recordOf("/b", FileType::kDir));
  record.type = FileType::kSymlink;
  addTo(totals, record);  // whose size is not one of content
  EXPECT_EQ(totals.files, 2u);
  EXPECT_EQ(totals.folders, 1u);
  EXPECT_EQ(totals.links, 1u);
  EXPECT_EQ(totals.bytes, 10u);
}

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

TEST(Checksums, OfAPathThatCouldLeadElsewhereAreRefusedWithTheLine) {
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

TEST(Checksums, ThatAreNoneAreRefusedWithTheLine) {
  const TempDir dir;
  const std::string sum(64, 'a');
  for (const std::string &line :
       {std::string(), std::string("\\"), sum, sum + " name", sum + "a  name",
        sum.substr(1) + "  name", "A" + sum.substr(1) + "  name", " " + sum + "  name",
        "\\\\" + sum + "  name"}) {
    dir.makeFile("SHA256SUMS", sum + "  name\n" + line + "\n");
    ChecksumsReader reader(dir.path());
    EXPECT_TRUE(reader.next());
    EXPECT_EQ(storeErrorOf([&] { reader.next(); }),
              "\"" + dir.at("SHA256SUMS") + "\", line 2: this is not a checksum and a name")
        << line;
  }
}

}  // namespace
}  // namespace arvl_host
