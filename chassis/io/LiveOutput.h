// Writes a stream as it is played, without ever waiting for long: to a file, whose disk may stall,
// or to a FIFO or device, whose reader may come late, be slow, or go.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/LongWork.h"
#include "io/DiskWriter.h"
#include "io/Patience.h"

namespace chassis {

// Throws InputError that names the path: a directory, a socket or a block device, a file that must
// not be written, no folder to put it in.
void requireWritable(const std::string &path);

// What an output has lost in a sentence, with whose it is, how much was lost and why; empty:
// nothing is lost, so there is no reason.
std::string lossText(const std::string &path, const std::string &user, const std::string &lost,
                     const std::string &trouble);

class LiveOutput {
 public:
  static constexpr std::size_t heldBackMost = 4 << 20;  // bytes that wait for a reader
  static constexpr int patienceMs = 500;  // of real time, for a reader that takes nothing at all

  // Why a file that is open must not be written; empty: it may.
  using Objection = std::function<std::string(int file)>;

  // What becomes of a file that is there: it is emptied, or written on at its end.
  enum class Existing { Emptied, GoneOnWith };

  // The path is required to be writable. Nothing is created or emptied yet.
  LiveOutput(std::string path, Objection objection, GoOn goOn,
             Existing existing = Existing::Emptied);
  ~LiveOutput();  // what was not written is lost without a word; end tells
  LiveOutput(const LiveOutput &) = delete;
  LiveOutput &operator=(const LiveOutput &) = delete;

  // Whole units of `unit` bytes, which may differ from call to call. A file that was there is
  // emptied before the first of them. What finds no place is lost; a reader never gets a part of a
  // unit alone.
  void write(const std::uint8_t *bytes, std::size_t size, std::size_t unit);

  // Whether write waits, within its patience, for a reader that is slow, and for a disk as long as
  // it takes; at the start it does. Without, a file is written in a thread of its own from the next
  // write on, and to its end; it is only opened in the caller's.
  void setPatient(bool on) { patient_ = on; }

  // Nothing more will be written: lets go of what is held back. True: nothing is left to wait for.
  // Never waits; to be asked again and again before the end.
  bool letGo();
  // Writes what is held back, as far as a reader or a disk takes it, and closes.
  void end();

  const std::string &path() const { return path_; }
  std::uint64_t lostBytes() const { return lost_; }
  // What the first loss is due to; empty while nothing is lost.
  const std::string &trouble() const { return trouble_; }

 private:
  bool open();
  bool begin(int file);
  void drain();
  void awaitReader(std::size_t room);
  bool goesOn() const;
  bool isBeside();
  void writeBeside(const std::uint8_t *bytes, std::size_t size, std::size_t unit);
  void noteLoss(const DiskWriter::Loss &loss);
  void dropReader();
  void lose(std::size_t bytes, const std::string &why);
  void fail(const std::string &why);
  std::size_t waiting() const { return held_.size() - sent_; }
  void forgetRuns();
  std::size_t begun();

  // Units of one size, from a byte of all that was taken to where the next run begins.
  struct Run {
    std::uint64_t begin;
    std::size_t unit;
  };

  const std::string path_;
  const Objection objection_;
  const GoOn goOn_;
  const Existing existing_;
  int file_ = -1;
  bool failed_ = false;
  bool patient_ = true;
  bool stalled_ = false;  // the patience with the reader is used up
  Patience atEnd_{patienceMs};
  bool onDisk_ = false;
  bool ours_ = false;  // a file on a disk that was emptied
  std::uint64_t written_ = 0;
  std::deque<Run> runs_;  // the first is that of the next byte to write
  std::vector<std::uint8_t> held_;
  std::size_t sent_ = 0;  // of held_
  std::uint64_t lost_ = 0;
  std::string trouble_;
  std::unique_ptr<DiskWriter> disk_;  // once the file is written beside
};

}  // namespace chassis
