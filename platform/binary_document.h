#pragma once

#include <memory>

#include "platform/binary_check.h"
#include "platform/value_node.h"

namespace roster {

/// A binary property list that stays as it was read: values are handed out as references into its bytes and decoded
/// when they are looked at. It lives as long as any of them.
///
/// Object numbers given to its operations must be ones it handed out, of the kind that the operation is for.
class Document final : public Node {
 public:
  /// Reads and checks the whole file and returns its top value, which may have a fault. Fails on a file that is not
  /// a binary property list at all, or whose frame is damaged.
  static Result<Value> read(Bytes file);

  std::uint32_t objectCount() const { return layout_.objectCount(); }
  Fault fault(std::uint32_t object) const {
    return checked_.faults.empty() ? Fault::none : checked_.faults[object];
  }

  std::string_view text(std::uint32_t object) const;
  std::span<const std::byte> bytes(std::uint32_t object) const;
  /// Elements of an array, entries of a dictionary.
  std::size_t count(std::uint32_t container) const;

  // A place whose object cannot be read answers nil.

  Value element(std::uint32_t array, std::size_t place) const;
  String key(std::uint32_t dictionary, std::size_t place) const;
  Value valueAt(std::uint32_t dictionary, std::size_t place) const;
  /// The value under a key; the last one, should the file repeat the key.
  Value find(std::uint32_t dictionary, std::string_view key) const;

 private:
  Document(Bytes file, const BinaryLayout& layout) : file_(std::move(file)), layout_(layout) {}

  Value value(std::uint64_t reference) const;
  Value integerValue(const ObjectHeader& header) const;
  Value realValue(const ObjectHeader& header) const;

  Bytes file_;
  BinaryLayout layout_;
  CheckedObjects checked_;
};

}  // namespace roster
