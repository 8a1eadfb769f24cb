#include "pages/PageText.h"

#include <cstring>

#include "pages/AppLinks.h"

namespace {

constexpr const char* kProgramVersion = "Program Version 2.3.1 Build 2051";
constexpr const char* kFont = "<span style=\"font-family: arial,helvetica,sans-serif;\">";
constexpr const char* kPhoneFont = "<span style=\"font-size:40px;font-family: arial,helvetica,sans-serif;\">";
constexpr const char* kRule = "<br><br><HR>";
constexpr const char* kEnd = "</body></html>";

std::string databaseFile(const std::string& directory, const char* file) {
  return directory + "/OOO.nsf/" + file;
}

std::string iPhoneDownload(const char* font, const char* before) {
  return std::string(before) + font + "<A href=\"" + kIOSAppStoreLink + "\">Download iPhone Tarnwick App</A></span>";
}

std::string androidDownload(const std::string& directory, const char* font) {
  return std::string("<BR><BR>") + font + "<A href=\"" + databaseFile(directory, "OOO.apk") +
         "\">Download Android Tarnwick App Installer</A></span>";
}

std::string configureEntry(const std::string& configureLink, const char* font) {
  return std::string("<BR>") + font + "<A target=\"_blank\" href=\"" + configureLink +
         "\">Configure Tarnwick App</A></span>";
}

}  // namespace

std::string configureLinkStart(const std::string& loginName, const std::string& loginServer,
                               const std::string& serverURL) {
  return std::string(kConfigureLinkScheme) + loginName + kConfigureLinkServer +
         (serverURL.empty() ? loginServer : serverURL);
}

std::string webPageText(const std::string& directory, const std::string& configureLink) {
  std::string page = std::string("<html><head>") + kFont + "<title>Corvane Tarnwick</title><link href=\"" +
                     databaseFile(directory, "favicon.ico") +
                     "\" rel=\"SHORTCUT ICON\"><style type=\"text/css\"> h3 {font-size:20px;} body "
                     "{font-size:16px;}</style></span></head>";
  page += std::string("<body>") + kFont + "<H3><img src=\"" + databaseFile(directory, "oooicon.png") +
          "\"> Corvane Tarnwick</H3><H3>" + kProgramVersion + "</H3></span>";
  page += kRule;
  page += iPhoneDownload(kFont, "<BR>");
  page += androidDownload(directory, kFont);
  page += kRule;
  page += configureEntry(configureLink, kFont);
  page += kRule;
  page += kEnd;
  return page;
}

std::string phonePageText(const std::string& directory, const std::string& configureLink) {
  std::string page = "<html><span style=\"font-size:52px;\"><img style=\"wisth: 100px;height: 100px\" src=\"" +
                     databaseFile(directory, "oooicon.png") + "\">&nbsp<strong>" + kFont + "Corvane Tarnwick<br />" +
                     kProgramVersion + "</span></strong></span></p>";
  page += kRule;
  page += iPhoneDownload(kPhoneFont, "<BR><BR>");
  page += "<br><br>";
  page += androidDownload(directory, kPhoneFont);
  page += kRule;
  page += configureEntry(configureLink, kPhoneFont);
  page += kRule;
  page += kEnd;
  return page;
}

std::string installIOSPageText(const std::string& directory, const std::string& instructions) {
  std::string page =
      "<html><head><meta name = \"viewport\" content = \"width = device-width\"><title>Installation and Setup "
      "Instructions for iOS devices</title></head><body>";
  page += "<img src=\"" + databaseFile(directory, "oooicon.png") + "\">&nbsp<strong>" + kFont +
          "<span style=\"font-size:20px;\">Corvane Tarnwick</span><br /><span style=\"font-size:18px;\">" +
          kProgramVersion + "</span></span></strong></span></p><hr><br>";
  page += instructions;
  page += "<br><hr>";
  page += kEnd;
  return page;
}

std::string replaceConfigurePlaceholders(std::string text, const std::string& linkStart) {
  const std::string placeholder = kConfigureAppPlaceholder;
  // The search for the next placeholder goes on 19 characters behind the
  // start of the one replaced. A link that itself holds the placeholder (a
  // user name can) would then be replaced again without end, so the search
  // goes on behind such a link instead.
  constexpr size_t kResumeOffset = 19;
  const bool linkHoldsPlaceholder = linkStart.find(placeholder) != std::string::npos;
  for (size_t at = text.find(placeholder); at != std::string::npos;) {
    text.replace(at, placeholder.size(), linkStart);
    at = text.find(placeholder, at + (linkHoldsPlaceholder ? linkStart.size() : kResumeOffset));
  }
  return text;
}
