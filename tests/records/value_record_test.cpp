// What all value records have in common. A new record needs a RecordTraits and a place in Records.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zarn/arvlapp/storage_usage.h"
#include "zarn/arvlapp/summary_info.h"

namespace {

using namespace ZARN::ARVLAPP;

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

using Records = testing::Types<SummaryInfo, StorageUsage>;

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

// Without this the other tests would show little.
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

// The virtual table and the implementation: the size that existing plug-ins are compiled with.
TYPED_TEST(ValueRecord, IsTwoPointersLarge) {
  EXPECT_EQ(sizeof(TypeParam), 2 * sizeof(void *));
}

}  // namespace
