// The command "notes".

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>

#include "app/arguments.h"
#include "app/sample.h"
#include "app/store.h"

namespace fs = std::filesystem;

namespace notes {
namespace {

constexpr const char *kUsage =
    "usage: notes [--dir DIR] COMMAND        (without --dir: NOTES_DIR)\n"
    "\n"
    "  init                                  make an empty directory of notes\n"
    "  add TITLE [BODY]                      add a note and print its number\n"
    "      [--notebook NAME] [--attach FILE]...\n"
    "                                        without BODY, or with -: from standard input\n"
    "  edit ID [BODY]                        replace a note's text\n"
    "  list [--notebook NAME]                number, notebook and title of each note\n"
    "  search WORD...                        the notes that hold all of the words\n"
    "  show ID                               one note, with its attachments\n"
    "  count                                 how many notes, notebooks and attachments\n"
    "  dump                                  everything, one JSON line a note\n"
    "  check                                 look for damage; exit code 1 if there is any\n"
    "  clean                                 remove what a crash may have left\n"
    "  upgrade                               bring an older directory up to this release\n"
    "  fill --notes N --attachments M        add made-up notes, all at once\n"
    "  write [--count N] [--pause MS]        add made-up notes, one by one, and print their\n"
    "                                        numbers; endless without --count\n";

std::string readAll(std::istream &in) {
  return {std::istreambuf_iterator<char>(in), {}};
}

// Returns the words from this one on, or standard input.
std::string bodyFrom(const Arguments &arguments, std::size_t word) {
  const bool given = arguments.words().size() > word && arguments.words()[word] != "-";
  return given ? arguments.words()[word] : readAll(std::cin);
}

std::int64_t idFrom(const Arguments &arguments) {
  return Arguments::parseNumber(arguments.words()[1]);
}

void printLines(const std::vector<std::string> &lines) {
  for (const std::string &line : lines) {
    std::cout << line << '\n';
  }
}

void printHeads(const std::vector<Note> &notes) {
  for (const Note &note : notes) {
    std::cout << note.id << '\t' << note.notebook << '\t' << note.title << '\n';
  }
}

int init(const DataDir &dir, const Arguments &) {
  Store::init(dir);
  return EXIT_SUCCESS;
}

int add(const DataDir &dir, const Arguments &arguments) {
  NewNote note;
  note.notebook = arguments.last("--notebook", "home");
  note.title = arguments.words()[1];
  note.body = bodyFrom(arguments, 2);
  Store store(dir);
  for (const fs::path path : arguments.all("--attach")) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
      throwErrno(path);
    }
    note.attachments.push_back(store.keep(path.filename(), file));
  }
  std::cout << store.add(note) << '\n';
  return EXIT_SUCCESS;
}

int edit(const DataDir &dir, const Arguments &arguments) {
  const std::int64_t id = idFrom(arguments);
  const std::string body = bodyFrom(arguments, 2);
  Store(dir).edit(id, body);
  return EXIT_SUCCESS;
}

int list(const DataDir &dir, const Arguments &arguments) {
  printHeads(Store(dir).list(arguments.last("--notebook", "")));
  return EXIT_SUCCESS;
}

int search(const DataDir &dir, const Arguments &arguments) {
  std::string words;
  for (std::size_t i = 1; i < arguments.words().size(); ++i) {
    words += arguments.words()[i] + ' ';
  }
  printHeads(Store(dir).search(words));
  return EXIT_SUCCESS;
}

int show(const DataDir &dir, const Arguments &arguments) {
  const std::int64_t id = idFrom(arguments);
  Store store(dir);
  const Note note = store.note(id);
  std::cout << note.title << "\nnotebook: " << note.notebook << "\ncreated: " << note.created
            << "\nupdated: " << note.updated << '\n';
  for (const Attachment &attachment : store.attachmentsOf(note.id)) {
    std::cout << "attachment: " << attachment.name << ", " << attachment.size << " bytes, "
              << attachment.sha256 << '\n';
  }
  std::cout << '\n' << note.body << '\n';
  return EXIT_SUCCESS;
}

int count(const DataDir &dir, const Arguments &) {
  const Counts counts = Store(dir).count();
  std::cout << "notes " << counts.notes << "\nnotebooks " << counts.notebooks << "\nattachments "
            << counts.attachments << '\n';
  return EXIT_SUCCESS;
}

int dump(const DataDir &dir, const Arguments &) {
  printLines(Store(dir).dump());
  return EXIT_SUCCESS;
}

int check(const DataDir &dir, const Arguments &) {
  const std::vector<std::string> faults = Store(dir).check();
  printLines(faults);
  if (!faults.empty()) {
    return EXIT_FAILURE;
  }
  std::cout << "ok\n";
  return EXIT_SUCCESS;
}

int clean(const DataDir &dir, const Arguments &) {
  std::cout << "removed " << Store::clean(dir) << '\n';
  return EXIT_SUCCESS;
}

int upgrade(const DataDir &dir, const Arguments &) {
  Store::upgrade(dir);
  return EXIT_SUCCESS;
}

NewNote sampleNote(std::int64_t number) {
  return {sampleNotebook(number), sampleTitle(number), sampleBody(number), {}};
}

void attachSample(Store &store, NewNote &note, std::int64_t number) {
  std::istringstream content(sampleAttachment(number));
  note.attachments.push_back(store.keep("sample-" + std::to_string(number) + ".bin", content));
}

int fill(const DataDir &dir, const Arguments &arguments) {
  const std::int64_t notes = arguments.number("--notes", 100);
  const std::int64_t attachments = arguments.number("--attachments", 10);
  if (notes == 0 && attachments > 0) {
    throw UsageError("attachments need a note");
  }
  Store store(dir);
  std::vector<NewNote> made;
  for (std::int64_t i = 0; i < notes; ++i) {
    made.push_back(sampleNote(i + 1));
  }
  for (std::int64_t i = 0; i < attachments; ++i) {
    attachSample(store, made[static_cast<std::size_t>(i % notes)], i + 1);
  }
  store.addAll(made);
  return EXIT_SUCCESS;
}

// Opens the store for this note alone, as a command of its own would: between two notes, an import
// may replace the data.
std::int64_t writeSample(const DataDir &dir, std::int64_t number) {
  constexpr std::int64_t kNotesPerAttachment = 10;
  Store store(dir);
  NewNote note = sampleNote(number);
  if (number % kNotesPerAttachment == 0) {
    attachSample(store, note, number);
  }
  return store.add(note);
}

int write(const DataDir &dir, const Arguments &arguments) {
  const bool endless = arguments.all("--count").empty();
  const std::int64_t notes = arguments.number("--count", 0);
  const std::chrono::milliseconds pause(arguments.number("--pause", 0));
  for (std::int64_t i = 1; endless || i <= notes; ++i) {
    std::cout << writeSample(dir, i) << std::endl;
    std::this_thread::sleep_for(pause);
  }
  return EXIT_SUCCESS;
}

struct Command {
  const char *name;
  std::size_t minWords;  // operands
  std::size_t maxWords;
  std::vector<std::string> options;
  std::function<int(const DataDir &, const Arguments &)> run;
};

const std::array<Command, 13> kCommands = {{
    {"init", 0, 0, {}, init},
    {"add", 1, 2, {"--notebook", "--attach"}, add},
    {"edit", 1, 2, {}, edit},
    {"list", 0, 0, {"--notebook"}, list},
    {"search", 1, 1000, {}, search},
    {"show", 1, 1, {}, show},
    {"count", 0, 0, {}, count},
    {"dump", 0, 0, {}, dump},
    {"check", 0, 0, {}, check},
    {"clean", 0, 0, {}, clean},
    {"upgrade", 0, 0, {}, upgrade},
    {"fill", 0, 0, {"--notes", "--attachments"}, fill},
    {"write", 0, 0, {"--count", "--pause"}, write},
}};

const Command &commandFor(const Arguments &arguments) {
  if (arguments.words().empty()) {
    throw UsageError("a command is missing");
  }
  for (const Command &command : kCommands) {
    if (command.name == arguments.words()[0]) {
      return command;
    }
  }
  throw UsageError("there is no command " + arguments.words()[0]);
}

void requireFitting(const Arguments &arguments, const Command &command) {
  const std::size_t operands = arguments.words().size() - 1;
  if (operands < command.minWords || operands > command.maxWords) {
    throw UsageError(std::string("too ") + (operands < command.minWords ? "few" : "many") +
                     " arguments for " + command.name);
  }
  for (const auto &[option, values] : arguments.options()) {
    if (option != "--dir" &&
        std::count(command.options.begin(), command.options.end(), option) == 0) {
      throw UsageError(std::string(command.name) + " does not know " + option);
    }
  }
}

DataDir dataDirFor(const Arguments &arguments) {
  const char *fromEnvironment = std::getenv("NOTES_DIR");
  const std::string path =
      arguments.last("--dir", fromEnvironment != nullptr ? fromEnvironment : "");
  if (path.empty()) {
    throw UsageError("neither --dir nor NOTES_DIR says where the notes are");
  }
  return DataDir(path);
}

int run(int argc, char **argv) {
  const Arguments arguments(argc, argv);
  const Command &command = commandFor(arguments);
  requireFitting(arguments, command);
  const DataDir dir = dataDirFor(arguments);
  dir.recover();
  const int code = command.run(dir, arguments);
  if (!std::cout.flush()) {
    throw std::runtime_error("writing the output failed");
  }
  return code;
}

}  // namespace
}  // namespace notes

int main(int argc, char **argv) {
  try {
    if (argc == 2 && std::string(argv[1]) == "--help") {
      std::cout << notes::kUsage;
      return EXIT_SUCCESS;
    }
    return notes::run(argc, argv);
  } catch (const notes::UsageError &error) {
    std::cerr << "notes: " << error.what() << "\n\n" << notes::kUsage;
    return 2;
  } catch (const std::exception &error) {
    std::cerr << "notes: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
