// The text side of the per-server settings: the parameter string that the
// mobile app's configure link carries, and the iOS installation text with its
// download and configure placeholders filled. No platform calls here; the
// settings document is read in ServerSettings.cpp.
#ifndef TARNWICK_SETUP_APPPARAMETERS_H
#define TARNWICK_SETUP_APPPARAMETERS_H

#include <string>

// The setting values that make the app parameters, each as stored (empty
// when the item is missing or empty).
struct AppSettingValues {
  std::string useSSL;
  std::string connectOnStartup;
  std::string language;
  std::string authMethod;
  std::string dateformat;
};

// The settings form's value for "no preference" of language and
// authentication method.
inline constexpr const char* kNoPreference = "-No preference-";

// The iOS installation text a settings document gets when it has none.
extern const char* const kDefaultInstallIOSText;

// Whether a stored value counts as "-No preference-": compared without case
// over the stored value's own length, so a leading part of it ("-no pref")
// counts too. An empty value does not.
bool isNoPreference(const std::string& value);

// "&ssl=1&connect=1[&lang=L]&dateformat=F[&method=M]" with every "/" as
// "%2F". A switch is "0" only when its value begins with the character 0.
std::string appParameterString(const AppSettingValues& values);

// Every occurrence of from replaced by to, the search going on behind each
// inserted text.
std::string replaceEach(std::string text, const std::string& from, const std::string& to);

// The installation text as requests get it: the download placeholder
// replaced by the App Store link, and the app parameters appended behind
// every configure placeholder, which stays for the page to fill.
std::string installIOSWithLinks(const std::string& installText, const std::string& appParameters);

#endif  // TARNWICK_SETUP_APPPARAMETERS_H
