// The page builders of the request context: each writes its page over the
// request file, where the front end reads it, and returns the text the frame
// sends to the reply queue ("OK", or why the file could not be made).
#include <fcntl.h>
#include <unistd.h>

#include "pages/PageText.h"
#include "request/IPOOO.h"

namespace {

// The request file made anew, for the owner only.
int recreateFile(const std::string& path) {
  ::unlink(path.c_str());  // a file that is not there is fine
  return ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
}

}  // namespace

std::string& IPOOO::writeRequestPage(const std::string& path, const std::string& page) {
  errorText = "OK";
  const int file = recreateFile(path);
  if (file < 0) {
    errorText = "Fail Open xml file (" + path + ")";
    return errorText;
  }
  // The front end reads the page once the reply comes; a short write leaves
  // it a truncated page, which it shows as it is.
  [[maybe_unused]] const ssize_t written = ::write(file, page.data(), page.size());
  ::close(file);
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
