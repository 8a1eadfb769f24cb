// Runs the formula cases in testdata/: one test per file, one file per
// family of @functions or language feature.
//
// A file holds cases separated by a line "====". A case is:
//   field NAME = EXPRESSION     (any number; the item's value, evaluated first)
//   the formula (one or more lines)
//   ----
//   the expected result
//   field NAME = RENDERING      (any number; the item's value afterwards)
// Results are written as formula constants: "text" : "list", 1.5, [times]
// ([2026-01-02], [10:30:00], [2026-01-02 10:30:00], local time), (empty) for
// a list without elements, "error: <status text>" for an error value,
// "compile error: <status text> at LINE:COLUMN" and "stopped: <status text>".
// Lines starting with '#' are comments. Cases run with TZ=America/New_York.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "formula/evaluator.h"
#include "formula/time_support.h"
#include "globerr.h"
#include "osmisc.h"

namespace tarnwick::rt::formula {
namespace {

std::filesystem::path testdata_dir() {
  return std::filesystem::path(TARNWICK_SOURCE_ROOT) / "platform" / "src" / "formula" / "testdata";
}

std::string status_text(STATUS status) {
  char buffer[256];
  const WORD length = OSLoadString(NULLHANDLE, status, buffer, sizeof buffer);
  if (length == 0) return "status " + std::to_string(status);
  return std::string(buffer, length);
}

std::string quote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out.push_back('\\');
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out.push_back(c);
  }
  return out + "\"";
}

std::string render_time(const TIMEDATE& t) {
  LocalTime l;
  if (!to_local(t, l)) return "[invalid]";
  char buffer[64];
  if (!l.has_time) std::snprintf(buffer, sizeof buffer, "[%04d-%02d-%02d]", l.year, l.month, l.day);
  else if (!l.has_date) std::snprintf(buffer, sizeof buffer, "[%02d:%02d:%02d]", l.hour, l.minute, l.second);
  else
    std::snprintf(buffer, sizeof buffer, "[%04d-%02d-%02d %02d:%02d:%02d]", l.year, l.month, l.day, l.hour, l.minute,
                  l.second);
  return buffer;
}

std::string render(const Value& v) {
  if (v.kind == Kind::kError) return "error: " + status_text(v.error);
  if (v.kind == Kind::kUnavailable) return "@Unavailable";
  if (v.size() == 0) return "(empty)";
  std::string out;
  for (size_t i = 0; i < v.size(); ++i) {
    if (i > 0) out += " : ";
    switch (v.kind) {
      case Kind::kText: out += quote(v.texts[i]); break;
      case Kind::kKeyword: out += "[" + v.texts[i] + "]"; break;
      case Kind::kNumber: out += number_to_text(v.numbers[i]); break;
      case Kind::kTime: out += render_time(v.times[i]); break;
      default: break;
    }
  }
  return out;
}

struct Case {
  int line = 0;
  std::vector<std::pair<std::string, std::string>> fields_before;  // name, expression
  std::string formula;
  std::string expected;
  std::vector<std::pair<std::string, std::string>> fields_after;  // name, rendering
};

bool split_field(const std::string& line, std::pair<std::string, std::string>& out) {
  if (line.rfind("field ", 0) != 0) return false;
  const size_t eq = line.find(" = ");
  if (eq == std::string::npos) return false;
  out = {line.substr(6, eq - 6), line.substr(eq + 3)};
  return true;
}

std::vector<Case> read_cases(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<Case> cases;
  Case current;
  bool in_expected = false;
  bool any = false;
  std::string line;
  int number = 0;
  auto finish = [&] {
    if (any) cases.push_back(current);
    current = Case{};
    in_expected = false;
    any = false;
  };
  while (std::getline(in, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.rfind("#", 0) == 0) continue;
    if (line == "====") {
      finish();
      continue;
    }
    if (!any) current.line = number;
    if (line == "----") {
      in_expected = true;
      any = true;
      continue;
    }
    std::pair<std::string, std::string> field;
    if (!in_expected && current.formula.empty() && split_field(line, field)) {
      current.fields_before.push_back(field);
      any = true;
    } else if (in_expected && !current.expected.empty() && split_field(line, field)) {
      current.fields_after.push_back(field);
    } else if (in_expected) {
      if (!current.expected.empty()) current.expected += "\n";
      current.expected += line;
    } else if (!line.empty() || !current.formula.empty()) {
      if (!current.formula.empty()) current.formula += "\n";
      current.formula += line;
      any = true;
    }
  }
  finish();
  return cases;
}

// Compiles and runs a formula; the rendering of what came out.
std::string run_formula(const std::string& formula, FieldSource& fields) {
  CompileError error;
  auto program = parse_formula(formula, error);
  if (!program) {
    return "compile error: " + status_text(error.status) + " at " + std::to_string(error.line) + ":" +
           std::to_string(error.column);
  }
  Evaluator evaluator(fields);
  EvalResult result = evaluator.run(*program);
  if (result.status != NOERROR) return "stopped: " + status_text(result.status);
  return render(result.value);
}

class FormulaCases : public ::testing::TestWithParam<std::string> {
 protected:
  static void SetUpTestSuite() {
    setenv("TZ", "America/New_York", 1);
    tzset();
  }
};

TEST_P(FormulaCases, ProduceTheExpectedResults) {
  const auto file = testdata_dir() / GetParam();
  const auto cases = read_cases(file);
  ASSERT_FALSE(cases.empty()) << file;
  for (const auto& c : cases) {
    SCOPED_TRACE(GetParam() + ":" + std::to_string(c.line) + ": " + c.formula);
    MemoryFieldSource fields;
    for (const auto& [name, expression] : c.fields_before) {
      CompileError error;
      auto program = parse_formula(expression, error);
      ASSERT_TRUE(program) << "field expression " << expression;
      MemoryFieldSource none;
      Evaluator evaluator(none);
      fields.set(name, evaluator.run(*program).value);
    }
    EXPECT_EQ(run_formula(c.formula, fields), c.expected);
    for (const auto& [name, rendering] : c.fields_after) {
      Value value;
      ASSERT_TRUE(fields.get(name, value)) << "item " << name << " missing";
      EXPECT_EQ(render(value), rendering) << "item " << name;
    }
  }
}

std::vector<std::string> case_files() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(testdata_dir()))
    if (entry.path().extension() == ".txt") files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  return files;
}

INSTANTIATE_TEST_SUITE_P(Files, FormulaCases, ::testing::ValuesIn(case_files()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return std::filesystem::path(info.param).stem().string();
                         });

}  // namespace
}  // namespace tarnwick::rt::formula
