#include "setup/AppParameters.h"

#include <gtest/gtest.h>

#include "pages/AppLinks.h"

namespace {

AppSettingValues defaults() { return {"1", "1", kNoPreference, kNoPreference, ""}; }

TEST(AppParameters, SwitchesAreOffOnlyForALeadingZero) {
  const std::pair<const char*, const char*> cases[] = {{"0", "0"},  {"00", "0"},    {"0x", "0"}, {"no", "1"},
                                                       {"false", "1"}, {"", "1"}, {"1", "1"},  {" 0", "1"}};
  for (const auto& [value, expected] : cases) {
    AppSettingValues ssl = defaults();
    ssl.useSSL = value;
    EXPECT_EQ(appParameterString(ssl), std::string("&ssl=") + expected + "&connect=1&dateformat=Full") << value;
    AppSettingValues connect = defaults();
    connect.connectOnStartup = value;
    EXPECT_EQ(appParameterString(connect), std::string("&ssl=1&connect=") + expected + "&dateformat=Full") << value;
  }
}

TEST(AppParameters, NoPreferenceMatchesAnyCaseAndAnyLeadingPart) {
  for (const char* none : {"-No preference-", "-NO PREFERENCE-", "-no pref", "-No", "-"}) {
    EXPECT_TRUE(isNoPreference(none)) << none;
    AppSettingValues values = defaults();
    values.language = none;
    values.authMethod = none;
    EXPECT_EQ(appParameterString(values), "&ssl=1&connect=1&dateformat=Full") << none;
  }
  for (const char* chosen : {"de", "-No preference-x", "No preference", ""}) EXPECT_FALSE(isNoPreference(chosen)) << chosen;

  AppSettingValues values = defaults();
  values.language = "de";
  values.authMethod = "form";
  values.dateformat = "yyyy-MM-dd";
  EXPECT_EQ(appParameterString(values), "&ssl=1&connect=1&lang=de&dateformat=yyyy-MM-dd&method=form");
  values.language = "";
  values.authMethod = "";
  EXPECT_EQ(appParameterString(values), "&ssl=1&connect=1&dateformat=yyyy-MM-dd");
}

TEST(AppParameters, EverySlashIsEncoded) {
  AppSettingValues values = defaults();
  values.dateformat = "dd/MM/yyyy";
  EXPECT_EQ(appParameterString(values), "&ssl=1&connect=1&dateformat=dd%2FMM%2Fyyyy");
  values.language = "de/at";
  values.authMethod = "//";
  EXPECT_EQ(appParameterString(values), "&ssl=1&connect=1&lang=de%2Fat&dateformat=dd%2FMM%2Fyyyy&method=%2F%2F");
}

TEST(AppParameters, InstallTextGetsTheStoreLinkAndTheParametersBehindEachConfigurePlaceholder) {
  const std::string parameters = "&ssl=0&connect=1&dateformat=Full";
  EXPECT_EQ(installIOSWithLinks("no placeholders", parameters), "no placeholders");
  EXPECT_EQ(installIOSWithLinks("<a href=\"%Download Tarnwick App%\">%Download Tarnwick App%</a>", parameters),
            std::string("<a href=\"") + kIOSAppStoreLink + "\">" + kIOSAppStoreLink + "</a>");
  EXPECT_EQ(installIOSWithLinks("A %Configure Tarnwick App% B\n%Configure Tarnwick App%", parameters),
            "A %Configure Tarnwick App%" + parameters + " B\n%Configure Tarnwick App%" + parameters);
  // Parameters that hold the placeholder themselves are not filled again.
  EXPECT_EQ(installIOSWithLinks("%Configure Tarnwick App%", "&lang=%Configure Tarnwick App%"),
            "%Configure Tarnwick App%&lang=%Configure Tarnwick App%");

  const std::string filled = installIOSWithLinks(kDefaultInstallIOSText, parameters);
  EXPECT_NE(filled.find(std::string("<a href=\"") + kIOSAppStoreLink + "\">Download Tarnwick App</a>"),
            std::string::npos);
  EXPECT_NE(filled.find("<a href=\"%Configure Tarnwick App%" + parameters + "\">Configure Tarnwick App</a>"),
            std::string::npos);
  EXPECT_EQ(filled.find("%Download"), std::string::npos);
}

}  // namespace
