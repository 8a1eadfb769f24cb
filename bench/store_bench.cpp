// Store benchmarks: the request path's database work.
//
//   OpenProfileReadClose  open a mail database, open its out-of-office
//                         profile, read 20 items, close both (one request's
//                         reads); target >= 20,000/s on one core
//   NoteUpdate5Items      open a note, replace 5 items, NSFNoteUpdate (synced
//                         commit), close
//   Search10000           NSFSearch over 10,000 documents, with summaries
//   FindFormAmongDocuments/N  NIFFindDesignNote and NSFDbModifiedTime in a
//                         database holding N documents besides its form (a
//                         mail file whose calendar has grown): flat in N
//
// Each runs on a fresh data directory under $TMPDIR.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "nsfsearch.h"
#include "osenv.h"

namespace {

namespace fs = std::filesystem;

const char* const kItemNames[] = {
    "TaskType",       "TaskState",      "CurrentStatus",  "FirstDayOut",   "FirstDayBack",  "Subject",
    "Body",           "AppendSubjectDate", "DaysOut",     "BookBusyTime",  "ShowHours",     "UpdateSettings",
    "NotificationConfirmation", "AdminP_Counter", "AdminP_Status", "OwnerMailFile", "Form", "SaveOptions",
    "CalendarEntryUNID", "ExcludeInternet", "Extra1", "Extra2", "Extra3", "Extra4", "Extra5", "Extra6", "Extra7",
    "Extra8", "Extra9", "Extra10", "Extra11", "Extra12", "Extra13", "Extra14", "Extra15", "Extra16", "Extra17",
    "Extra18", "Extra19", "Extra20"};

// A data directory with a mail database whose profile has 40 items.
class Fixture {
 public:
  Fixture() {
    root_ = fs::temp_directory_path() / ("tarnwick-bench-" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_ / "data");
    std::ofstream(root_ / "notes.ini") << "Directory=data\nServerName=CN=Srv1/O=Org\n";
    {
      std::string argument = "=" + (root_ / "notes.ini").string();
      char program[] = "bench";
      char* argv[] = {program, argument.data()};
      NotesInitExtended(2, argv);
    }
    NSFDbCreate("mail\\user.nsf", 0, TRUE);
    DBHANDLE db = NULLHANDLE;
    NSFDbOpen("mail\\user.nsf", &db);
    NOTEHANDLE profile = NULLHANDLE;
    NSFProfileOpen(db, "OutOfOfficeProfile", 18, nullptr, 0, TRUE, &profile);
    for (const char* name : kItemNames) NSFItemSetText(profile, name, "some value of moderate length", MAXWORD);
    NSFProfileUpdate(profile, "OutOfOfficeProfile", 18, nullptr, 0);
    NSFNoteGetInfo(profile, _NOTE_ID, &profile_id_);
    NSFNoteClose(profile);
    NSFDbClose(db);
  }
  ~Fixture() { fs::remove_all(root_); }
  NOTEID profile_id() const { return profile_id_; }

 private:
  fs::path root_;
  NOTEID profile_id_ = 0;
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

void OpenProfileReadClose(benchmark::State& state) {
  fixture();
  char buffer[256];
  for (auto _ : state) {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen("mail\\user.nsf", &db) != NOERROR) state.SkipWithError("open failed");
    NOTEHANDLE profile = NULLHANDLE;
    if (NSFProfileOpen(db, "OutOfOfficeProfile", 18, nullptr, 0, TRUE, &profile) != NOERROR) {
      state.SkipWithError("profile open failed");
    }
    size_t total = 0;
    for (int i = 0; i < 20; ++i) total += NSFItemGetText(profile, kItemNames[i], buffer, sizeof buffer);
    benchmark::DoNotOptimize(total);
    NSFNoteClose(profile);
    NSFDbClose(db);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OpenProfileReadClose);

void NoteUpdate5Items(benchmark::State& state) {
  const NOTEID id = fixture().profile_id();
  DBHANDLE db = NULLHANDLE;
  NSFDbOpen("mail\\user.nsf", &db);
  int round = 0;
  for (auto _ : state) {
    NOTEHANDLE note = NULLHANDLE;
    NSFNoteOpen(db, id, 0, &note);
    const std::string value = "value " + std::to_string(++round);
    for (int i = 0; i < 5; ++i) NSFItemSetText(note, kItemNames[i], value.c_str(), MAXWORD);
    if (NSFNoteUpdate(note, 0) != NOERROR) state.SkipWithError("update failed");
    NSFNoteClose(note);
  }
  NSFDbClose(db);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(NoteUpdate5Items)->UseRealTime();

STATUS LNCALLBACK count_match(void* param, SEARCH_MATCH* match, ITEM_TABLE* summary) {
  SEARCH_MATCH copy;
  std::memcpy(&copy, match, sizeof copy);
  if ((copy.SERetFlags & SE_FMATCH) && summary != nullptr) ++*static_cast<long*>(param);
  return NOERROR;
}

void Search10000(benchmark::State& state) {
  fixture();
  static bool filled = false;
  DBHANDLE db = NULLHANDLE;
  if (!filled) {
    NSFDbCreate("search.nsf", 0, TRUE);
    NSFDbOpen("search.nsf", &db);
    for (int i = 0; i < 10000; ++i) {
      NOTEHANDLE note = NULLHANDLE;
      NSFNoteCreate(db, &note);
      NSFItemSetText(note, "Form", "Memo", 4);
      NSFItemSetText(note, "Subject", ("Subject " + std::to_string(i)).c_str(), MAXWORD);
      NSFItemSetTextSummary(note, "Body", "a body that is not in the summary", MAXWORD, FALSE);
      NSFNoteUpdate(note, UPDATE_NOCOMMIT);
      NSFNoteClose(note);
    }
    NSFDbClose(db);
    filled = true;
  }
  NSFDbOpen("search.nsf", &db);
  for (auto _ : state) {
    long matches = 0;
    NSFSearch(db, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_DOCUMENT, nullptr, count_match, &matches, nullptr);
    if (matches != 10000) state.SkipWithError("wrong number of matches");
  }
  NSFDbClose(db);
  state.SetItemsProcessed(state.iterations() * 10000);
}
BENCHMARK(Search10000)->Unit(benchmark::kMillisecond);

void FindFormAmongDocuments(benchmark::State& state) {
  fixture();
  const long documents = state.range(0);
  const std::string name = "designs" + std::to_string(documents) + ".nsf";
  DBHANDLE db = NULLHANDLE;
  NSFDbCreate(name.c_str(), 0, TRUE);
  NSFDbOpen(name.c_str(), &db);
  NOTEHANDLE form = NULLHANDLE;
  NSFNoteCreate(db, &form);
  WORD form_class = NOTE_CLASS_FORM;
  NSFNoteSetInfo(form, _NOTE_CLASS, &form_class);
  NSFItemSetText(form, "$TITLE", "Appointment", MAXWORD);
  NSFNoteUpdate(form, 0);
  NSFNoteClose(form);
  for (long i = 0; i < documents; ++i) {
    NOTEHANDLE note = NULLHANDLE;
    NSFNoteCreate(db, &note);
    NSFItemSetText(note, "Form", "Appointment", MAXWORD);
    NSFItemSetText(note, "Subject", ("Out of office " + std::to_string(i)).c_str(), MAXWORD);
    NSFNoteUpdate(note, UPDATE_NOCOMMIT);
    NSFNoteClose(note);
  }
  for (auto _ : state) {
    NOTEID id = 0;
    if (NIFFindDesignNote(db, "Appointment", NOTE_CLASS_FORM, &id) != NOERROR) state.SkipWithError("no form");
    TIMEDATE data{};
    TIMEDATE design{};
    if (NSFDbModifiedTime(db, &data, &design) != NOERROR) state.SkipWithError("no modified time");
    benchmark::DoNotOptimize(id);
  }
  NSFDbClose(db);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FindFormAmongDocuments)->Arg(0)->Arg(20000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
