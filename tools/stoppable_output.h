#pragma once

#include <ostream>
#include <streambuf>
#include <string>

#include "tools/descriptors.h"

namespace roster::tool {

/// Takes the place of a stream's own buffer while it lives, and writes to a descriptor what the stream is
/// given. A reader that takes nothing cannot keep the program from ending: a request to end that comes while
/// the output waits for room, or has come before, makes it give up. As long as there is room everything is
/// written, whatever has been requested.
class StoppableOutput final : public std::streambuf {
 public:
  /// The stream and the signals are used until the end.
  StoppableOutput(std::ostream& stream, int fd, const StopSignals& stop);
  StoppableOutput(const StoppableOutput&) = delete;
  StoppableOutput& operator=(const StoppableOutput&) = delete;
  /// What has not been flushed is lost.
  ~StoppableOutput() override;

  /// Whether nobody wants what remains to be written: the reader has gone, or the program is to end while the
  /// reader takes nothing. The stream has failed then.
  bool isUnwanted() const { return isUnwanted_; }

 private:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* text, std::streamsize length) override;
  int sync() override;

  bool waitForRoom();

  std::ostream& stream_;
  std::streambuf* own_;
  int fd_;
  const StopSignals& stop_;
  std::string pending_;
  bool isUnwanted_ = false;
};

}  // namespace roster::tool
