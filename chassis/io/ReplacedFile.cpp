#include "io/ReplacedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "base/InputError.h"
#include "io/FileIdentity.h"

namespace chassis {
namespace {

constexpr std::size_t nameMost = 200;  // of the name that a temporary file takes over
constexpr mode_t modeBits = 07777;
constexpr mode_t everybody = 0666;

std::array<char, PATH_MAX> unfinished{};  // for the signal handler; empty: nothing to take away

extern "C" void takeAway(int signal) {
  if (unfinished[0] != '\0') {
    unlink(unfinished.data());
  }
  std::signal(signal, SIG_DFL);
  static_cast<void>(std::raise(signal));
}

void setUnfinished(const std::string &path) {
  const bool fits = path.size() < unfinished.size();
  std::memcpy(unfinished.data(), path.c_str(), fits ? path.size() + 1 : 1);
  if (!fits) {
    unfinished[0] = '\0';
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
      action.sa_handler = path.empty() ? SIG_DFL : takeAway;
      sigaction(signal, &action, nullptr);
    }
  }
}

mode_t modeOfNew() {
  const mode_t mask = umask(0);
  umask(mask);
  return everybody & ~mask;
}

// As far as this is allowed: a file keeps its owner only where its owner or root writes it anew.
void takeOver(int file, const struct stat &old) {
  static_cast<void>(!fchown(file, old.st_uid, old.st_gid));
  fchmod(file, old.st_mode & modeBits);
}

// A pipe without a name is reached by the link that leads to it alone, as /dev/fd/63.
std::string targetOf(const std::string &path) {
  struct stat file {};
  const bool throughIt = stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode);
  return throughIt ? path : behindLinks(path);
}

}  // namespace

ReplacedFile::ReplacedFile(const std::string &path) : path_(path), target_(targetOf(path)) {
  if (path_.empty()) {
    refuse("its name is empty; write the name of a file");
  }
  struct stat old {};
  const bool exists = stat(target_.c_str(), &old) == 0;
  if (exists && (S_ISFIFO(old.st_mode) || S_ISCHR(old.st_mode))) {
    openThrough();
    return;
  }
  if (exists && !S_ISREG(old.st_mode)) {
    refuse("it is no file; a file, a FIFO or a character device is needed");
  }
  if (exists && access(target_.c_str(), W_OK) != 0) {
    refuse(std::strerror(errno));
  }
  openTemporary();
  if (exists) {
    takeOver(fileno(file_), old);
  } else {
    fchmod(fileno(file_), modeOfNew());
  }
}

ReplacedFile::~ReplacedFile() {
  giveUp();
}

void ReplacedFile::refuse(const std::string &why) const {
  throw InputError("'" + path_ + "' cannot be written: " + why);
}

void ReplacedFile::openThrough() {
  file_ = std::fopen(target_.c_str(), "wbe");
  if (file_ == nullptr) {
    refuse(std::strerror(errno));
  }
}

void ReplacedFile::openTemporary() {
  const std::filesystem::path target = target_;
  const std::string name = "." + target.filename().string().substr(0, nameMost) + ".XXXXXX";
  std::string pattern = (target.parent_path() / name).string();
  const int file = mkostemp(pattern.data(), O_CLOEXEC);
  if (file < 0) {
    refuse(std::string("no file can be put beside it: ") + std::strerror(errno));
  }
  temporary_ = pattern;
  setUnfinished(temporary_);
  file_ = fdopen(file, "wb");
}

void ReplacedFile::giveUp() {
  if (file_ != nullptr) {
    static_cast<void>(std::fclose(file_));
    file_ = nullptr;
  }
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
    setUnfinished("");
    temporary_.clear();
  }
}

void ReplacedFile::require(bool fine) const {
  if (!fine) {
    throw OutputLost("'" + path_ + "' is not whole: " + std::strerror(errno));
  }
}

void ReplacedFile::write(const void *bytes, std::size_t size) {
  require(std::fwrite(bytes, 1, size, file_) == size);
}

void ReplacedFile::finish() {
  const bool written = std::fflush(file_) == 0;
  const int why = errno;
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  errno = written ? errno : why;
  require(written && closed);
  if (!temporary_.empty()) {
    require(std::rename(temporary_.c_str(), target_.c_str()) == 0);
    setUnfinished("");
    temporary_.clear();
  }
}

}  // namespace chassis
