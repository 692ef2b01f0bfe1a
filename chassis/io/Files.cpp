#include "io/Files.h"

#include <unistd.h>

#include <algorithm>

#include "base/InputError.h"

namespace chassis {
namespace {

struct StandardStream {
  int file;
  const char *name;
  bool writes;
};
constexpr StandardStream standardStreams[] = {{STDIN_FILENO, "standard input", false},
                                              {STDOUT_FILENO, "standard output", true},
                                              {STDERR_FILENO, "standard error", true}};

}  // namespace

void Files::addStandardStreams() {
  for (const StandardStream &stream : standardStreams) {
    uses_[stream.name] = {stream.writes, "", identityOf(stream.file)};
  }
}

const std::pair<const std::string, Files::Use> *Files::inTheWay(
    const std::string &user, bool writes, const FileIdentity &identity) const {
  const auto found = std::find_if(uses_.begin(), uses_.end(), [&](const auto &entry) {
    const Use &use = entry.second;
    const bool same =
        use.identity == identity || (!use.path.empty() && identityOf(use.path) == identity);
    return entry.first != user && (writes || use.writes) && same;
  });
  return found == uses_.end() ? nullptr : &*found;
}

void Files::check(const std::string &user, const std::string &path, bool writes) const {
  const std::optional<FileIdentity> identity = identityOf(path);
  const auto *other = identity ? inTheWay(user, writes, *identity) : nullptr;
  if (other == nullptr) {
    return;
  }
  const std::string &name = other->second.path;
  const std::string called = name.empty() || name == path ? "" : " (as '" + name + "')";
  throw InputError("'" + path + "' is " + other->first + called + "; another " +
                   (writes ? "file" : "stream") + " is needed");
}

void Files::checkReading(const std::string &user, const std::string &path) const {
  check(user, path, false);
}

void Files::checkWriting(const std::string &user, const std::string &path) const {
  check(user, path, true);
}

void Files::read(const std::string &user, const std::string &path) {
  checkReading(user, path);
  uses_[user] = {false, path, identityOf(path)};
}

void Files::write(const std::string &user, const std::string &path) {
  checkWriting(user, path);
  uses_[user] = {true, path, identityOf(path)};
}

void Files::forget(const std::string &user) {
  uses_.erase(user);
}

std::unique_ptr<LiveOutput> Files::openOutput(const std::string &user, const std::string &path) {
  checkWriting(user, path);
  auto output = std::make_unique<LiveOutput>(
      path, [this, user](int file) { return otherUserOf(user, file); },
      [this](const Progress &progress) { return goesOn(progress); });
  write(user, path);
  return output;
}

std::string Files::otherUserOf(const std::string &user, int file) const {
  const std::optional<FileIdentity> identity = identityOf(file);
  const auto *other = identity ? inTheWay(user, true, *identity) : nullptr;
  return other == nullptr ? "" : other->first;
}

}  // namespace chassis
