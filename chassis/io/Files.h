// The files of a chassis: who reads and who writes which of them, so that nobody writes what
// somebody else reads or writes.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "base/LongWork.h"
#include "io/FileIdentity.h"
#include "io/LiveOutput.h"

namespace chassis {

// Users are named in an operator's words: "the script", "the output of slot 0". Files are compared
// by what they are, not by name. What anybody may share, as /dev/null, is never in the way.
class Files {
 public:
  // The standard streams that are files or pipes. They are as the caller made them: they are not
  // checked against each other.
  void addStandardStreams();

  // Throw InputError that names the file and who uses it: a file to read that somebody writes, a
  // file to write that somebody reads or writes. The user's own entry is not in the way.
  void checkReading(const std::string &user, const std::string &path) const;
  void checkWriting(const std::string &user, const std::string &path) const;

  // The same, and from now on the file is the user's, in place of the one before.
  void read(const std::string &user, const std::string &path);
  void write(const std::string &user, const std::string &path);
  void forget(const std::string &user);

  // The same, with what writes it. Throws as write and LiveOutput do. The files outlive it.
  std::unique_ptr<LiveOutput> openOutput(const std::string &user, const std::string &path);

  // Who else uses a file that is open and about to be written; empty: nobody.
  std::string otherUserOf(const std::string &user, int file) const;

  // Whom long work on files asks; without one it goes on.
  void onLongWork(GoOn goOn) { goOn_ = std::move(goOn); }
  bool goesOn(const Progress &progress) const { return !goOn_ || goOn_(progress); }

 private:
  struct Use {
    bool writes = false;
    std::string path;                      // empty: of a standard stream
    std::optional<FileIdentity> identity;  // as the use began
  };

  // Somebody else's use of a file that a use of this kind would get in the way of.
  const std::pair<const std::string, Use> *inTheWay(const std::string &user, bool writes,
                                                    const FileIdentity &identity) const;
  void check(const std::string &user, const std::string &path, bool writes) const;

  std::map<std::string, Use> uses_;  // by user
  GoOn goOn_;
};

}  // namespace chassis
