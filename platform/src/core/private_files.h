// Folders and files that only the server's own user may reach.
//
// The modes are set explicitly after creation (0700 for folders, 0600 for
// files), so the process's umask can neither widen nor narrow them. A folder
// found already in place is used only when it is a real folder (not a link),
// belongs to this process's user and cannot be written by group or others:
// otherwise another local user could have made it first and would see, or
// feed, what the server keeps there.
//
// Thread-safe.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tarnwick::rt {

inline constexpr unsigned kPrivateFolderMode = 0700;
inline constexpr unsigned kPrivateFileMode = 0600;

// Makes `folder` private (its missing parents get the default modes), or
// checks the one in place. Returns "" when the folder is ready, else why it
// cannot be used.
std::string make_private_folder(const std::filesystem::path& folder);

// Why an existing folder must not be trusted, or "" when it may be.
std::string untrusted_folder_reason(const std::filesystem::path& folder);

// Opens (creating when `flags` has O_CREAT) a file with mode 0600; links
// are never followed. -1 with errno on failure.
int open_private_file(const std::filesystem::path& path, int flags);

// Replaces the file's content with `text` (created 0600 when missing).
bool write_private_file(const std::filesystem::path& path, std::string_view text);

}  // namespace tarnwick::rt
