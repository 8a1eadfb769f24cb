// The text of the three request pages: the web page with the app download
// links and the configure link, the same page for a phone screen, and the
// iOS installation instructions page. Pure text; RequestPages.cpp writes the
// pages over the request files.
//
// Links to files of the application database are the directory, then
// "/OOO.nsf/" and the file's name: rooted at "/OOO.nsf/" for an empty
// directory, relative to the page otherwise. Values are put in as they
// stand, unescaped. The phone page has no head and no opening body tag, and
// both it and the installation page close a paragraph they never opened;
// the front ends are used to exactly this markup, so it is kept.
#ifndef TARNWICK_PAGES_PAGETEXT_H
#define TARNWICK_PAGES_PAGETEXT_H

#include <string>

// "tarnwickapp://username=" + loginName + "&server=" + the server URL, or
// loginServer when the URL is empty.
std::string configureLinkStart(const std::string& loginName, const std::string& loginServer,
                               const std::string& serverURL);

std::string webPageText(const std::string& directory, const std::string& configureLink);
std::string phonePageText(const std::string& directory, const std::string& configureLink);
// instructions: the installation text with its configure placeholders
// already replaced (replaceConfigurePlaceholders).
std::string installIOSPageText(const std::string& directory, const std::string& instructions);

// Every configure placeholder of text replaced by linkStart.
std::string replaceConfigurePlaceholders(std::string text, const std::string& linkStart);

#endif  // TARNWICK_PAGES_PAGETEXT_H
