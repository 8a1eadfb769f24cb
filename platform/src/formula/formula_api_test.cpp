// The formula C API: compile errors and their places, the result buffer's
// layout, the evaluation flags, decompiling, limits, and bad handles.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "formula.h"
#include "globerr.h"
#include "nsfdata.h"
#include "osenv.h"
#include "osmem.h"
#include "testing/temp_data_directory.h"

namespace {

struct Compiled {
  FORMULAHANDLE handle = NULLHANDLE;
  WORD length = 0;
  STATUS status = NOERROR;
  STATUS detail = NOERROR;
  WORD line = 0, column = 0, offset = 0, error_length = 0;
};

Compiled compile(const std::string& text) {
  Compiled c;
  c.status = NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &c.handle, &c.length, &c.detail,
                               &c.line, &c.column, &c.offset, &c.error_length);
  return c;
}

struct Evaluated {
  STATUS status = NOERROR;
  std::string bytes;  // the whole result block, type word first
  BOOL matches = FALSE, should_delete = FALSE, modified = FALSE;
  WORD type() const { return bytes.size() >= 2 ? WORD(uint8_t(bytes[0]) | uint8_t(bytes[1]) << 8) : 0; }
  WORD word_at(size_t at) const { return WORD(uint8_t(bytes[at]) | uint8_t(bytes[at + 1]) << 8); }
};

Evaluated evaluate(const std::string& text) {
  Evaluated e;
  Compiled c = compile(text);
  EXPECT_EQ(c.status, NOERROR) << text;
  if (c.status != NOERROR) return e;
  HCOMPUTE compute = NULLHANDLE;
  EXPECT_EQ(NSFComputeStart(0, OSLockObject(c.handle), &compute), NOERROR);
  DHANDLE result = NULLHANDLE;
  WORD length = 0;
  e.status = NSFComputeEvaluate(compute, NULLHANDLE, &result, &length, &e.matches, &e.should_delete, &e.modified);
  if (result != NULLHANDLE) {
    e.bytes.assign(static_cast<const char*>(OSLockObject(result)), length);
    OSUnlockObject(result);
    EXPECT_EQ(OSMemFree(result), NOERROR);
  }
  EXPECT_EQ(NSFComputeStop(compute), NOERROR);
  OSUnlockObject(c.handle);
  EXPECT_EQ(OSMemFree(c.handle), NOERROR);
  return e;
}

TEST(FormulaCompile, SyntaxErrorsReportTheStatusAndPlace) {
  Compiled c = compile("x := 1;\r\ny := (x + 2;\nx");
  EXPECT_EQ(c.status, ERR_FORMULA_COMPILATION);
  EXPECT_EQ(c.handle, NULLHANDLE);
  EXPECT_EQ(c.detail, ERR_MISSING_RPAREN);
  EXPECT_EQ(c.line, 2);
  EXPECT_EQ(c.column, 12);
  EXPECT_EQ(c.offset, 20);
  EXPECT_EQ(c.error_length, 1);

  c = compile("@Left(\"abc\"; @Frobnicate(1))");
  EXPECT_EQ(c.detail, ERR_UNKNOWN_FUNCTION);
  EXPECT_EQ(c.offset, 13);
  EXPECT_EQ(c.error_length, 11);
}

TEST(FormulaCompile, CompiledFormulaDecompilesToItsText) {
  Compiled c = compile("Form = \"Memo\"");
  ASSERT_EQ(c.status, NOERROR);
  WORD size = 0;
  ASSERT_EQ(NSFFormulaGetSize(c.handle, &size), NOERROR);
  EXPECT_EQ(size, c.length);
  for (BOOL selection : {FALSE, TRUE}) {
    DHANDLE text = NULLHANDLE;
    WORD length = 0;
    ASSERT_EQ(NSFFormulaDecompile(static_cast<char*>(OSLockObject(c.handle)), selection, &text, &length), NOERROR);
    const std::string decompiled(static_cast<const char*>(OSLockObject(text)), length);
    EXPECT_EQ(decompiled, selection ? "SELECT Form = \"Memo\"" : "Form = \"Memo\"");
    OSUnlockObject(text);
    OSMemFree(text);
    OSUnlockObject(c.handle);
  }
  OSMemFree(c.handle);
}

TEST(FormulaEvaluate, TextResultsComeBackAsTextLists) {
  Evaluated e = evaluate("\"first\" : \"second\"");
  ASSERT_EQ(e.status, NOERROR);
  ASSERT_EQ(e.type(), TYPE_TEXT_LIST);
  ASSERT_EQ(e.word_at(2), 2);  // entries
  EXPECT_EQ(e.word_at(4), 5);
  EXPECT_EQ(e.word_at(6), 6);
  EXPECT_EQ(e.bytes.substr(8), "firstsecond");
  EXPECT_EQ(e.bytes.size(), 19u);  // the length counts the type word

  e = evaluate("@Text(@Date(2026; 1; 2))");
  ASSERT_EQ(e.type(), TYPE_TEXT_LIST);
  EXPECT_EQ(e.word_at(2), 1);
  EXPECT_EQ(e.bytes.substr(6), "01/02/2026");
}

TEST(FormulaEvaluate, NumbersAndTimesComeBackAsRanges) {
  Evaluated e = evaluate("1.5 : 2");
  ASSERT_EQ(e.type(), TYPE_NUMBER_RANGE);
  ASSERT_EQ(e.bytes.size(), 2u + 4u + 16u);
  EXPECT_EQ(e.word_at(2), 2);
  EXPECT_EQ(e.word_at(4), 0);  // no ranges
  double second;
  std::memcpy(&second, e.bytes.data() + 14, sizeof second);
  EXPECT_EQ(second, 2.0);

  e = evaluate("@Date(2026; 1; 2)");
  ASSERT_EQ(e.type(), TYPE_TIME_RANGE);
  ASSERT_EQ(e.bytes.size(), 2u + 4u + 8u);
  TIMEDATE date;
  std::memcpy(&date, e.bytes.data() + 6, sizeof date);
  EXPECT_EQ(date.Innards[0], 0xFFFFFFFFu);  // a date without time
  EXPECT_EQ(date.Innards[1], 2461043u);     // Julian day of 2026-01-02
}

TEST(FormulaEvaluate, ErrorsAndFlags) {
  Evaluated e = evaluate("@TextToNumber(\"x\")");
  ASSERT_EQ(e.status, NOERROR);
  ASSERT_EQ(e.type(), TYPE_ERROR);
  EXPECT_EQ(e.word_at(2), ERR_TONUMBER);

  e = evaluate("SELECT @Contains(\"abc\"; \"z\")");
  EXPECT_FALSE(e.matches);
  e = evaluate("SELECT @Contains(\"abc\"; \"b\")");
  EXPECT_TRUE(e.matches);
  EXPECT_FALSE(e.modified);

  e = evaluate("FIELD Status := \"x\"; @DeleteDocument");
  EXPECT_TRUE(e.modified);
  EXPECT_TRUE(e.should_delete);
}

TEST(FormulaEvaluate, RunawayAndOversizedWorkStopsWithAStatus) {
  // Each statement builds a list of 60,000 texts; forty of them exceed the budget.
  std::string runaway = "d := \"0\":\"1\":\"2\":\"3\":\"4\":\"5\":\"6\":\"7\":\"8\":\"9\"; "
                        "big := d *+ d *+ d *+ d; six := @Subset(d; 6);";
  for (int i = 0; i < 40; ++i) runaway += " x := big *+ six;";
  EXPECT_EQ(evaluate(runaway).status, ERR_COMPUTE_TIMEOUT);

  EXPECT_EQ(evaluate("d := \"0\":\"1\":\"2\":\"3\":\"4\":\"5\":\"6\":\"7\":\"8\":\"9\"; d *+ d *+ d *+ d *+ d").status,
            ERR_TOO_MANY_ELEMENTS);

  std::string doubling = "t := \"0123456789abcdef\";";
  for (int i = 0; i < 13; ++i) doubling += " t := t + t;";
  EXPECT_EQ(evaluate(doubling).status, ERR_STRING_TOO_LONG);

  // A result too large for the 16-bit result length.
  const std::string wide = "x := \"0123456789\"; x := x + x + x + x + x + x + x + x; y := x + x + x + x + x + x + x + "
                           "x; z := y + y + y + y + y + y + y + y; z : z : z : z : z : z : z : z : z : z : z : z : z";
  EXPECT_EQ(evaluate(wide).status, ERR_COMPUTE_LENGTH_WORD);
}

TEST(FormulaEvaluate, UserNameAndNameCompletionUseTheServersNameFromNotesIni) {
  tarnwick::testing::TempDataDirectory data("ServerName=CN=Srv1/O=Org\n");
  Evaluated e = evaluate("@UserName");
  ASSERT_EQ(e.type(), TYPE_TEXT_LIST);
  EXPECT_EQ(e.bytes.substr(6), "CN=Srv1/O=Org");
  // "Name/" is completed from the same name.
  e = evaluate("@Name([Canonicalize]; \"Mary Tsen/\")");
  ASSERT_EQ(e.type(), TYPE_TEXT_LIST);
  EXPECT_EQ(e.bytes.substr(6), "CN=Mary Tsen/O=Org");
}

TEST(FormulaCompile, DeepNestingIsACompileErrorNotACrash) {
  const std::string nested = std::string(5000, '(') + "1" + std::string(5000, ')');
  Compiled c = compile(nested);
  EXPECT_EQ(c.status, ERR_FORMULA_COMPILATION);
  EXPECT_EQ(c.detail, ERR_COMPUTE_STACK_OVERFLOW);

  std::string chain = "1";
  for (int i = 0; i < 3000; ++i) chain += " + 1";
  c = compile(chain);
  EXPECT_EQ(c.detail, ERR_COMPUTE_STACK_OVERFLOW);

  std::string calls;
  for (int i = 0; i < 3000; ++i) calls += "@Trim(";
  calls += "\"x\"" + std::string(3000, ')');
  EXPECT_EQ(compile(calls).detail, ERR_COMPUTE_STACK_OVERFLOW);
}

TEST(FormulaEvaluate, BadHandlesAndBuffersAreRefused) {
  HCOMPUTE compute = NULLHANDLE;
  char garbage[16] = "not a formula";
  EXPECT_EQ(NSFComputeStart(0, garbage, &compute), ERR_BAD_PARAM);
  EXPECT_EQ(compute, NULLHANDLE);
  EXPECT_EQ(NSFComputeStart(0, nullptr, &compute), ERR_BAD_PARAM);
  DHANDLE result = 77;
  EXPECT_EQ(NSFComputeEvaluate(123456, NULLHANDLE, &result, nullptr, nullptr, nullptr, nullptr), ERR_BAD_PARAM);
  EXPECT_EQ(result, NULLHANDLE);
  EXPECT_EQ(NSFComputeStop(123456), ERR_BAD_PARAM);
}

TEST(FormulaConcurrency, OneComputeHandleServesManyThreads) {
  Compiled c = compile("x := @Text(1 : 2 : 3); @Implode(x; \"-\")");
  ASSERT_EQ(c.status, NOERROR);
  HCOMPUTE compute = NULLHANDLE;
  ASSERT_EQ(NSFComputeStart(0, OSLockObject(c.handle), &compute), NOERROR);
  std::vector<std::thread> threads;
  std::vector<int> good(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        DHANDLE result = NULLHANDLE;
        WORD length = 0;
        if (NSFComputeEvaluate(compute, NULLHANDLE, &result, &length, nullptr, nullptr, nullptr) != NOERROR) continue;
        const std::string bytes(static_cast<const char*>(OSLockObject(result)), length);
        if (bytes.substr(6) == "1-2-3") ++good[t];
        OSUnlockObject(result);
        OSMemFree(result);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int count : good) EXPECT_EQ(count, 200);
  EXPECT_EQ(NSFComputeStop(compute), NOERROR);
  OSUnlockObject(c.handle);
  OSMemFree(c.handle);
}

}  // namespace
