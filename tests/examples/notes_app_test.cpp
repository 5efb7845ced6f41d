#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "examples/notes_support.h"

namespace fs = std::filesystem;

namespace arvl_test {
namespace {

using Names = std::set<std::string>;

class NotesApp : public testing::Test {
 protected:
  TempDir temp_;
  const Notes notes_{temp_.path() / "notes"};
};

TEST_F(NotesApp, InitMakesAnEmptyPrivateDirectoryAndMayBeRepeated) {
  EXPECT_EQ(notes_.output({"init"}), "");
  EXPECT_EQ(notes_.output({"init"}), "");
  EXPECT_EQ(namesIn(notes_.dir()), (Names{"attachments", "notes.db"}));
  struct stat status = {};
  ASSERT_EQ(stat(notes_.dir().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  EXPECT_EQ(notes_.output({"count"}), "notes 0\nnotebooks 0\nattachments 0\n");
  EXPECT_EQ(notes_.check(), "ok\n");
}

TEST_F(NotesApp, InitRefusesADirectoryThatHoldsOtherFiles) {
  fs::create_directory(notes_.dir());
  writeBytes(notes_.dir() / "thesis.tex", "years of work");
  const ProgramOutcome outcome = notes_.run({"init"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.errors,
            "notes: " + (notes_.dir() / "thesis.tex").string() + " does not belong to notes\n");
  EXPECT_EQ(namesIn(notes_.dir()), Names{"thesis.tex"});
}

TEST_F(NotesApp, EveryOtherCommandNeedsADirectoryOfNotes) {
  const ProgramOutcome outcome = notes_.run({"list"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.errors,
            "notes: there are no notes in " + notes_.dir().string() + "; see notes init\n");
  EXPECT_FALSE(fs::exists(notes_.dir()));
}

TEST_F(NotesApp, AddedNotesAreListedByNotebook) {
  notes_.output({"init"});
  EXPECT_EQ(notes_.output({"add", "Milk", "two bottles"}), "1\n");
  EXPECT_EQ(notes_.output({"add", "--notebook", "work", "Plan", "-"}, "first\nsecond\n"), "2\n");
  EXPECT_EQ(notes_.output({"list"}), "1\thome\tMilk\n2\twork\tPlan\n");
  EXPECT_EQ(notes_.output({"list", "--notebook", "work"}), "2\twork\tPlan\n");
  EXPECT_EQ(notes_.output({"count"}), "notes 2\nnotebooks 2\nattachments 0\n");
}

TEST_F(NotesApp, ShowGivesTheBodyAndTheAttachmentsWithTheirChecksums) {
  notes_.output({"init"});
  writeBytes(temp_.path() / "letters.txt", "abc");
  writeBytes(temp_.path() / "copy.txt", "abc");
  notes_.output({"add", "Letters", "three", "--attach", temp_.path() / "letters.txt", "--attach",
                 temp_.path() / "copy.txt"});
  const std::string shown = notes_.output({"show", "1"});
  EXPECT_NE(shown.find("attachment: letters.txt, 3 bytes, " + std::string(kAbcSha256) + "\n"),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find("attachment: copy.txt, 3 bytes"), std::string::npos) << shown;
  EXPECT_NE(shown.find("\n\nthree\n"), std::string::npos) << shown;
  EXPECT_EQ(namesIn(notes_.attachments()), Names{kAbcSha256});
  EXPECT_EQ(bytesOf(notes_.attachments() / kAbcSha256), "abc");
}

TEST_F(NotesApp, ChecksumsHoldForEveryLengthAroundABlock) {
  notes_.output({"init"});
  const auto checksumOf = [&](const std::string &content) {
    writeBytes(temp_.path() / "content", content);
    notes_.output({"add", "x", "x", "--attach", temp_.path() / "content"});
    const std::string dump = notes_.dump();
    const std::size_t at = dump.rfind("\"sha256\":\"");
    return dump.substr(at + 10, 64);
  };
  EXPECT_EQ(checksumOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(checksumOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(checksumOf(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST_F(NotesApp, SearchFindsNotesThatHoldAllWordsAndTakesOperatorsAsWords) {
  notes_.output({"init"});
  notes_.output({"add", "Apples", "red and green"});
  notes_.output({"add", "Pears", "green"});
  EXPECT_EQ(notes_.output({"search", "green"}), "1\thome\tApples\n2\thome\tPears\n");
  EXPECT_EQ(notes_.output({"search", "green", "apples"}), "1\thome\tApples\n");
  EXPECT_EQ(notes_.output({"search", "green AND \"pears"}), "");
  EXPECT_EQ(notes_.output({"search", "\"*"}), "");
}

TEST_F(NotesApp, EditReplacesTheBodyAlsoForTheSearch) {
  notes_.output({"init"});
  notes_.output({"add", "Colour", "blue"});
  notes_.output({"edit", "1", "yellow"});
  EXPECT_EQ(notes_.output({"search", "blue"}), "");
  EXPECT_EQ(notes_.output({"search", "yellow"}), "1\thome\tColour\n");
  EXPECT_EQ(notes_.check(), "ok\n");
  EXPECT_EQ(notes_.run({"edit", "2", "x"}).errors, "notes: there is no note 2\n");
}

TEST_F(NotesApp, ANoteWhoseAttachmentCannotBeReadIsNotAdded) {
  notes_.output({"init"});
  const ProgramOutcome outcome =
      notes_.run({"add", "x", "x", "--attach", temp_.path() / "missing"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.errors,
            "notes: " + (temp_.path() / "missing").string() + ": No such file or directory\n");
  EXPECT_EQ(notes_.run({"add", "x", "x", "--attach", temp_.path()}).exitCode, 1);
  EXPECT_EQ(notes_.output({"count"}), "notes 0\nnotebooks 0\nattachments 0\n");
  EXPECT_EQ(namesIn(notes_.attachments()), Names{});
}

TEST_F(NotesApp, FillAddsAsManyAsAskedFor) {
  notes_.output({"init"});
  notes_.output({"fill", "--notes", "20", "--attachments", "30"});
  EXPECT_EQ(notes_.output({"count"}), "notes 20\nnotebooks 3\nattachments 30\n");
  EXPECT_EQ(notes_.check(), "ok\n");
}

TEST_F(NotesApp, TwoWritersAtOnceLoseNothing) {
  notes_.output({"init"});
  BackgroundProgram first(notes_.command({"write", "--count", "50"}));
  BackgroundProgram second(notes_.command({"write", "--count", "50"}));
  EXPECT_EQ(first.wait().exitCode, 0);
  EXPECT_EQ(second.wait().exitCode, 0);
  EXPECT_EQ(notes_.output({"count"}), "notes 100\nnotebooks 3\nattachments 10\n");
  EXPECT_EQ(notes_.check(), "ok\n");
}

TEST_F(NotesApp, AWriterKilledBeforeTheFileHasItsNameLeavesNoBrokenReference) {
  notes_.output({"init"});
  writeBytes(temp_.path() / "letters.txt", "abc");
  const ProgramOutcome outcome =
      notes_.run({"add", "x", "x", "--attach", temp_.path() / "letters.txt"}, "",
                 SystemCallFault::killAt(SYS_rename));
  EXPECT_EQ(outcome.signal, SIGSYS);
  EXPECT_EQ(notes_.output({"count"}), "notes 0\nnotebooks 0\nattachments 0\n");
  EXPECT_EQ(notes_.check(), "ok\n");
  EXPECT_EQ(notes_.output({"clean"}), "removed 1\n");
  EXPECT_EQ(namesIn(notes_.attachments()), Names{});
}

TEST_F(NotesApp, CleanKeepsReferencedAttachments) {
  notes_.output({"init"});
  notes_.output({"fill", "--notes", "2", "--attachments", "2"});
  const Names kept = namesIn(notes_.attachments());
  writeBytes(notes_.attachments() / kAbcSha256, "abc");
  EXPECT_EQ(notes_.output({"clean"}), "removed 1\n");
  EXPECT_EQ(namesIn(notes_.attachments()), kept);
}

TEST_F(NotesApp, CheckNamesEachDamagedItem) {
  notes_.output({"init"});
  writeBytes(temp_.path() / "letters.txt", "abc");
  notes_.output({"add", "x", "x", "--attach", temp_.path() / "letters.txt"});

  writeBytes(notes_.attachments() / kAbcSha256, "abd");
  EXPECT_EQ(notes_.check(), std::string("attachment ") + kAbcSha256 + " has another content\n");
  EXPECT_EQ(notes_.run({"check"}).exitCode, 1);
  writeBytes(notes_.attachments() / kAbcSha256, "ab");
  EXPECT_EQ(notes_.check(),
            std::string("attachment ") + kAbcSha256 + " has 2 bytes instead of 3\n");
  fs::remove(notes_.attachments() / kAbcSha256);
  EXPECT_EQ(notes_.check(), "attachment " + (notes_.attachments() / kAbcSha256).string() +
                                ": No such file or directory\n");
  notes_.tamper("DELETE FROM attachments; UPDATE notes SET notebook_id = 77");
  EXPECT_EQ(notes_.check(), "table notes, row 1: refers to a missing row of notebooks\n");
  notes_.tamper("UPDATE notes SET notebook_id = 1");
  EXPECT_EQ(notes_.check(), "ok\n");
  for (const char *damage :
       {"DELETE FROM notes_index_data WHERE id > 10", "DELETE FROM notes_index_data"}) {
    notes_.tamper(damage);
    EXPECT_EQ(notes_.check().rfind("full-text index: ", 0), 0U) << notes_.check();
  }
}

TEST_F(NotesApp, InvalidCommandLinesAreRefusedWithTheUsage) {
  const auto complaint = [&](const std::vector<std::string> &arguments) {
    const ProgramOutcome outcome = notes_.run(arguments);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_NE(outcome.errors.find("\n\nusage: notes "), std::string::npos);
    return outcome.errors.substr(0, outcome.errors.find('\n'));
  };
  EXPECT_EQ(complaint({}), "notes: a command is missing");
  EXPECT_EQ(complaint({"burn"}), "notes: there is no command burn");
  EXPECT_EQ(complaint({"show"}), "notes: too few arguments for show");
  EXPECT_EQ(complaint({"show", "1", "2"}), "notes: too many arguments for show");
  EXPECT_EQ(complaint({"show", "one"}), "notes: [one] is not a number");
  EXPECT_EQ(complaint({"list", "--colour", "red"}), "notes: list does not know --colour");
  EXPECT_EQ(complaint({"list", "--notebook"}), "notes: --notebook needs a value");
}

TEST_F(NotesApp, UpgradeBringsDataOfRelease10UpToDate) {
  notes_.make10(5, 7);
  const ProgramOutcome refused = notes_.run({"list"});
  EXPECT_EQ(refused.errors,
            "notes: " + notes_.dir().string() + " holds data version 1.0; see notes upgrade\n");
  EXPECT_EQ(namesIn(notes_.attachments()), (Names{"1", "2", "3", "4", "5", "6", "7"}));

  EXPECT_EQ(notes_.output({"upgrade"}), "");
  EXPECT_EQ(notes_.output({"upgrade"}), "");
  EXPECT_EQ(notes_.check(), "ok\n");
  EXPECT_EQ(notes_.output({"count"}), "notes 5\nnotebooks 3\nattachments 7\n");
  for (const std::string &name : namesIn(notes_.attachments())) {
    EXPECT_EQ(name.size(), 64U) << name;
  }
  const std::string shown = notes_.output({"show", "2"});
  EXPECT_NE(shown.find("created: 2020-09-13T12:26:42Z\nupdated: 2020-09-13T12:26:42Z\n"),
            std::string::npos)
      << shown;
}

TEST_F(NotesApp, AnUpgradeKilledAtAnyStageCanBeRepeated) {
  for (const long call : {SYS_link, SYS_fdatasync, SYS_unlink}) {
    fs::remove_all(notes_.dir());
    notes_.make10(3, 3);
    EXPECT_EQ(notes_.run({"upgrade"}, "", SystemCallFault::killAt(call)).signal, SIGSYS) << call;
    EXPECT_EQ(notes_.output({"upgrade"}), "") << call;
    EXPECT_EQ(notes_.check(), "ok\n") << call;
    notes_.output({"clean"});
    EXPECT_EQ(namesIn(notes_.attachments()).size(), 3U) << call;
  }
}

TEST_F(NotesApp, DataOfANewerReleaseIsLeftAlone) {
  notes_.output({"init"});
  notes_.tamper("PRAGMA user_version = 102");
  const std::string expected = "notes: " + notes_.dir().string() +
                               " holds data version 1.2, which this release does not know\n";
  EXPECT_EQ(notes_.run({"list"}).errors, expected);
  EXPECT_EQ(notes_.run({"upgrade"}).errors, expected);
  EXPECT_EQ(notes_.run({"init"}).errors, expected);
}

TEST_F(NotesApp, ADirectorySetAsideByAKilledReplacementComesBack) {
  notes_.output({"init"});
  notes_.output({"add", "Milk", "two bottles"});
  fs::rename(notes_.dir(), temp_.path() / ".notes.old");
  fs::create_directory(temp_.path() / ".notes.import");
  EXPECT_EQ(notes_.output({"list"}), "1\thome\tMilk\n");
  EXPECT_EQ(namesIn(temp_.path()), Names{"notes"});
}

}  // namespace
}  // namespace arvl_test
