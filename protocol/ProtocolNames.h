// The names a front end and the out-of-office task agree on: the request
// queue, the pool of reply queue names (its queue and how its names are
// formed), the limit of a request message and the markers that make a
// request file a page request. The task, tarnwick-admin and tarnwick-http
// all take them from here.
#pragma once

namespace tarnwick::protocol {

// The task's request queue: each message is the path of a request file.
inline constexpr const char* kRequestQueueName = "MQ$OutOfOffice";
// The pool of reply queue names the task fills at start-up; a front end
// borrows one name per request and puts it back afterwards.
inline constexpr const char* kServletListQueueName = "MQ$OOOServletList";
// Pool entries are "<kServletListQueueName>_<i>" for i in [0, kServletListSize).
inline constexpr const char* kServletListNameFormat = "%s_%d";
inline constexpr int kServletListSize = 50;
// The task reads at most this many bytes of a request message.
inline constexpr unsigned kMaxRequestMessage = 512;

// Markers in a request file's name that ask for one of the three pages
// instead of a plain request; the task looks for them in this order.
inline constexpr const char* kMarkerInstallIOS = "ND_REQUEST_INSTALL_IOS_OOO_";
inline constexpr const char* kMarkerMobile = "ND_REQUEST_MOBILE_OOO_";
inline constexpr const char* kMarkerWeb = "ND_REQUEST_OOO_";

// The Action values of the plain requests.
inline constexpr const char* kActionQuery = "1";
inline constexpr const char* kActionSet = "2";
inline constexpr const char* kActionStatus = "3";

// The folder below the data directory where front ends write request files.
inline constexpr const char* kSpoolFolder = "spool";

// The application database and the only files a front end serves from it.
inline constexpr const char* kApplicationDatabase = "OOO.nsf";
inline constexpr const char* kFileResourceNames[] = {"favicon.ico", "oooicon.png", "OOO.apk"};

}  // namespace tarnwick::protocol
