// Names filled into error texts: every marker, the search resuming inside
// the inserted name, and the bound that ends a name that keeps refilling.
#include "status/NamePlaceholder.h"

#include <gtest/gtest.h>

namespace {

TEST(NamePlaceholder, FillsEveryMarkerAndResumesTwoCharactersOn) {
  EXPECT_EQ(withNameFilledIn("User %a not listed in Domino Directory", "Jane Doe/Acme"),
            "User Jane Doe/Acme not listed in Domino Directory");
  EXPECT_EQ(withNameFilledIn("'%a' on '%a'", "X"), "'X' on 'X'");
  EXPECT_EQ(withNameFilledIn("no marker", "X"), "no marker");
  // A name of fewer than two characters lets the search step over what
  // follows it: the second marker right behind an empty name stays.
  EXPECT_EQ(withNameFilledIn("%a%a!", ""), "%a!");
  // A "%a" at the start of the name or one character in is passed over.
  EXPECT_EQ(withNameFilledIn("[%a]", "%a1"), "[%a1]");
  EXPECT_EQ(withNameFilledIn("[%a]", "x%a"), "[x%a]");
}

TEST(NamePlaceholder, ANameThatKeepsRefillingStopsAtTheBound) {
  const std::string text = withNameFilledIn("User %a not listed", "xy%a");
  EXPECT_LE(text.size(), kMaxNamedErrorText);
  EXPECT_GT(text.size(), kMaxNamedErrorText - 8);
  EXPECT_EQ(text.rfind("User xyxy", 0), 0u);
  EXPECT_EQ(text.substr(text.size() - 11), " not listed");
}

}  // namespace
