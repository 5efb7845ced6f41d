// Compares addDirRecursive over /usr to a bare nftw with an empty callback.

#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zarn/arvlapp/storage_usage.h>

#include "figure.h"

namespace arvl_bench {

namespace {

constexpr char kTree[] = "/usr";
constexpr int kRounds = 15;

int ignore(const char * /*path*/, const struct stat * /*status*/, int /*flag*/,
           struct FTW * /*position*/) {
  return 0;
}

void walkBare() {
  require(nftw(kTree, ignore, 512, FTW_PHYS | FTW_MOUNT | FTW_ACTIONRETVAL) == 0, "nftw failed");
}

void walkByLibrary() {
  ZARN::ARVLAPP::StorageUsage usage;
  require(usage.addDirRecursive(kTree), "addDirRecursive failed");
}

void walkByDu() {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  char name[] = "du";
  char options[] = "-sx";
  char tree[] = "/usr";
  char *argv[] = {name, options, tree, nullptr};
  pid_t child = 0;
  require(posix_spawnp(&child, name, &actions, nullptr, argv, environ) == 0, "no du");
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  require(waitpid(child, &status, 0) == child && status == 0, "du failed");
}

}  // namespace

Figure makeWalk() {
  Figure figure;
  figure.name = "addDirRecursive(\"/usr\")";
  figure.bound = 1.05;
  figure.rounds = kRounds;
  figure.prepare = [](Run &library, Run &bare) {
    library = [] { return timeOf(1, walkByLibrary); };
    bare = [] { return timeOf(1, walkBare); };
  };
  return figure;
}

Figure makeWalkByDu() {
  Figure figure;
  figure.name = "du -sx /usr, in its place";
  figure.rounds = kRounds;
  figure.prepare = [](Run &library, Run &bare) {
    library = [] { return timeOf(1, walkByDu); };
    bare = [] { return timeOf(1, walkBare); };
  };
  return figure;
}

}  // namespace arvl_bench
