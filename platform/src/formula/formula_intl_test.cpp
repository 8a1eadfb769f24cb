// @Text, @TextToTime and time-date constants follow the runtime's
// international settings from notes.ini, and see a change of them at once.
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "formula/evaluator.h"
#include "globerr.h"
#include "osenv.h"
#include "testing/temp_data_directory.h"

namespace tarnwick::rt::formula {
namespace {

// The formula's text result, elements joined by " | ".
std::string text_of(const std::string& formula) {
  CompileError error;
  auto program = parse_formula(formula, error);
  if (!program) return "compile error " + std::to_string(error.status);
  MemoryFieldSource fields;
  Evaluator evaluator(fields);
  const EvalResult result = evaluator.run(*program);
  if (result.status != NOERROR) return "stopped " + std::to_string(result.status);
  if (result.value.kind == Kind::kError) return "error " + std::to_string(result.value.error);
  std::string out;
  for (const auto& text : result.value.texts) out += (out.empty() ? "" : " | ") + text;
  return out;
}

class FormulaIntlSettings : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    setenv("TZ", "America/New_York", 1);
    tzset();
  }

  tarnwick::testing::TempDataDirectory data_{
      "DateOrder=DMY\nDateSeparator=.\nClockType=24_HOUR\nDecimalSymbol=,\nThousandsSeparator=.\n"
      "CurrencySymbol=EUR\nCurrencyPosition=SUFFIX\nCurrencySpace=1\nTodayString=Heute\n"};
};

TEST_F(FormulaIntlSettings, TimesAreReadAndWrittenInTheConfiguredForms) {
  // Day first, '.' between the parts, 24-hour clock.
  EXPECT_EQ(text_of("@Text([02.01.2026 14:05:09])"), "02.01.2026 14:05:09");
  EXPECT_EQ(text_of("@Text(@TextToTime(\"25.12.2026\"); \"D3\")"), "12.2026");
  EXPECT_EQ(text_of("@Text(@Month([02.01.2026]))"), "1");
  EXPECT_EQ(text_of("@Text(@Today; \"S3\")"), "Heute");
  // 25.12 is no month-first date any more.
  EXPECT_EQ(text_of("@TextToTime(\"12/25/2026\")"), "error " + std::to_string(ERR_TOTIME));
}

TEST_F(FormulaIntlSettings, NumbersUseTheConfiguredPunctuationAndCurrency) {
  EXPECT_EQ(text_of("@Text(1234567.5; \",F2\")"), "1.234.567,50");
  EXPECT_EQ(text_of("@Text(-800; \"C,\")"), "-800,00 EUR");
  EXPECT_EQ(text_of("@Text(1.5)"), "1,5");
}

TEST_F(FormulaIntlSettings, AChangedSettingIsSeenByTheNextEvaluation) {
  EXPECT_EQ(text_of("@Text([02.01.2026])"), "02.01.2026");
  OSSetEnvironmentVariable("DateOrder", "YMD");
  OSSetEnvironmentVariable("DateSeparator", "-");
  EXPECT_EQ(text_of("@Text([2026-01-02])"), "2026-01-02");
}

}  // namespace
}  // namespace tarnwick::rt::formula
