// The links of the mobile app that the settings and the request pages share:
// where the iOS app is downloaded, the custom scheme that opens and
// configures an installed app, and the two placeholders an administrator
// writes into the iOS installation text of the server settings.
#ifndef TARNWICK_PAGES_APPLINKS_H
#define TARNWICK_PAGES_APPLINKS_H

// The store page of the Tarnwick iOS app. Every page offers it as the iPhone
// download, and it replaces the download placeholder of the installation
// text. It is fixed in the program rather than a setting because it belongs
// to the app's publisher, not to a server; change it here when the app's
// store listing moves.
inline constexpr const char* kIOSAppStoreLink = "https://apps.apple.com/app/corvane-tarnwick/id1480000051";

// The start of the link that opens the installed app and hands it the user
// and the server: the user name and server follow, then the app parameters
// of the server settings.
inline constexpr const char* kConfigureLinkScheme = "tarnwickapp://username=";
inline constexpr const char* kConfigureLinkServer = "&server=";

// Placeholders of the iOS installation text. The download placeholder
// becomes kIOSAppStoreLink when the settings are read; the settings append
// the app parameters behind the configure placeholder, and the installation
// page puts the start of the configure link in its place.
inline constexpr const char* kDownloadAppPlaceholder = "%Download Tarnwick App%";
inline constexpr const char* kConfigureAppPlaceholder = "%Configure Tarnwick App%";

#endif  // TARNWICK_PAGES_APPLINKS_H
