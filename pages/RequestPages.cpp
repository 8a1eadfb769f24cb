// The page builders of the request context: each writes its page over the
// request file, where the front end reads it, and returns the text the frame
// sends to the reply queue ("OK", or why the file could not be made).
#include "pages/PageText.h"
#include "request/IPOOO.h"
#include "request/RequestFile.h"

// The page goes through the request file the frame opened and checked, so a
// path swapped since then changes nothing; the file is private (0600) once
// opened, and the page replaces its content in one write.
std::string& IPOOO::writeRequestPage(const std::string& path, const std::string& page) {
  errorText = "OK";
  RequestFile& file = openRequestFile(path);
  // The front end reads the page once the reply comes; a file that cannot
  // take it is reported, whatever part of it was written.
  if (!file.writable() || !file.replace(page)) {
    file.empty();  // a page that could not be written leaves no part of it behind
    errorText = "Fail Open xml file (" + path + ")";
  }
  return errorText;
}

std::string& IPOOO::getRequestOOO(std::string& path, char* directory, std::string& /*reservedText*/,
                                  std::string& serverURL, std::string& connectParams) {
  const std::string link = configureLinkStart(LoginName, LoginServer, serverURL) + connectParams;
  return writeRequestPage(path, webPageText(directory, link));
}

std::string& IPOOO::getRequestMobileOOO(std::string& path, char* directory, std::string& /*reservedText*/,
                                        std::string& serverURL, std::string& connectParams) {
  const std::string link = configureLinkStart(LoginName, LoginServer, serverURL) + connectParams;
  return writeRequestPage(path, phonePageText(directory, link));
}

std::string& IPOOO::getRequestMobileInstallIOS(std::string& path, char* directory, std::string& /*reservedText*/,
                                               std::string& serverURL, std::string& installIOSText) {
  // The instructions carry the app parameters behind each placeholder
  // already; the link start goes in its place.
  const std::string linkStart = configureLinkStart(LoginName, LoginServer, serverURL);
  return writeRequestPage(path, installIOSPageText(directory, replaceConfigurePlaceholders(installIOSText, linkStart)));
}
