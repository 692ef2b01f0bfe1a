#include "io/FileIdentity.h"

#include <sys/stat.h>

#include <filesystem>

namespace chassis {
namespace {

namespace fs = std::filesystem;

constexpr int mostLinks = 40;  // as the kernel follows

std::optional<FileIdentity> identityFrom(const struct stat &file) {
  if (S_ISCHR(file.st_mode)) {
    return std::nullopt;
  }
  return FileIdentity{file.st_dev, file.st_ino, ""};
}

std::optional<FileIdentity> identityOfMissing(const fs::path &path) {
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  struct stat file {};
  if (!path.has_filename() || stat(folder.c_str(), &file) != 0) {
    return std::nullopt;
  }
  return FileIdentity{file.st_dev, file.st_ino, path.filename().string()};
}

}  // namespace

bool operator==(const FileIdentity &a, const FileIdentity &b) {
  return a.device == b.device && a.inode == b.inode && a.missing == b.missing;
}

std::string behindLinks(const std::string &path) {
  fs::path at = path;
  std::error_code failure;
  for (int links = 0; links < mostLinks && fs::is_symlink(at, failure); ++links) {
    const fs::path target = fs::read_symlink(at, failure);
    at = at.parent_path() / target;
  }
  return at.string();
}

std::optional<FileIdentity> identityOf(const std::string &path) {
  struct stat file {};
  if (stat(path.c_str(), &file) == 0) {
    return identityFrom(file);
  }
  return identityOfMissing(behindLinks(path));
}

std::optional<FileIdentity> identityOf(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 ? identityFrom(status) : std::nullopt;
}

}  // namespace chassis
