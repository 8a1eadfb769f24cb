#include "setup/AppParameters.h"

#include <strings.h>

#include <cstring>

#include "pages/AppLinks.h"

const char* const kDefaultInstallIOSText =
    "<span style=\"font-family: arial,helvetica,sans-serif;\"><span style=\"color:#0000ff;font-size: 18px;\">"
    "<strong>Installation and Setup Instructions for iOS devices</strong></span><br /><br />Step 1: Download the "
    "Tarnwick App to your iOS device directly from the Apple App Store by clicking the link below:<br /><br /><a "
    "href=\"%Download Tarnwick App%\">Download Tarnwick App</a><br /><br />Step 2: To launch and automatically "
    "configure the Tarnwick App, click the link below:<br /><br /><a href=\"%Configure Tarnwick App%\">Configure "
    "Tarnwick App</a><br /><br />Step 3: Type your Domino http password and click Connect.<br /><br />The Tarnwick "
    "App will connect to your mail server. If it is successful, your active OOO profile from your mail database will "
    "be loaded automatically.</span></p>";

namespace {

const char* switchValue(const std::string& value) { return !value.empty() && value[0] == '0' ? "0" : "1"; }

bool isPreference(const std::string& value) { return !value.empty() && !isNoPreference(value); }

}  // namespace

bool isNoPreference(const std::string& value) {
  if (value.empty()) return false;
  // strncasecmp stops at the shorter text's end: a value longer than the
  // no-preference text differs at its terminator.
  return ::strncasecmp(value.c_str(), kNoPreference, value.size()) == 0;
}

std::string replaceEach(std::string text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string appParameterString(const AppSettingValues& values) {
  std::string parameters = "&ssl=";
  parameters += switchValue(values.useSSL);
  parameters += "&connect=";
  parameters += switchValue(values.connectOnStartup);
  if (isPreference(values.language)) parameters += "&lang=" + values.language;
  parameters += "&dateformat=" + (values.dateformat.empty() ? std::string("Full") : values.dateformat);
  if (isPreference(values.authMethod)) parameters += "&method=" + values.authMethod;
  return replaceEach(parameters, "/", "%2F");
}

std::string installIOSWithLinks(const std::string& installText, const std::string& appParameters) {
  std::string text = replaceEach(installText, kDownloadAppPlaceholder, kIOSAppStoreLink);
  const size_t placeholderLength = std::strlen(kConfigureAppPlaceholder);
  for (size_t at = text.find(kConfigureAppPlaceholder); at != std::string::npos;
       at = text.find(kConfigureAppPlaceholder, at + placeholderLength + appParameters.size())) {
    text.insert(at + placeholderLength, appParameters);
  }
  return text;
}
