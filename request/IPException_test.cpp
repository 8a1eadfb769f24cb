#include "request/IPException.h"

#include <gtest/gtest.h>

namespace {

TEST(IPException, TextIsFunctionColonMessageWithoutSpaces) {
  EXPECT_EQ(IPException("xmlParser", "Empty XML document").show(), "xmlParser:Empty XML document");
  EXPECT_EQ(IPException("xmlParser", "Unexpected Exception\n").show(), "xmlParser:Unexpected Exception\n");
  EXPECT_EQ(IPException().show(), "");
}

TEST(IPException, CopiesKeepTheTextAndCatchByConstReference) {
  std::string caught;
  try {
    IPException original("receiveElements", "The leaving date is invalid..");
    IPException copy(original);
    throw copy;
  } catch (const IPException& e) {
    caught = e.show();
  }
  EXPECT_EQ(caught, "receiveElements:The leaving date is invalid..");
}

}  // namespace
