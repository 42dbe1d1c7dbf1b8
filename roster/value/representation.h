#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "roster/value/ordered_map.h"
#include "roster/value/value.h"

namespace roster {

struct StringNode final : Node {
  explicit StringNode(std::string_view content) : text(content) {}
  const std::string text;
};

struct DataNode final : Node {
  explicit DataNode(std::span<const std::byte> content) : bytes(content.begin(), content.end()) {}
  const std::vector<std::byte> bytes;
};

struct ArrayNode final : Node {
  ArrayNode(std::vector<Value> content, Fault contentFault);
  const std::vector<Value> elements;
  const Fault fault;
  /// Whether a live dictionary can be reached, so that a deep copy has something to copy.
  const bool holdsLiveDictionaries;
};

/// A dictionary with entries of its own. It never changes, except for the live dictionary that made it, and
/// only while nobody else refers to it.
struct DictionaryNode final : Node {
  DictionaryNode(OrderedMap<Value> content, Fault contentFault);
  OrderedMap<Value> entries;
  /// How many of the values a live dictionary can be reached by.
  std::size_t liveValues = 0;
  const Fault fault;
};

/// A dictionary that a MutableDictionary changes. Its entries stand in one that does not change by itself and
/// that copies may share: a change is made there while nobody does, else in a copy of it.
class LiveDictionaryNode final : public Node {
 public:
  explicit LiveDictionaryNode(Value contents) : contents_(std::move(contents)) {}

  /// What the dictionary holds: a dictionary that is not live, or nil for none.
  const Value& contents() const { return contents_; }
  /// Counts what makes a walk over the entries miss or repeat one.
  std::uint64_t changes() const { return changes_; }

  void set(std::string_view key, Value value);
  void remove(std::string_view key);
  /// Holds from now on what another dictionary holds, which is not live.
  void replace(Value contents) noexcept;

 private:
  DictionaryNode& ownContents();

  Value contents_;
  /// `contents_` if it was made here, so that it may change here; else nothing.
  DictionaryNode* own_ = nullptr;
  std::uint64_t changes_ = 0;
};

/// The seams through which readers, writers and walkers of values see their representation.
struct ValueAccess {
  static Value make(Value::Kind kind, Ref<const Node> node) {
    return {kind, Value::Home::node, std::move(node)};
  }
  static Value make(Value::Kind kind, const Document& document, std::uint32_t object);
  /// An array or dictionary whose contents a fault was found in.
  static Value makeArray(std::vector<Value> elements, Fault fault);
  static Value makeDictionary(OrderedMap<Value> entries, Fault fault);
  static Value makeLiveDictionary(Value contents);

  static bool isInDocument(const Value& value) { return value.home_ == Value::Home::document; }
  static const Node* node(const Value& value) {
    return value.home_ == Value::Home::none ? nullptr : value.payload_.node;
  }
  static std::uint32_t object(const Value& value) { return value.object_; }
  static const Document& document(const Value& value);
  /// An array that is not in a document.
  static const ArrayNode& arrayNode(const Value& value) {
    return static_cast<const ArrayNode&>(value.node());
  }
  /// A dictionary that is neither in a document nor live.
  static const DictionaryNode& dictionaryNode(const Value& value) {
    return static_cast<const DictionaryNode&>(value.node());
  }
  static const LiveDictionaryNode& liveNode(const Value& liveDictionary) {
    return static_cast<const LiveDictionaryNode&>(liveDictionary.node());
  }
  /// The one way to change a dictionary, for its MutableDictionary.
  static LiveDictionaryNode& liveNode(Value& liveDictionary) {
    return static_cast<LiveDictionaryNode&>(*liveDictionary.payload_.live);
  }
  static bool holdsLiveDictionaries(const Value& value);
  /// Where the entries of a dictionary are: for a live one its contents, nil if it has none.
  static const Value& contents(const Value& dictionary) {
    return dictionary.isLiveDictionary() ? liveNode(dictionary).contents() : dictionary;
  }
  /// The text of a string value, which lives as long as any copy of it.
  static std::string_view text(const Value& string);
  static const Value& contents(const Dictionary& dictionary) { return contents(dictionary.value_); }
  static Dictionary dictionary(Value value) { return Dictionary(std::move(value)); }
  static const Value& value(const Dictionary& dictionary) { return dictionary.value_; }
};

}  // namespace roster
