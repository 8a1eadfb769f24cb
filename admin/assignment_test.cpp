#include "assignment.h"

#include <gtest/gtest.h>

#include "failure.h"

namespace tarnwick::admin {
namespace {

TEST(Assignment, SplitsAtTheFirstEqualsSign) {
  Assignment a = parse_assignment("Subject=a=b", ValueType::text);
  EXPECT_EQ(a.item, "Subject");
  EXPECT_EQ(std::get<std::string>(a.value), "a=b");
  a = parse_assignment("Empty=", ValueType::text);
  EXPECT_EQ(std::get<std::string>(a.value), "");
  EXPECT_THROW(parse_assignment("NoValue", ValueType::text), UsageError);
  EXPECT_THROW(parse_assignment("=x", ValueType::text), UsageError);
}

TEST(Assignment, ReadsEachValueType) {
  EXPECT_EQ(std::get<std::vector<std::string>>(parse_assignment("L=a,,b", ValueType::textlist).value),
            (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(std::get<std::vector<std::string>>(parse_assignment("L=", ValueType::textlist).value),
            (std::vector<std::string>{""}));
  EXPECT_DOUBLE_EQ(std::get<double>(parse_assignment("N=-2.5e1", ValueType::number).value), -25.0);
  for (const char* bad : {"N=", "N=1x", "N=nan", "N=1e999"}) {
    EXPECT_THROW(parse_assignment(bad, ValueType::number), UsageError) << bad;
  }
  EXPECT_NO_THROW(parse_assignment("T=2026-03-02T09:30:00Z", ValueType::time));
  EXPECT_THROW(parse_assignment("T=tomorrow", ValueType::time), UsageError);
  EXPECT_THROW(parse_value_type("blob"), UsageError);
}

}  // namespace
}  // namespace tarnwick::admin
