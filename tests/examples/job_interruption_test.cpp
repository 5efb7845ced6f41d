// Jobs that end early: the host is interrupted or killed, or the plug-in is, at each of their packets.
// In each case the store holds only complete backups, and the application has one complete state.

#include <gtest/gtest.h>
#include <json/value.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "examples/notes_support.h"
#include "files/temporary_file.h"
#include "host/support/command.h"
#include "host/support/supervised_run.h"
#include "protocol/packet_table.h"
#include "support/json.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using arvl_host::temporaryName;
using ZARN::ARVLAPP::findPacket;
using ZARN::ARVLAPP::PacketInfo;
using ZARN::ARVLAPP::PacketKind;

bool isTemporary(const fs::path &file) {
  return file.extension() == ".partial" || file.filename().string().rfind(".arvl-", 0) == 0;
}

// Includes the temporary files of the notes plug-in.
bool isLeftover(const fs::path &file) {
  const std::string name = file.filename();
  return isTemporary(file) || name == ".export" || name == ".notes.import" || name == ".notes.old";
}

std::vector<std::string> filesBelow(const fs::path &folder, bool (*isMeant)(const fs::path &)) {
  std::vector<std::string> found;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
    if (isMeant(entry.path())) {
      found.push_back(entry.path());
    }
  }
  return found;
}

// ---- The fault.

enum class Fault { kInterrupt, kKillPlugin, kKillHost };

// Returns the exit code of the host, or minus the number of the signal that killed it.
int statusAfter(Fault fault) {
  return fault == Fault::kInterrupt ? 130 : fault == Fault::kKillPlugin ? 5 : -SIGKILL;
}

// Injects a fault once, before the write that the test chooses.
class FaultInjector : public Supervisor {
 public:
  // `packets` counts the packets of the trace, including the one that is being written.
  using IsMoment = std::function<bool(const PendingWrite &write, int packets)>;

  FaultInjector(Fault fault, std::string trace, IsMoment isMoment)
      : fault_(fault), trace_(std::move(trace)), isMoment_(std::move(isMoment)) {}

  bool hasStruck() const { return hasStruck_; }

 private:
  void onWrite(const PendingWrite &write) override {
    if (write.file == trace_) {
      follow(parseJson(write.text));
    }
    if (!hasStruck_ && isMoment_(write, packets_)) {
      hasStruck_ = true;
      inject(write.program);
    }
  }

  // Delays the exit of a plug-in until the host has its completion. Otherwise it would be random
  // whether the plug-in is alive at the fault.
  bool mayExit(pid_t process) override { return process != plugin_ || hasCompleted_ || hasStruck_; }

  void follow(const Json::Value &line) {
    const std::string kind = line["kind"].asString();
    if (kind == "step") {
      plugin_ = line["pid"].asInt();
      hasCompleted_ = false;
    } else if (kind == "packet") {
      ++packets_;
      hasCompleted_ = hasCompleted_ || isCompletion(line["type"].asInt());
    }
  }

  static bool isCompletion(int type) {
    const PacketInfo *info = findPacket(type);
    return info != nullptr && info->kind == PacketKind::kCompletion;
  }

  void inject(pid_t host) const {
    switch (fault_) {
      case Fault::kInterrupt:
        kill(host, SIGINT);
        break;
      case Fault::kKillPlugin:
        kill(plugin_, SIGKILL);
        break;
      case Fault::kKillHost:
        kill(host, SIGKILL);
        break;
    }
  }

  const Fault fault_;
  const std::string trace_;
  const IsMoment isMoment_;
  pid_t plugin_ = -1;
  bool hasCompleted_ = false;
  bool hasStruck_ = false;
  int packets_ = 0;
};

// Chooses the moment at which the host prints a line with this prefix.
FaultInjector::IsMoment atLine(const std::string &begin) {
  return [begin](const PendingWrite &write, int) {
    return write.text.compare(0, begin.size(), begin) == 0;
  };
}

FaultInjector::IsMoment atPacket(int number) {
  return [number](const PendingWrite &, int packets) { return packets == number; };
}

// Chooses the second write to a temporary file: part of the file has been written.
FaultInjector::IsMoment whileCopying() {
  return [writes = 0](const PendingWrite &write, int) mutable {
    return isTemporary(write.file) && ++writes == 2;
  };
}

// Chooses a write of the manifest or of its checksums. The other files of a backup are one directory
// deeper.
FaultInjector::IsMoment atManifestWrite(int number) {
  return [number, writes = 0](const PendingWrite &write, int) mutable {
    return isTemporary(write.file) && isTemporary(fs::path(write.file).parent_path()) &&
           ++writes == number;
  };
}

// ---- Jobs of an application, and a store for them.

class Jobs : public testing::Test {
 protected:
  std::vector<std::string> command(const std::string &job) const {
    return {ARVL_HOST, job,       "--store", store_,    "--plugin",
            plugin_,   "--trace", trace_,    "--grace", grace_};
  }

  void mustRun(const std::string &job) const {
    const ProcessResult result = run(command(job), variables_);
    EXPECT_EQ(result.status, 0) << job << ": " << result.out << result.err;
  }

  // Returns when every process of the job has ended.
  ProcessResult inject(const std::string &job, Fault fault,
                       const FaultInjector::IsMoment &isMoment) const {
    FaultInjector injector(fault, trace_, isMoment);
    const ProcessResult result = runSupervised(command(job), variables_, injector);
    EXPECT_TRUE(injector.hasStruck());
    EXPECT_EQ(result.status, statusAfter(fault)) << result.out << result.err;
    if (fault == Fault::kInterrupt) {
      EXPECT_TRUE(holds(result.out + result.err, "interrupted")) << result.out << result.err;
    }
    return result;
  }

  // Returns the number of packets in the trace of the last job.
  int tracedPackets() const {
    std::ifstream file(trace_);
    int packets = 0;
    for (std::string line; std::getline(file, line);) {
      packets += parseJson(line)["kind"] == "packet" ? 1 : 0;
    }
    return packets;
  }

  Json::Value listed() const {
    const ProcessResult result = run({ARVL_HOST, "list", "--json", "--store", store_});
    EXPECT_EQ(result.status, 0) << result.err;
    return parseJson(result.out);
  }

  std::vector<std::string> listedBackups() const {
    std::vector<std::string> paths;
    const Json::Value list = listed();
    for (const Json::Value &backup : list["backups"]) {
      EXPECT_TRUE(backup["error"].isNull()) << backup["error"].asString();
      paths.push_back(backup["path"].asString());
    }
    return paths;
  }

  void expectSoundStore() const {
    const ProcessResult result = run({ARVL_HOST, "verify", "--store", store_});
    const int expected = listedBackups().empty() ? 1 : 0;  // verify fails on an empty store
    EXPECT_EQ(result.status, expected) << result.out << result.err;
  }

  TempDir temp_;
  const std::string store_ = temp_.makeDir("store");
  const std::string trace_ = temp_.at("trace");
  std::string plugin_;
  std::vector<std::string> variables_;
  std::string grace_ = "5";
};

// ---- Backups and restores of notes, with a fault at each packet.

class NotesJobs : public Jobs {
 protected:
  NotesJobs() {
    plugin_ = NOTES_PLUGIN_DIR;
    variables_ = {"NOTES_DIR=" + notes_.dir().string()};
  }

  void SetUp() override {
    notes_.output({"init"});
    notes_.output({"fill", "--notes", "3", "--attachments", "2"});
    mustRun("backup");
    backups_ = listedBackups();
    ASSERT_EQ(backups_.size(), 1U);
  }

  std::vector<std::string> leftovers() const { return filesBelow(temp_.path(), isLeftover); }
  std::vector<std::string> temporaries() const { return filesBelow(temp_.path(), isTemporary); }

  void injectIntoBackups(Fault fault);
  void injectIntoRestores(Fault fault);
  void expectBackupWithoutLeftovers() const;

  const Notes notes_{temp_.makeDir("home") + "/notes"};
  std::vector<std::string> backups_;

 private:
  void makeOther(const fs::path &kept) const;
};

// Expects a backup to succeed and to leave no temporary files, then removes it.
void NotesJobs::expectBackupWithoutLeftovers() const {
  mustRun("backup");
  EXPECT_EQ(leftovers(), std::vector<std::string>());
  const std::vector<std::string> now = listedBackups();
  ASSERT_EQ(now.size(), 2U);
  EXPECT_EQ(now.front(), backups_.front());
  fs::remove_all(now.back());
}

void NotesJobs::injectIntoBackups(Fault fault) {
  const std::string live = notes_.dump();
  const int packets = tracedPackets();
  ASSERT_GT(packets, 30);
  for (int packet = 1; packet <= packets; ++packet) {
    SCOPED_TRACE("packet " + std::to_string(packet));
    inject("backup", fault, atPacket(packet));
    EXPECT_EQ(listedBackups(), backups_);
    EXPECT_EQ(listed()["unfinished"].size(), fault == Fault::kKillHost ? 1U : 0U);
    if (fault != Fault::kKillHost) {
      EXPECT_EQ(temporaries(), std::vector<std::string>());
    }
    expectSoundStore();
    EXPECT_EQ(notes_.dump(), live);
    EXPECT_EQ(notes_.check(), "ok\n");
    expectBackupWithoutLeftovers();
    if (HasFailure()) {
      return;
    }
  }
}

void NotesJobs::makeOther(const fs::path &kept) const {
  fs::remove_all(notes_.dir());
  fs::copy(kept, notes_.dir(), fs::copy_options::recursive);
}

void NotesJobs::injectIntoRestores(Fault fault) {
  const std::string backedUp = notes_.dump();
  notes_.output({"add", "Later", "not backed up"});
  const std::string other = notes_.dump();
  const fs::path kept = temp_.path() / "kept";
  fs::copy(notes_.dir(), kept, fs::copy_options::recursive);
  mustRun("restore");
  ASSERT_EQ(notes_.dump(), backedUp);
  const int packets = tracedPackets();
  ASSERT_GT(packets, 15);

  std::string before = other;
  for (int packet = 1; packet <= packets; ++packet) {
    SCOPED_TRACE("packet " + std::to_string(packet));
    makeOther(kept);
    inject("restore", fault, atPacket(packet));
    if (fault != Fault::kKillHost) {
      EXPECT_EQ(temporaries(), std::vector<std::string>());
    }
    const std::string state = notes_.dump();
    EXPECT_TRUE(state == before || state == backedUp) << state;
    EXPECT_EQ(notes_.check(), "ok\n");
    mustRun("restore");
    EXPECT_EQ(leftovers(), std::vector<std::string>());
    EXPECT_EQ(notes_.dump(), backedUp);
    EXPECT_EQ(notes_.check(), "ok\n");
    if (HasFailure()) {
      return;
    }
    before = state;  // once the data is replaced, each later fault must find it replaced
  }
  EXPECT_EQ(before, backedUp);  // the data is replaced before the last packet
  EXPECT_EQ(listedBackups(), backups_);
  expectSoundStore();
}

TEST_F(NotesJobs, BackupsLeaveASoundStoreWhenInterruptedAtAnyPacket) {
  injectIntoBackups(Fault::kInterrupt);
}

TEST_F(NotesJobs, BackupsLeaveASoundStoreWhenThePluginIsKilledAtAnyPacket) {
  injectIntoBackups(Fault::kKillPlugin);
}

TEST_F(NotesJobs, BackupsLeaveASoundStoreWhenTheHostIsKilledAtAnyPacket) {
  injectIntoBackups(Fault::kKillHost);
}

TEST_F(NotesJobs, BackupsLeaveASoundStoreWhenTheyEndDuringTheManifest) {
  for (const Fault fault : {Fault::kInterrupt, Fault::kKillHost}) {
    for (const int write : {1, 2}) {
      SCOPED_TRACE(std::to_string(statusAfter(fault)) + " at write " + std::to_string(write));
      inject("backup", fault, atManifestWrite(write));
      EXPECT_EQ(listedBackups(), backups_);
      expectSoundStore();
      expectBackupWithoutLeftovers();
    }
  }
}

TEST_F(NotesJobs, RunNoFurtherStepWhenInterruptedBetweenTwoSteps) {
  const ProcessResult result =
      inject("backup", Fault::kInterrupt, atLine("step can_export: success"));
  EXPECT_EQ(result.out.find("\nstep export"), std::string::npos) << result.out;
  EXPECT_EQ(listedBackups(), backups_);
}

TEST_F(NotesJobs, RestoresLeaveOneWholeStateWhenInterruptedAtAnyPacket) {
  injectIntoRestores(Fault::kInterrupt);
}

TEST_F(NotesJobs, RestoresLeaveOneWholeStateWhenThePluginIsKilledAtAnyPacket) {
  injectIntoRestores(Fault::kKillPlugin);
}

TEST_F(NotesJobs, RestoresLeaveOneWholeStateWhenTheHostIsKilledAtAnyPacket) {
  injectIntoRestores(Fault::kKillHost);
}

TEST_F(NotesJobs, RemoveTheTemporaryFilesOfAKilledPlugin) {
  for (const std::string job : {"backup", "restore"}) {
    SCOPED_TRACE(job);
    mustRun(job);
    inject(job, Fault::kKillPlugin, atPacket(tracedPackets() - 1));
    EXPECT_EQ(leftovers().size(), 1U);
    mustRun(job);
    EXPECT_EQ(leftovers(), std::vector<std::string>());
  }
}

TEST_F(NotesJobs, LeaveAnUnfinishedBackupForPruneWhenTheHostIsKilled) {
  inject("backup", Fault::kKillHost, atPacket(tracedPackets()));
  const Json::Value unfinished = listed()["unfinished"];
  ASSERT_EQ(unfinished.size(), 1U);
  const std::string folder = unfinished[0].asString();
  EXPECT_TRUE(fs::exists(folder + "/data/notes/notes.db"));

  const ProcessResult result = run({ARVL_HOST, "prune", "--store", store_});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "removed " + folder + "\n");
  EXPECT_EQ(temporaries(), std::vector<std::string>());
  EXPECT_EQ(listedBackups(), backups_);
}

// ---- Faults in the middle of a file. The minimal plug-in restores directly to the target.

class LargeFile : public Jobs {
 protected:
  LargeFile() {
    plugin_ = MINIMAL_PLUGIN;
    fs::create_directory(target_);
    fs::create_directory(documents_);
    writeBytes(documents_ / "large", content_);
    variables_ = {"MINIMAL_DIRS=" + documents_.string(), "MINIMAL_TARGET=" + target_.string()};
    mustRun("backup");
  }

  std::set<std::string> targetNames() const { return namesIn(target_ / "documents"); }

  const fs::path documents_ = temp_.path() / "documents";
  const fs::path target_ = temp_.path() / "target";
  const std::string content_ = std::string(2 << 20, 'x') + "the end";
};

TEST_F(LargeFile, IsRestoredByTheNextRestoreAfterTheHostIsKilled) {
  inject("restore", Fault::kKillHost, whileCopying());
  const std::vector<std::string> left = filesBelow(target_, isTemporary);
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(targetNames(), std::set<std::string>{fs::path(left[0]).filename()});
  EXPECT_GT(fs::file_size(left[0]), 0U);
  EXPECT_LT(fs::file_size(left[0]), content_.size());

  mustRun("restore");
  EXPECT_EQ(targetNames(), std::set<std::string>{"large"});
  EXPECT_EQ(bytesOf(target_ / "documents" / "large"), content_);
}

TEST_F(LargeFile, IsRemovedFromTheStoreWhenTheBackupIsInterrupted) {
  const std::vector<std::string> backups = listedBackups();
  inject("backup", Fault::kInterrupt, whileCopying());
  EXPECT_EQ(filesBelow(store_, isTemporary), std::vector<std::string>());
  EXPECT_EQ(listedBackups(), backups);
  expectSoundStore();
}

TEST_F(LargeFile, IsRemovedFromTheTargetWhenTheRestoreIsInterrupted) {
  inject("restore", Fault::kInterrupt, whileCopying());
  EXPECT_EQ(targetNames(), std::set<std::string>());
}

TEST_F(LargeFile, IsRemovedOrCompleteWhenThePluginIsKilled) {
  inject("restore", Fault::kKillPlugin, whileCopying());
  EXPECT_EQ(filesBelow(target_, isTemporary), std::vector<std::string>());
  if (!targetNames().empty()) {
    EXPECT_EQ(bytesOf(target_ / "documents" / "large"), content_);
  }
}

TEST_F(LargeFile, IsRemovedByTheNextBackupAfterTheHostIsKilled) {
  const std::vector<std::string> backups = listedBackups();
  inject("backup", Fault::kKillHost, whileCopying());
  EXPECT_EQ(filesBelow(store_, isTemporary).size(), 2U) << "of the backup, and of the file";
  EXPECT_EQ(listedBackups(), backups);
  expectSoundStore();
  mustRun("backup");
  EXPECT_EQ(filesBelow(store_, isTemporary), std::vector<std::string>());
  EXPECT_EQ(listedBackups().size(), 2U);
}

// Appends to a file after part of it has been copied.
class Appender : public Supervisor {
 public:
  explicit Appender(fs::path file) : file_(std::move(file)) {}

 private:
  void onWrite(const PendingWrite &write) override {
    if (isCopying_(write, 0)) {
      std::ofstream(file_, std::ios::app) << "more";
    }
  }
  bool mayExit(pid_t) override { return true; }

  const fs::path file_;
  const FaultInjector::IsMoment isCopying_ = whileCopying();
};

TEST_F(LargeFile, IsReportedWhenItIsWrittenDuringTheBackup) {
  const std::string file = documents_ / "large";
  Appender appender(file);
  const ProcessResult result = runSupervised(command("backup"), variables_, appender);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(
      holds(result.err, "warning: \"" + file +
                            "\" was written while it was copied: the copy may hold parts of "
                            "both\n"));
  const Json::Value changed =
      parseJson(bytesOf(listedBackups().back() + "/manifest.json"))["changed"];
  ASSERT_EQ(changed.size(), 1U);
  EXPECT_EQ(changed[0], file);
  expectSoundStore();
}

// ---- The order of syncs and renames, which a power loss relies on.

class StorageRecorder : public Supervisor {
 public:
  // Returns one line per call, with paths relative to the directory.
  std::string callsBelow(const std::string &folder) const {
    std::string text;
    for (const StorageCall &call : calls_) {
      text += call.name + " " + replacedAll(call.file, folder + "/", "") + "\n";
    }
    return text;
  }

  static std::string replacedAll(std::string text, const std::string &part, const std::string &by) {
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += by.size()) {
      text.replace(at, part.size(), by);
    }
    return text;
  }

 private:
  void onWrite(const PendingWrite &) override {}
  void onStorage(const StorageCall &call) override { calls_.push_back(call); }
  bool mayExit(pid_t) override { return true; }

  std::vector<StorageCall> calls_;
};

TEST_F(LargeFile, IsSyncedBeforeTheManifestAndTheManifestBeforeTheRename) {
  StorageRecorder recorder;
  ASSERT_EQ(runSupervised(command("backup"), variables_, recorder).status, 0);
  const std::string id = fs::path(listedBackups().back()).filename();
  EXPECT_EQ(StorageRecorder::replacedAll(recorder.callsBelow(store_ + "/minimal"), id, "ID"),
            "rename ID.partial/data/documents/documents/large\n"
            "syncfs ID.partial\n"
            "fsync ID.partial/" +
                temporaryName("SHA256SUMS") +
                "\n"
                "rename ID.partial/SHA256SUMS\n"
                "fsync ID.partial/" +
                temporaryName("manifest.json") +
                "\n"
                "rename ID.partial/manifest.json\n"
                "fsync ID.partial\n"
                "rename ID\n"
                "fsync " +
                store_ + "/minimal\n");
}

TEST_F(LargeFile, IsSyncedBeforeItIsRenamedInTheTarget) {
  StorageRecorder recorder;
  ASSERT_EQ(runSupervised(command("restore"), variables_, recorder).status, 0);
  EXPECT_EQ(recorder.callsBelow(target_),
            "fsync documents/" + temporaryName("large") + "\nrename documents/large\n");
}

// ---- A plug-in that does not read from its socket.

class HangingPlugin : public Jobs {
 protected:
  HangingPlugin() {
    plugin_ = UNRULY_PLUGIN;
    variables_ = {"UNRULY=hangs"};
    grace_ = "0.1";
  }
};

TEST_F(HangingPlugin, IsCanceledByASignalJustBeforeItsStep) {
  const ProcessResult result = inject("backup", Fault::kInterrupt, atLine("step summary\n"));
  EXPECT_TRUE(holds(result.err, "error: interrupted in the step summary\n"));
}

// ---- Child processes of a plug-in.

class ForkingPlugin : public Jobs {
 protected:
  ForkingPlugin() {
    plugin_ = temp_.makeDir("forking");
    writeBytes(plugin_ + "/export", "#!/bin/sh\nsleep 1000 &\nkill -KILL $$\n");
    chmod((plugin_ + "/export").c_str(), 0755);
  }
};

// The injector does nothing: the plug-in kills itself.
TEST_F(ForkingPlugin, HasItsChildrenKilledWhenItDies) {
  FaultInjector injector(Fault::kKillPlugin, trace_,
                         [](const PendingWrite &, int) { return false; });
  const ProcessResult result = runSupervised(command("backup"), variables_, injector);
  EXPECT_EQ(result.status, 5) << result.out << result.err;
  EXPECT_TRUE(holds(result.out + result.err, "the plug-in crashed: SIGKILL"));
  EXPECT_EQ(filesBelow(store_, isTemporary), std::vector<std::string>());
}

}  // namespace
}  // namespace arvl_test
