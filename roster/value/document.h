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
  const ObjectHeader& header(std::uint32_t object) const { return checked_.objects[object]; }
  Fault fault(std::uint32_t object) const { return header(object).fault; }
  /// Where the contents of an object begin, as they are stored.
  const std::byte* contents(std::uint32_t object) const { return file_.data() + header(object).contents; }

  std::string_view text(std::uint32_t object) const {
    const ObjectHeader& text = header(object);
    if (text.type == ObjectClass::wideText) return checked_.wideTexts.of(object);
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
  /// The value of any object.
  Value value(std::uint64_t number) const;

  // The parts of a container by their numbers, which may be out of range where it has a fault. The walks end
  // when the call returns false.

  /// The elements of an array; of a dictionary the keys of all entries that count, and then their values.
  template <class Call>
  void forEachPart(std::uint32_t container, const Call& call) const {
    const ObjectHeader& stored = header(container);
    const KeyIndex* keys = keyIndex(container);
    const std::uint64_t parts = keys ? 2 * keys->indexes.size() : stored.references();
    for (std::uint64_t part = 0; part < parts; ++part) {
      if (!call(layout_.reference(stored, keys ? storedPart(*keys, stored, part) : part))) return;
    }
  }
  /// The entries of a dictionary that count, each as the numbers of its key and its value.
  template <class Call>
  void forEachEntry(std::uint32_t dictionary, const Call& call) const {
    const ObjectHeader& stored = header(dictionary);
    const KeyIndex* keys = keyIndex(dictionary);
    const std::size_t entries = keys ? keys->indexes.size() : stored.count;
    for (std::size_t entry = 0; entry < entries; ++entry) {
      const std::size_t index = keys ? keys->indexes[entry] : entry;
      if (!call(layout_.reference(stored, index), layout_.reference(stored, stored.count + index))) return;
    }
  }

 private:
  friend class DocumentComparison;
  friend class Ref<const Document>;
  Document(Bytes file, const BinaryLayout& layout, CheckedObjects checked)
      : file_(std::move(file)), layout_(layout), checked_(std::move(checked)) {}

  const KeyIndex* keyIndex(std::uint32_t dictionary) const {
    return checked_.indexes.empty() ? nullptr : foundKeyIndex(dictionary);
  }
  const KeyIndex* foundKeyIndex(std::uint32_t dictionary) const;
  static std::uint64_t storedPart(const KeyIndex& keys, const ObjectHeader& dictionary, std::uint64_t part) {
    const std::size_t entries = keys.indexes.size();
    return part < entries ? keys.indexes[part]
                          : std::uint64_t{dictionary.count} + keys.indexes[part - entries];
  }
  /// The number of a key in the list of all keys, or `TextTable::none`.
  std::uint32_t numberOfKey(std::string_view key) const;
  /// The index of a key among the stored entries of a dictionary; nothing when it is not there.
  std::optional<std::uint32_t> indexOfKey(std::uint32_t dictionary, std::uint32_t key) const;
  /// The index among all stored entries of one of the entries that count.
  std::size_t storedIndex(std::uint32_t dictionary, std::size_t index) const;
  Value integerValue(const ObjectHeader& header) const;
  Value realValue(const ObjectHeader& header) const;

  const Bytes file_;
  const BinaryLayout layout_;
  const CheckedObjects checked_;
};

}  // namespace roster
