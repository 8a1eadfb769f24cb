// OOOUserInfo: what the directory says about one user for a status query,
// one record per match of the user's name in the "$Users" view.
//
// The three texts are LMBCS, each at most 512 bytes and NUL-terminated; a
// record is zero-filled before use, so an item the match lacks (or a match
// that could not be read) stays "". Plain data: copy it freely.
#ifndef TARNWICK_STATUS_OOOUSERINFO_H
#define TARNWICK_STATUS_OOOUSERINFO_H

struct OOOUserInfo {
  static constexpr unsigned kFieldSize = 513;

  char mailServer[kFieldSize];  // directory item "MailServer"
  char mailFile[kFieldSize];    // directory item "MailFile"
  char fullName[kFieldSize];    // directory item "FullName" (its first entry)
};

#endif  // TARNWICK_STATUS_OOOUSERINFO_H
