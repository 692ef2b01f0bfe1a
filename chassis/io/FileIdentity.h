// What a file is, whatever it is called: the same by hard link, by symbolic link and by any path.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace chassis {

struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  std::string missing;  // not empty: a file of this name in the directory, which is not there yet
};

bool operator==(const FileIdentity &a, const FileIdentity &b);

// The path behind all symbolic links in the last place; it need not lead to anything.
std::string behindLinks(const std::string &path);

// None: there is no such file or directory, or anybody may share it, as a terminal or /dev/null.
std::optional<FileIdentity> identityOf(const std::string &path);
std::optional<FileIdentity> identityOf(int file);  // of an open one

}  // namespace chassis
