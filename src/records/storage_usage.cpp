// Storage accounting: counts one entry by lstat(2), or a whole tree by nftw(3).

#include "zarn/arvlapp/storage_usage.h"

#include <ftw.h>
#include <sys/stat.h>

#include "util/log.h"

namespace ZARN {
namespace ARVLAPP {

namespace {

// True for regular files (0x8000) and symbolic links (0xA000) only: the mask leaves out the bit in
// which they differ. Both count as files.
bool isFileOrLink(mode_t mode) {
  return (mode & 0xD000) == 0x8000;
}

bool isCounted(mode_t mode) {
  return S_ISDIR(mode) || isFileOrLink(mode);
}

constexpr int kMaxOpenDirs = 512;
constexpr int kWalkFlags = FTW_PHYS | FTW_MOUNT | FTW_ACTIONRETVAL;

}  // namespace

struct StorageUsage::StorageUsageImpl {
  int64_t fileCount = 0;
  int64_t dirCount = 0;
  int64_t sizeByte = 0;
  int64_t blockCount = 0;

  bool addOne(const struct stat *status);

  static int visit(const char *path, const struct stat *status, int flag, struct FTW *position);

  // The accumulator of the current walk: nftw passes no argument of the caller's to its callback.
  static StorageUsageImpl *current;
};

StorageUsage::StorageUsageImpl *StorageUsage::StorageUsageImpl::current = nullptr;

bool StorageUsage::StorageUsageImpl::addOne(const struct stat *status) {
  // GCOVR_EXCL_START: no caller passes a null record
  if (status == nullptr) {
    return ARVL_LOG_FALSE("bad param");
  }
  // GCOVR_EXCL_STOP

  const mode_t type = status->st_mode & S_IFMT;
  if (!isCounted(status->st_mode)) {
    return ARVL_LOG_FALSE("failed to calculate storage usage of invalid file:(char:%d, blk:%d, fifo: %d, lnk: %d, sock: %d)", type == S_IFCHR, type == S_IFBLK, type == S_IFIFO, type == S_IFLNK, type == S_IFSOCK);
  }

  sizeByte += status->st_size;
  blockCount += status->st_blocks;
  if (type == S_IFDIR) {
    ++dirCount;
  } else {
    ++fileCount;
  }
  return true;
}

// Runs once per entry of the tree. Allocates nothing and throws nothing.
int StorageUsage::StorageUsageImpl::visit(const char *path, const struct stat *status, int flag,
                                          struct FTW * /*position*/) {
  if (path == nullptr || status == nullptr || current == nullptr) {
    ARVL_LOG_ERROR("Error: bad param or no StorageUsage instance");
    return FTW_STOP;
  }
  if (path[0] == '.' && path[1] == '\0' && flag != FTW_D) {
    ARVL_LOG_ERROR("Parameter error: root path [%s] should be directory", path);
    return FTW_STOP;
  }
  if (flag == FTW_DNR || flag == FTW_NS) {
    ARVL_LOG_ERROR("failed to stat: [%s], flag = %d", path, flag);
    return FTW_STOP;
  }

  if (!isCounted(status->st_mode)) {
    return FTW_CONTINUE;
  }
  // GCOVR_EXCL_START: addOne counts every type that isCounted accepts
  if (!current->addOne(status)) {
    ARVL_LOG_ERROR("Error: add [%s] failed", path);
    return FTW_STOP;
  }
  // GCOVR_EXCL_STOP
  return FTW_CONTINUE;
}

StorageUsage::StorageUsage() : impl_(std::make_unique<StorageUsageImpl>()) {}

StorageUsage::StorageUsage(const StorageUsage &other) : StorageUsage() {
  *this = other;
}

StorageUsage &StorageUsage::operator=(const StorageUsage &other) {
  if (this != &other) {
    *impl_ = *other.impl_;
  }
  return *this;
}

StorageUsage::~StorageUsage() = default;

bool StorageUsage::addOne(const std::string &path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) {
    return ARVL_LOG_FALSE("Failed to stat(%s) [%m]", path.c_str());
  }
  return impl_->addOne(&status);
}

bool StorageUsage::addDirRecursive(const std::string &path) {
  if (path.empty() || path.front() != '/') {
    StorageUsageImpl::current = nullptr;
    return ARVL_LOG_FALSE("bad param [%s]", path.c_str());
  }

  StorageUsageImpl::current = impl_.get();
  const int ret = ::nftw(path.c_str(), &StorageUsageImpl::visit, kMaxOpenDirs, kWalkFlags);
  StorageUsageImpl::current = nullptr;
  if (ret == FTW_STOP || ret < 0) {
    return ARVL_LOG_FALSE("nftw [%s] failed. ret = [%d], [%m]", path.c_str(), ret);
  }
  return true;
}

int64_t StorageUsage::getFileCount() {
  return impl_->fileCount;
}

int64_t StorageUsage::getDirCount() {
  return impl_->dirCount;
}

int64_t StorageUsage::getSizeByte() {
  return impl_->sizeByte;
}

int64_t StorageUsage::getBlockCount() {
  return impl_->blockCount;
}

}  // namespace ARVLAPP
}  // namespace ZARN
