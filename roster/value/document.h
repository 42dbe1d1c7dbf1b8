#pragma once

#include <memory>

#include "roster/value/document_check.h"
#include "roster/value/representation.h"

namespace roster {

/// A binary property list that stays as it was read: values are handed out as references into its bytes and
/// decoded when they are looked at. It lives as long as any of them.
///
/// Object numbers given to its operations must be ones it handed out, of the kind that the operation is for.
class Document final : public Node {
 public:
  /// Reads and checks the whole file and returns its top value, which may be a container with a fault. Fails
  /// on a file that is not a binary property list at all, or whose frame or top value is damaged.
  static Result<Value> read(Bytes file);

  std::uint32_t objectCount() const { return layout_.objectCount(); }
  Fault fault(std::uint32_t object) const { return header(object).fault; }

  std::string_view text(std::uint32_t object) const {
    const ObjectHeader& text = header(object);
    if (text.type == ObjectClass::wideText) return checked_.wideTexts.at(object);
    return {reinterpret_cast<const char*>(file_.data() + text.contents), text.count};
  }
  std::span<const std::byte> bytes(std::uint32_t object) const;
  /// Elements of an array, entries of a dictionary; of entries with the same key only the last counts.
  std::size_t count(std::uint32_t container) const;

  // An object that cannot be read is nil.

  Value element(std::uint32_t array, std::size_t index) const;
  String key(std::uint32_t dictionary, std::size_t index) const;
  Value valueAt(std::uint32_t dictionary, std::size_t index) const;
  Value find(std::uint32_t dictionary, std::string_view key) const;

 private:
  friend class DocumentComparison;
  friend class Ref<const Document>;
  Document(Bytes file, const BinaryLayout& layout, CheckedObjects checked)
      : file_(std::move(file)), layout_(layout), checked_(std::move(checked)) {}

  const ObjectHeader& header(std::uint32_t object) const { return checked_.objects[object]; }
  const KeyIndex* keyIndex(std::uint32_t dictionary) const;
  /// The number of a key in the list of all keys, or `TextTable::none`.
  std::uint32_t numberOfKey(std::string_view key) const;
  /// The index of a key among the stored entries of a dictionary; nothing when it is not there.
  std::optional<std::uint32_t> indexOfKey(std::uint32_t dictionary, std::uint32_t key) const;
  /// The index among all stored entries of one of the entries that count.
  std::size_t storedIndex(std::uint32_t dictionary, std::size_t index) const;
  Value value(std::uint64_t reference) const;
  Value integerValue(const ObjectHeader& header) const;
  Value realValue(const ObjectHeader& header) const;

  const Bytes file_;
  const BinaryLayout layout_;
  const CheckedObjects checked_;
};

}  // namespace roster
