// Directory lookups and group expansion on a directory of 100,000 persons
// and 5,000 groups. Targets: NAMELookup2 of one name, median under 100
// microseconds; expanding a group of 1,000 members nested 3 deep under
// 20 ms.
//
// The directory is built once per run in memory-backed storage (/dev/shm
// when there is one), so that building it is not dominated by disk syncs;
// the first lookup builds the view indexes and is not measured.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "dxlimport.h"
#include "global.h"
#include "globerr.h"
#include "lookup.h"
#include "mail.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"
#include "textlist.h"

namespace {

constexpr int kPersons = 100'000;
constexpr int kGroups = 5'000;

std::string person_name(int i) { return "CN=Person " + std::to_string(i) + "/O=Acme"; }

class DirectoryFixture {
 public:
  DirectoryFixture() {
    const std::filesystem::path base =
        std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
    dir_ = base / ("tarnwick-directory-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "ServerName=CN=Srv1/O=Acme\n";
    std::string argument = "=" + (dir_ / "notes.ini").string();
    char program[] = "bench";
    char* argv[] = {program, argument.data()};
    NotesInitExtended(2, argv);
    build();
  }
  ~DirectoryFixture() { remove(); }

  void remove() {
    NotesTerm();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

 private:
  void save(NOTEHANDLE note) {
    NSFNoteUpdate(note, 0);
    NSFNoteClose(note);
  }
  void text_list(NOTEHANDLE note, const char* item, const std::vector<std::string>& entries) {
    for (const auto& e : entries) NSFItemAppendTextList(note, item, e.data(), static_cast<WORD>(e.size()), TRUE);
  }
  // A view sorted on one column, imported as DXL like a template's design.
  void view(const char* name, const char* alias, const char* selection, const char* key) {
    const std::string dxl = std::string("<database><view name='") + name + "' alias='" + alias +
                            "'><code event='selection'><formula>" + xml_text(selection) +
                            "</formula></code><column itemname='Key' sort='ascending' "
                            "separatemultiplevalues='true'><code event='value'><formula>" +
                            xml_text(key) + "</formula></code></column></view></database>";
    struct Input {
      const std::string& text;
      size_t at = 0;
    } input{dxl};
    DXLIMPORTHANDLE importer = NULLHANDLE;
    DXLCreateImporter(&importer);
    WORD create = DXLIMPORTOPTION_CREATE;
    DXLSetImporterProperty(importer, iDesignImportOption, &create);
    const STATUS status = DXLImport(
        importer,
        [](BYTE* buffer, const DWORD length, void* action) -> DWORD {
          auto* in = static_cast<Input*>(action);
          const size_t count = std::min<size_t>(length, in->text.size() - in->at);
          std::memcpy(buffer, in->text.data() + in->at, count);
          in->at += count;
          return static_cast<DWORD>(count);
        },
        db_, &input);
    DXLDeleteImporter(importer);
    if (status != NOERROR) {
      std::fprintf(stderr, "cannot import the view %s (status %u)\n", name, static_cast<unsigned>(status));
      std::abort();
    }
  }
  static std::string xml_text(std::string_view text) {
    std::string out;
    for (char c : text) {
      if (c == '&') out += "&amp;";
      else if (c == '<') out += "&lt;";
      else if (c == '>') out += "&gt;";
      else out += c;
    }
    return out;
  }
  void group(const std::string& name, const std::vector<std::string>& members) {
    NOTEHANDLE note = NULLHANDLE;
    NSFNoteCreate(db_, &note);
    NSFItemSetText(note, "Form", "Group", MAXWORD);
    NSFItemSetText(note, "ListName", name.c_str(), MAXWORD);
    text_list(note, "Members", members);
    save(note);
    ++groups_made_;
  }

  void build() {
    NSFDbCreate("names.nsf", DBCLASS_BY_EXTENSION, TRUE);
    NSFDbOpen("names.nsf", &db_);
    view("($Users)", "$Users", "SELECT Form = \"Person\" | Form = \"Group\"",
         "FullName : @Name([Abbreviate]; FullName) : ShortName : ListName");
    view("($Groups)", "Groups", "SELECT Form = \"Group\"", "ListName");
    for (int i = 0; i < kPersons; ++i) {
      NOTEHANDLE note = NULLHANDLE;
      NSFNoteCreate(db_, &note);
      NSFItemSetText(note, "Form", "Person", MAXWORD);
      const std::string full = person_name(i), short_name = "p" + std::to_string(i);
      NSFItemCreateTextList(note, "FullName", full.c_str(), MAXWORD);
      NSFItemSetText(note, "ShortName", short_name.c_str(), MAXWORD);
      NSFItemSetText(note, "MailServer", "CN=Srv1/O=Acme", MAXWORD);
      const std::string file = "mail\\p" + std::to_string(i) + ".nsf";
      NSFItemSetText(note, "MailFile", file.c_str(), MAXWORD);
      save(note);
    }
    // "Big": 10 groups of 10 groups of 10 persons (1,000 members, 3 deep).
    std::vector<std::string> mids;
    for (int m = 0; m < 10; ++m) {
      std::vector<std::string> leaves;
      for (int l = 0; l < 10; ++l) {
        std::vector<std::string> persons;
        for (int p = 0; p < 10; ++p) persons.push_back(person_name((m * 10 + l) * 10 + p));
        leaves.push_back("Leaf " + std::to_string(m) + "." + std::to_string(l));
        group(leaves.back(), persons);
      }
      mids.push_back("Mid " + std::to_string(m));
      group(mids.back(), leaves);
    }
    group("Big", mids);
    std::mt19937 random(7);
    std::uniform_int_distribution<int> pick(0, kPersons - 1);
    for (int g = 0; groups_made_ < kGroups; ++g) {
      std::vector<std::string> members;
      for (int p = 0; p < 20; ++p) members.push_back(person_name(pick(random)));
      group("Team " + std::to_string(g), members);
    }
    NSFDbClose(db_);
  }

  std::filesystem::path dir_;
  DBHANDLE db_ = NULLHANDLE;
  int groups_made_ = 0;
};

// The fixture is kept until the process ends; main removes its folder.
DirectoryFixture* g_fixture = nullptr;

DirectoryFixture& fixture() {
  static DirectoryFixture* instance = g_fixture = new DirectoryFixture;
  return *instance;
}

DHANDLE lookup(const std::string& name) {
  const std::string names = name + '\0';
  DHANDLE buffer = NULLHANDLE;
  NAMELookup2(nullptr, 0, 1, "$Users\0", 1, names.c_str(), 3, "MailServer\0MailFile\0FullName\0", &buffer);
  return buffer;
}

// Builds the indexes and lets the notes of the build age past the window
// that index refreshes read again, as in a directory written earlier.
void warm_up() {
  static const bool done = [] {
    fixture();
    OSMemFree(lookup(person_name(0)));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    OSMemFree(lookup(person_name(0)));
    return true;
  }();
  (void)done;
}

void BM_NameLookup2OneName(benchmark::State& state) {
  warm_up();
  std::mt19937 random(11);
  std::uniform_int_distribution<int> pick(0, kPersons - 1);
  for (auto _ : state) {
    const DHANDLE buffer = lookup(person_name(pick(random)));
    DWORD matches = 0;
    void* p = OSLockObject(buffer);
    NAMELocateNextName2(p, nullptr, &matches);
    if (matches != 1) state.SkipWithError("name not found");
    OSUnlockObject(buffer);
    OSMemFree(buffer);
  }
}
BENCHMARK(BM_NameLookup2OneName)->Unit(benchmark::kMicrosecond);

void BM_ExpandGroupOf1000NestedThreeDeep(benchmark::State& state) {
  warm_up();
  for (auto _ : state) {
    DHANDLE list = NULLHANDLE;
    void* locked = nullptr;
    WORD size = 0;
    ListAllocate(0, 0, TRUE, &list, &locked, &size);
    OSUnlockObject(list);
    ListAddEntry(list, TRUE, &size, 0, "Big", 3);
    DHANDLE output = NULLHANDLE;
    WORD output_size = 0;
    MailExpandNames(list, size, &output, &output_size, FALSE, NULLHANDLE);
    if (ListGetNumEntries(OSLockObject(output), TRUE) != 1000) state.SkipWithError("wrong member count");
    OSUnlockObject(output);
    OSMemFree(output);
  }
}
BENCHMARK(BM_ExpandGroupOf1000NestedThreeDeep)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  // The directory lives in memory: it must not outlive the run.
  if (g_fixture != nullptr) g_fixture->remove();
  return 0;
}
