#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "roster/base/export.h"
#include "roster/value/date.h"
#include "roster/value/fault.h"
#include "roster/value/node.h"

namespace roster {

class Array;
class Dictionary;
class Document;
class MutableDictionary;
class String;

/// One property-list value, or nil.
///
/// A Value is a small handle. Copying one counts a reference and never copies contents. Contents never change
/// once they are in a Value, with one exception: a MutableDictionary put into a Value stays live there, and
/// every holder sees its changes. A Value that was read from a file keeps that file's bytes in memory as long
/// as it lives.
///
/// Values may be handed between threads; a live dictionary inside one may be used by one thread at a time.
class ROSTER_EXPORT Value {
 public:
  /// What a value can be. Signed and unsigned integers are one kind.
  enum class Kind : std::uint8_t {
    nil,         ///< No value; never an element of an array or an entry of a dictionary.
    boolean,     ///< True or false, which are no numbers.
    integer,     ///< A whole number from -2^63 to 2^64-1.
    real,        ///< A double.
    date,        ///< An instant.
    string,      ///< Text in UTF-8.
    data,        ///< Bytes.
    array,       ///< A sequence of values.
    dictionary,  ///< A mapping from texts to values.
  };

  constexpr Value() noexcept = default;  ///< Nil.
  /// Not from a null pointer: nil is `Value()`.
  Value(std::nullptr_t) = delete;
  /// A boolean; of nothing but a bool, so that no pointer becomes one.
  Value(std::same_as<bool> auto value) noexcept : kind_(Kind::boolean) { payload_.boolean = value; }
  Value(int value) noexcept : Value(static_cast<long long>(value)) {}                     ///< An integer.
  Value(long value) noexcept : Value(static_cast<long long>(value)) {}                    ///< An integer.
  Value(long long value) noexcept : kind_(Kind::integer) { payload_.integer = value; }    ///< An integer.
  Value(unsigned value) noexcept : Value(static_cast<unsigned long long>(value)) {}       ///< An integer.
  Value(unsigned long value) noexcept : Value(static_cast<unsigned long long>(value)) {}  ///< An integer.
  /// Numbers up to 2^63-1 are one kind whatever their type; larger ones keep their unsigned range.
  Value(unsigned long long value) noexcept;
  Value(double value) noexcept : kind_(Kind::real) { payload_.real = value; }  ///< A real.
  /// A date.
  Value(Date value) noexcept : kind_(Kind::date) { payload_.real = value.secondsSinceReference; }
  /// A string with a copy of the text; nil for a null pointer.
  Value(const char* text);
  /// A string with a copy of the text, which is taken to be UTF-8.
  Value(const std::string& text) : Value(std::string_view(text)) {}
  /// A string with a copy of the text, which is taken to be UTF-8.
  Value(std::string_view text);
  /// The same string; nil for the nil String.
  Value(const String& text);
  Value(const Array& array);  ///< The same array.
  /// The same dictionary; a live one stays live.
  Value(const Dictionary& dictionary);

  /// A data value with a copy of the bytes.
  static Value data(std::span<const std::byte> bytes);

  /// Refers to the same contents.
  Value(const Value& other) noexcept
      : payload_(other.payload_),
        object_(other.object_),
        kind_(other.kind_),
        home_(other.home_),
        isAboveSigned_(other.isAboveSigned_) {
    if (home_ != Home::none) node().retain();
  }
  /// Leaves the other one nil.
  Value(Value&& other) noexcept
      : payload_(other.payload_),
        object_(other.object_),
        kind_(std::exchange(other.kind_, Kind::nil)),
        home_(std::exchange(other.home_, Home::none)),
        isAboveSigned_(other.isAboveSigned_) {}
  /// Refers to the other one's contents instead of its own.
  Value& operator=(const Value& other) noexcept { return *this = Value(other); }
  /// The other one then holds some value, which only may be replaced or destroyed.
  Value& operator=(Value&& other) noexcept {
    std::swap(payload_, other.payload_);
    std::swap(object_, other.object_);
    std::swap(kind_, other.kind_);
    std::swap(home_, other.home_);
    std::swap(isAboveSigned_, other.isAboveSigned_);
    return *this;
  }
  /// Frees the contents with their last reference, without recursion however deep they are nested.
  ~Value() {
    if (home_ != Home::none) node().release();
  }

  Kind kind() const noexcept { return kind_; }                      ///< What the value is.
  bool isNil() const noexcept { return kind_ == Kind::nil; }        ///< Whether there is no value.
  bool isString() const noexcept { return kind_ == Kind::string; }  ///< Whether it is a text.
  bool isArray() const noexcept { return kind_ == Kind::array; }    ///< Whether it is an array.
  /// Whether it is a dictionary, live or not.
  bool isDictionary() const noexcept { return kind_ == Kind::dictionary; }
  /// Whether it is a dictionary that a MutableDictionary can change.
  bool isLiveDictionary() const noexcept { return home_ == Home::live; }

  // Each of these answers nothing when the value is of another kind, so that a wrong type reads as an absent
  // value.

  /// The text, or the nil String.
  String string() const&;
  /// The text, or the nil String; the value is moved from.
  String string() &&;
  /// The array; nothing for any other kind.
  std::optional<Array> array() const&;
  /// The array, nothing for any other kind; the value is moved from.
  std::optional<Array> array() &&;
  /// The dictionary, live if this one is; nothing for any other kind.
  std::optional<Dictionary> dictionary() const&;
  /// The dictionary, live if this one is, nothing for any other kind; the value is moved from.
  std::optional<Dictionary> dictionary() &&;
  /// The boolean; nothing for any other kind.
  std::optional<bool> boolean() const;
  /// An integer that fits; a real is not an integer.
  std::optional<std::int64_t> integer() const;
  /// An integer that is not negative; a real is not an integer.
  std::optional<std::uint64_t> unsignedInteger() const;
  /// A real or an integer, as a real.
  std::optional<double> real() const;
  /// The date; nothing for any other kind.
  std::optional<Date> date() const;
  /// The bytes of a data value; they live as long as any copy of this value.
  std::optional<std::span<const std::byte>> bytes() const;

  /// The value as a switch: a boolean itself, a number other than zero, a text that starts with "Y", "y",
  /// "T", "t" or a number other than zero. Anything else is false.
  bool booleanValue() const;

  /// Why the value cannot be followed to its leaves, if it cannot. Only containers that were read from a file
  /// have faults, and a container has the fault of what it holds.
  Fault fault() const noexcept;

  /// Equality of contents: numbers by number (1 equals 1.0), containers entry by entry whatever their order
  /// of keys. Booleans equal only booleans. Values with a fault, and trees too large or too deep to compare
  /// within the library's limits, equal only themselves.
  friend ROSTER_EXPORT bool operator==(const Value& left, const Value& right);

  /// One and the same object: no contents are looked at, except that scalars and nil are compared.
  bool isIdenticalTo(const Value& other) const noexcept;
  /// Which object it is: the same for two texts, data, arrays or dictionaries exactly when they are
  /// identical.
  ValueIdentity identity() const noexcept {
    return home_ == Home::none ? ValueIdentity() : ValueIdentity(payload_.node, object_);
  }

  /// A value that no later change reaches. Immutable contents are shared, live dictionaries are copied. Nil
  /// when a live dictionary was put into itself or the tree is deeper than the library follows.
  Value deepCopy() const;

 private:
  friend struct ValueAccess;

  /// Where a string, data, array or dictionary lives: in a node of its own, as an object of a document, or in
  /// the node of a live dictionary.
  enum class Home : std::uint8_t { none, node, document, live };

  union Payload {
    bool boolean;
    std::int64_t integer;
    std::uint64_t natural;
    double real;
    const Node* node;
    Node* live;  // the same pointer, by which a MutableDictionary changes what it owns
  };

  ROSTER_HIDDEN Value(Kind kind, Home home, Ref<const Node> node, std::uint32_t object = 0) noexcept
      : object_(object), kind_(kind), home_(home) {
    payload_.node = std::move(node).detach();
  }
  ROSTER_HIDDEN explicit Value(Ref<Node> liveDictionary) noexcept
      : kind_(Kind::dictionary), home_(Home::live) {
    payload_.live = std::move(liveDictionary).detach();
  }
  /// Where the value lives, which must not be Home::none.
  const Node& node() const noexcept {
    if (payload_.node == nullptr) __builtin_unreachable();
    return *payload_.node;
  }

  Payload payload_{.natural = 0};
  std::uint32_t object_ = 0;
  Kind kind_ = Kind::nil;
  Home home_ = Home::none;
  bool isAboveSigned_ = false;
};

/// A text that may be nil. Nil and the empty text are different. Copying counts a reference.
class ROSTER_EXPORT String {
 public:
  String() = default;  ///< Nil.
  /// Not from a null pointer: nil is `String()`.
  String(std::nullptr_t) = delete;
  /// A copy of the text, which is taken to be UTF-8.
  String(std::string_view text) : value_(text) {}
  /// A copy of the text; nil for a null pointer.
  String(const char* text) : value_(text) {}
  /// A copy of the text, which is taken to be UTF-8.
  String(const std::string& text) : value_(text) {}

  bool isNil() const { return value_.isNil(); }  ///< Whether there is no text.
  /// Whether there is a text, be it empty.
  explicit operator bool() const { return !isNil(); }
  /// True for nil and for the empty text.
  bool isEmpty() const { return view().empty(); }

  /// The text, empty for nil; it lives as long as any copy of this String.
  std::string_view view() const;
  operator std::string_view() const { return view(); }  ///< As `view`.
  /// A copy of the text, empty for nil.
  std::string str() const { return std::string(view()); }
  /// The same text as a Value.
  const Value& value() const { return value_; }

  /// Equality of texts; nil equals only nil.
  friend bool operator==(const String& left, const String& right) {
    return left.isNil() == right.isNil() && left.view() == right.view();
  }
  /// Equality of texts; nil is different from every text.
  friend bool operator==(const String& left, std::string_view right) {
    return !left.isNil() && left.view() == right;
  }
  /// Equality of texts; nil is different from every text.
  friend bool operator==(const String& left, const std::string& right) {
    return left == std::string_view(right);
  }
  /// Equality of texts; a null pointer is nil.
  friend bool operator==(const String& left, const char* right) {
    return right == nullptr ? left.isNil() : left == std::string_view(right);
  }

 private:
  friend class Value;
  friend struct ValueAccess;
  ROSTER_HIDDEN explicit String(Value value) : value_(std::move(value)) {}
  Value value_;
};

/// An immutable sequence of values; none of them is nil. Copying counts a reference.
class ROSTER_EXPORT Array {
 public:
  Array() = default;  ///< The empty array.
  /// Throws std::invalid_argument when an element is nil.
  explicit Array(std::vector<Value> elements);

  std::size_t size() const;                   ///< How many elements there are.
  bool empty() const { return size() == 0; }  ///< Whether there are none.
  /// Throws std::out_of_range. An element that its file does not hold in a readable form is nil.
  Value at(std::size_t index) const;
  /// Whether one of the elements is this text.
  bool containsString(std::string_view text) const;

  /// Walks the elements; valid as long as the array it was made by. Elements are made as they are looked at.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;  ///< It reads, forwards.
    using value_type = Value;                           ///< An element.
    using difference_type = std::ptrdiff_t;             ///< A distance in elements.
    using pointer = const Value*;                       ///< Not returned by anything.
    using reference = Value;                            ///< An element, by value.
    /// An iterator of no array, to be assigned to.
    Iterator() = default;
    /// The element; nil where the file holds it in no readable form.
    Value operator*() const { return array_->elementAt(index_); }
    /// On to the next element.
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    /// On to the next element; returns where it was.
    Iterator operator++(int) { return {array_, index_++}; }
    /// Whether both are at the same element of the same array.
    friend bool operator==(const Iterator&, const Iterator&) = default;

   private:
    friend class Array;
    Iterator(const Array* array, std::size_t index) : array_(array), index_(index) {}
    const Array* array_ = nullptr;
    std::size_t index_ = 0;
  };
  Iterator begin() const { return {this, 0}; }     ///< The first element.
  Iterator end() const { return {this, size()}; }  ///< Behind the last element.

 private:
  friend class Value;
  friend struct ValueAccess;
  /// Makes a second parameter, so that `Array({value})` can only be a list of one element.
  struct Adopt {
    explicit Adopt() = default;
  };
  ROSTER_HIDDEN Array(Value array, Adopt) : value_(std::move(array)) {}
  Value elementAt(std::size_t index) const;
  Value value_;  // nil stands for the empty array
};

/// One entry of a dictionary. The key lives as long as the dictionary is not changed.
struct DictionaryEntry {
  String key;   ///< Nil where the file holds it in no readable form.
  Value value;  ///< Nil where the file holds it in no readable form.
};

/// A mapping from texts to values, none of them nil; its order is the order in which the keys were set.
/// Copying counts a reference. It is immutable, unless it is the view of a MutableDictionary that somebody
/// still changes.
class ROSTER_EXPORT Dictionary {
 public:
  Dictionary() = default;  ///< The empty dictionary.
  /// Later entries win; nil values are left out.
  Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);

  std::size_t size() const;                   ///< How many entries there are.
  bool empty() const { return size() == 0; }  ///< Whether there are none.
  /// The value under the key, nil when there is none.
  Value find(std::string_view key) const;
  /// Whether there is a value under the key.
  bool contains(std::string_view key) const { return !find(key).isNil(); }

  /// An immutable copy, as `Value::deepCopy`; empty when the contents cannot be copied.
  Dictionary deepCopy() const;

  /// Walks the entries; valid as long as the dictionary it was made by. Throws EnumerationMutation when a key
  /// is added or removed meanwhile.
  class ROSTER_EXPORT Iterator {
   public:
    using iterator_category = std::input_iterator_tag;  ///< It reads, forwards.
    using value_type = DictionaryEntry;                 ///< A key and its value.
    using difference_type = std::ptrdiff_t;             ///< A distance in entries.
    using pointer = const DictionaryEntry*;             ///< Not returned by anything.
    using reference = DictionaryEntry;                  ///< An entry, by value.
    /// An iterator of no dictionary, to be assigned to.
    Iterator() = default;
    DictionaryEntry operator*() const;  ///< The entry.
    Iterator& operator++();             ///< On to the next entry.
    /// Whether both are at the same entry; they must be of one dictionary.
    friend bool operator==(const Iterator& left, const Iterator& right) {
      return left.position_ == right.position_;
    }

   private:
    friend class Dictionary;
    ROSTER_HIDDEN Iterator(const Dictionary* dictionary, std::size_t position);
    ROSTER_HIDDEN void requireUnchanged() const;
    const Dictionary* dictionary_ = nullptr;
    std::size_t position_ = 0;
    std::uint64_t changes_ = 0;
  };
  Iterator begin() const;  ///< The first entry.
  Iterator end() const;    ///< Behind the last entry.

  /// Whether both are one object; empty dictionaries may be or not.
  bool isIdenticalTo(const Dictionary& other) const noexcept { return value_.isIdenticalTo(other.value_); }
  /// Whether both are certain to be equal because one was copied from the other and neither was changed
  /// since. Looks at no entry.
  bool sharesContentsWith(const Dictionary& other) const noexcept;
  /// Equality of contents, as of values.
  friend bool operator==(const Dictionary& left, const Dictionary& right) {
    return Value(left) == Value(right);
  }

 private:
  friend class MutableDictionary;
  friend class Value;
  friend struct ValueAccess;
  ROSTER_HIDDEN explicit Dictionary(Value value) : value_(std::move(value)) {}
  Value value_;  // nil stands for the empty dictionary
};

}  // namespace roster
