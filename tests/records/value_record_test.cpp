// The tests that apply to all value records. A new record needs a RecordTraits and a place in Records.

#include <gtest/gtest.h>
#include <json/value.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/rule_case.h"
#include "zarn/arvlapp/download_info.h"
#include "zarn/arvlapp/external_data_info.h"
#include "zarn/arvlapp/file_info.h"
#include "zarn/arvlapp/selected_source_info.h"
#include "zarn/arvlapp/storage_usage.h"
#include "zarn/arvlapp/summary_info.h"
#include "zarn/arvlapp/upload_info.h"

namespace {

using namespace ZARN::ARVLAPP;
using arvl_test::parseJson;

using Fields = std::vector<std::string>;

// read: all fields, in the order of the header.
// defaults: the fields of a fresh record.
// fill: changes every field; each further call changes every field again.
template <typename Record>
struct RecordTraits;

template <>
struct RecordTraits<SummaryInfo> {
  static Fields defaults() { return {"", "", "", ""}; }
  static void fill(SummaryInfo &info) {
    info.setSummaryInfo(info.getBackupShort() + "backup", info.getBackupLong() + "backup, long",
                        info.getRestoreShort() + "restore", info.getRestoreLong() + "and so on");
  }
  static Fields read(SummaryInfo &info) {
    return {info.getBackupShort(), info.getBackupLong(), info.getRestoreShort(),
            info.getRestoreLong()};
  }
};

template <>
struct RecordTraits<StorageUsage> {
  static Fields defaults() { return {"0", "0", "0", "0"}; }
  static void fill(StorageUsage &usage) {
    EXPECT_TRUE(usage.addOne("/"));
    EXPECT_TRUE(usage.addOne("/proc/self/exe"));  // a link: a file
    EXPECT_TRUE(usage.addOne(ARVL_SOURCE_DIR "/records/storage_usage.cpp"));
  }
  static Fields read(StorageUsage &usage) {
    return {std::to_string(usage.getFileCount()), std::to_string(usage.getDirCount()),
            std::to_string(usage.getSizeByte()), std::to_string(usage.getBlockCount())};
  }
};

template <>
struct RecordTraits<FileInfo> {
  static Fields defaults() { return {"", "-1", "0", "none", "0"}; }
  static void fill(FileInfo &file) {
    file.setPath(file.getPath() + "/path");
    file.setSizeByte(file.getSizeByte() + 5000000000);
    file.setMtime(file.getMtime() - 1);
    if (file.isDirType()) {
      file.setRegType();
    } else {
      file.setDirType();
    }
    file.setTemp(!file.isTemp());
  }
  static Fields read(FileInfo &file) {
    return {file.getPath(), std::to_string(file.getSizeByte()), std::to_string(file.getMtime()),
            file.getTypeStr(), std::to_string(file.isTemp())};
  }
};

// A copy does not include the percentage, which has its own test.
template <typename Transfer>
struct TransferTraits {
  static Fields defaults() { return {"", "", "-1", "0", "none", "0"}; }
  static void fill(Transfer &transfer) {
    transfer.setDestinationPath(transfer.getDestinationPath() + "/to");
    FileInfo source = transfer.getSource();
    RecordTraits<FileInfo>::fill(source);
    transfer.setSource(source);
  }
  static Fields read(Transfer &transfer) {
    FileInfo source = transfer.getSource();
    Fields fields = RecordTraits<FileInfo>::read(source);
    fields.insert(fields.begin(), transfer.getDestinationPath());
    return fields;
  }
};

template <>
struct RecordTraits<DownloadInfo> : TransferTraits<DownloadInfo> {};

template <>
struct RecordTraits<UploadInfo> : TransferTraits<UploadInfo> {};

template <>
struct RecordTraits<SelectedSourceInfo> {
  static Fields defaults() { return {"0", "0"}; }
  static void fill(SelectedSourceInfo &source) {
    Json::Value payload(Json::objectValue);
    for (const char *key : {"backup_folders", "backup_apps"}) {
      for (std::size_t i = 0; i <= source.getSelectedApps().size(); ++i) {
        payload[key].append(parseJson(R"({"object":"name"})"));
      }
    }
    source.setSelectedSourceJson(payload);
  }
  static Fields read(SelectedSourceInfo &source) {
    return {std::to_string(source.getSelectedFolders().size()),
            std::to_string(source.getSelectedApps().size())};
  }
};

template <>
struct RecordTraits<ExternalDataInfo> {
  static Fields defaults() { return {"", "", "null\n"}; }
  static void fill(ExternalDataInfo &data) {
    Json::Value element(Json::objectValue);
    element["handler"] = data.getExternalHandleName() + "handler";
    element["handler_type"] = data.getExternalHandleType() + "type";
    element["result"]["again"] = data.getExternalHandleResult();
    data.setExternalHandleJson(element);
  }
  static Fields read(ExternalDataInfo &data) {
    return {data.getExternalHandleName(), data.getExternalHandleType(),
            data.getExternalHandleResult().toStyledString()};
  }
};

using Records = testing::Types<FileInfo, DownloadInfo, UploadInfo, SummaryInfo, SelectedSourceInfo,
                               StorageUsage, ExternalDataInfo>;

template <typename Record>
class ValueRecord : public testing::Test {
 protected:
  using Traits = RecordTraits<Record>;

  static Fields read(Record &record) { return Traits::read(record); }
  static void fill(Record &record) { Traits::fill(record); }

  ValueRecord() {
    fill(filled_);
    filledFields_ = read(filled_);
  }

  Record filled_;
  Fields filledFields_;
};

TYPED_TEST_SUITE(ValueRecord, Records);

TYPED_TEST(ValueRecord, StartsWithItsDefaults) {
  TypeParam record;
  EXPECT_EQ(this->read(record), TestFixture::Traits::defaults());
}

// The other tests rely on this to detect a field that is not copied.
TYPED_TEST(ValueRecord, ChangesInEveryFieldEachTimeItIsFilled) {
  TypeParam record;
  Fields before = this->read(record);
  for (int round = 0; round < 2; ++round) {
    this->fill(record);
    const Fields after = this->read(record);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
      EXPECT_NE(after[i], before[i]) << "field " << i;
    }
    before = after;
  }
}

TYPED_TEST(ValueRecord, IsCopiedWithAllItsFields) {
  TypeParam copy(this->filled_);
  EXPECT_EQ(this->read(copy), this->filledFields_);
  EXPECT_EQ(this->read(this->filled_), this->filledFields_);
}

TYPED_TEST(ValueRecord, SharesNothingWithItsCopy) {
  TypeParam copy(this->filled_);
  this->fill(this->filled_);
  EXPECT_EQ(this->read(copy), this->filledFields_);

  TypeParam copyOfCopy(copy);
  this->fill(copyOfCopy);
  EXPECT_EQ(this->read(copy), this->filledFields_);
}

TYPED_TEST(ValueRecord, OutlivesItsOriginal) {
  auto original = std::make_unique<TypeParam>(this->filled_);
  TypeParam copy(*original);
  original.reset();
  EXPECT_EQ(this->read(copy), this->filledFields_);
}

TYPED_TEST(ValueRecord, TakesAllFieldsWhenAssigned) {
  TypeParam other;
  this->fill(other);
  this->fill(other);
  TypeParam &result = (other = this->filled_);
  EXPECT_EQ(&result, &other);
  EXPECT_EQ(this->read(other), this->filledFields_);

  other = TypeParam();
  EXPECT_EQ(this->read(other), TestFixture::Traits::defaults());
}

TYPED_TEST(ValueRecord, SharesNothingAfterAssignment) {
  TypeParam other;
  other = this->filled_;
  this->fill(this->filled_);
  EXPECT_EQ(this->read(other), this->filledFields_);
}

TYPED_TEST(ValueRecord, KeepsItsFieldsWhenAssignedToItself) {
  TypeParam &same = this->filled_;
  this->filled_ = same;
  EXPECT_EQ(this->read(this->filled_), this->filledFields_);
}

// A move is a copy, so that no record is ever left empty.
TYPED_TEST(ValueRecord, IsWholeAfterItWasMovedFrom) {
  TypeParam constructed(std::move(this->filled_));
  EXPECT_EQ(this->read(constructed), this->filledFields_);
  EXPECT_EQ(this->read(this->filled_), this->filledFields_);

  TypeParam assigned;
  assigned = std::move(this->filled_);
  EXPECT_EQ(this->read(assigned), this->filledFields_);
  EXPECT_EQ(this->read(this->filled_), this->filledFields_);

  this->fill(this->filled_);
  EXPECT_EQ(this->read(constructed), this->filledFields_);
  EXPECT_EQ(this->read(assigned), this->filledFields_);
}

TYPED_TEST(ValueRecord, IsDestroyedThroughItsBase) {
  struct Derived : TypeParam {
    explicit Derived(bool &flag) : destroyed(flag) {}
    ~Derived() override { destroyed = true; }
    bool &destroyed;
  };
  bool destroyed = false;
  std::unique_ptr<TypeParam> record = std::make_unique<Derived>(destroyed);
  record.reset();
  EXPECT_TRUE(destroyed);
}

}  // namespace
