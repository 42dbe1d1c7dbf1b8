#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

namespace roster {

/// A block of bytes with one owner. It is not cleared when it is made, and `padding` readable zero bytes
/// follow its end, so that a decoder may load a whole machine word at its last byte.
class Bytes {
 public:
  static constexpr std::size_t padding = 8;  ///< How many zero bytes follow the end.

  Bytes() : Bytes(0) {}  ///< No bytes.
  /// So many bytes, to be written by the caller.
  explicit Bytes(std::size_t size)
      : storage_(std::make_unique_for_overwrite<std::byte[]>(size + padding)), size_(size) {
    std::memset(storage_.get() + size_, 0, padding);
  }
  /// A copy of the text.
  explicit Bytes(std::string_view text) : Bytes(text.size()) {
    if (!text.empty()) std::memcpy(storage_.get(), text.data(), text.size());
  }

  /// The bytes; they stay where they are when the block is moved.
  std::byte* data() { return storage_.get(); }
  /// The bytes; they stay where they are when the block is moved.
  const std::byte* data() const { return storage_.get(); }
  std::size_t size() const { return size_; }  ///< How many bytes there are, without the padding.
  bool empty() const { return size_ == 0; }   ///< Whether there are none.
  /// The bytes, without the padding.
  std::span<const std::byte> span() const { return {storage_.get(), size_}; }
  /// The bytes as text, whatever they are.
  std::string_view text() const { return {reinterpret_cast<const char*>(storage_.get()), size_}; }

  /// Gives up the bytes from `size` on, which must not be larger than what there is.
  void shrinkTo(std::size_t size) {
    size_ = size;
    std::memset(storage_.get() + size_, 0, padding);
  }

 private:
  std::unique_ptr<std::byte[]> storage_;
  std::size_t size_;
};

}  // namespace roster
