#include "pages/PageText.h"

#include <gtest/gtest.h>

namespace {

TEST(PageText, ConfigureLinkTakesTheServerURLBeforeTheLoginServer) {
  EXPECT_EQ(configureLinkStart("Jane Doe/Acme", "Mail1/Acme", ""), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme");
  EXPECT_EQ(configureLinkStart("Jane", "Mail1/Acme", "https://mail.acme.example"),
            "tarnwickapp://username=Jane&server=https://mail.acme.example");
  EXPECT_EQ(configureLinkStart("", "", ""), "tarnwickapp://username=&server=");
}

TEST(PageText, ConfigurePlaceholdersAreReplacedOnceEach) {
  const std::string link = "tarnwickapp://username=Jane&server=Mail1";
  EXPECT_EQ(replaceConfigurePlaceholders("plain text", link), "plain text");
  EXPECT_EQ(replaceConfigurePlaceholders("%Configure Tarnwick App%&ssl=1 and %Configure Tarnwick App%&ssl=1", link),
            link + "&ssl=1 and " + link + "&ssl=1");
  // Back to back, the second one starts inside the reach of the first.
  EXPECT_EQ(replaceConfigurePlaceholders("%Configure Tarnwick App%%Configure Tarnwick App%", link), link + link);
  // A user name holding the placeholder ends too.
  const std::string odd = "tarnwickapp://username=%Configure Tarnwick App%&server=Mail1";
  EXPECT_EQ(replaceConfigurePlaceholders("[%Configure Tarnwick App%]", odd), "[" + odd + "]");
}

TEST(PageText, LinksToDatabaseFilesHangBelowTheDirectory) {
  for (const std::string& page : {webPageText("", "x"), phonePageText("", "x"), installIOSPageText("", "x")}) {
    EXPECT_NE(page.find("src=\"/OOO.nsf/oooicon.png\""), std::string::npos) << page;
  }
  const std::string web = webPageText("ooo", "x");
  EXPECT_NE(web.find("href=\"ooo/OOO.nsf/favicon.ico\""), std::string::npos);
  EXPECT_NE(web.find("href=\"ooo/OOO.nsf/OOO.apk\""), std::string::npos);
  EXPECT_EQ(web.find("\"/OOO.nsf"), std::string::npos);
}

}  // namespace
