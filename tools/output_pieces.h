#pragma once

#include <cstddef>
#include <ostream>
#include <string>

namespace roster::tool {

/// Output that is put together in memory and goes to a stream in large pieces: a call of the stream costs
/// more than the few characters that most calls would bring. The memory does not grow with the output.
class OutputPieces {
 public:
  /// The stream is used until the end.
  explicit OutputPieces(std::ostream& stream) : stream_(stream) {}

  /// The piece that is being put together. What is appended to it is written behind everything before.
  std::string& piece() {
    if (piece_.size() >= pieceSize) flush();
    return piece_;
  }

  /// Hands over what there is. What was not flushed in the end is not written.
  void flush() {
    stream_.write(piece_.data(), static_cast<std::streamsize>(piece_.size()));
    piece_.clear();
  }

 private:
  static constexpr std::size_t pieceSize = std::size_t{64} * 1024;
  std::ostream& stream_;
  std::string piece_;
};

}  // namespace roster::tool
