// The web page's files and the API description, built into the binary from
// gateway/web/ so that the page needs nothing from outside this machine.
#pragma once

namespace tarnwick::embedded {

extern const char* const kIndexHtml;
extern const char* const kAppJs;
extern const char* const kAppCss;
extern const char* const kOpenApi;

}  // namespace tarnwick::embedded
