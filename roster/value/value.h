#pragma once

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
#include "roster/value/node.h"

namespace roster {

class Array;
class Dictionary;
class Document;
class MutableDictionary;
class String;

/// An instant: seconds since 2001-01-01 00:00:00 UTC, negative before it, with fractions.
struct Date {
  double secondsSinceReference = 0;
  friend bool operator==(Date, Date) = default;
};

/// Why a container that was read from a file cannot be used as it stands.
enum class Fault : std::uint8_t {
  none,
  containsItself,
  tooDeep,
  tooLarge,
  unknownObject,
  uid,
  outOfBounds,
  badReference,
  badKey,
  badText,
  badNumber,
  overlaps,
};

/// The fault in words that continue "a value that ...": "contains itself".
ROSTER_EXPORT std::string_view describe(Fault fault);

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
  enum class Kind : std::uint8_t { nil, boolean, integer, real, date, string, data, array, dictionary };

  constexpr Value() noexcept = default;
  Value(std::nullptr_t) = delete;
  Value(bool value) noexcept : kind_(Kind::boolean) { payload_.boolean = value; }
  Value(int value) noexcept : Value(static_cast<long long>(value)) {}
  Value(long value) noexcept : Value(static_cast<long long>(value)) {}
  Value(long long value) noexcept : kind_(Kind::integer) { payload_.integer = value; }
  Value(unsigned value) noexcept : Value(static_cast<unsigned long long>(value)) {}
  Value(unsigned long value) noexcept : Value(static_cast<unsigned long long>(value)) {}
  /// Numbers up to 2^63-1 are one kind whatever their type; larger ones keep their unsigned range.
  Value(unsigned long long value) noexcept;
  Value(double value) noexcept : kind_(Kind::real) { payload_.real = value; }
  Value(Date value) noexcept : kind_(Kind::date) { payload_.real = value.secondsSinceReference; }
  Value(const char* text) : Value(std::string_view(text)) {}
  Value(const std::string& text) : Value(std::string_view(text)) {}
  /// Copies the text, which is taken to be UTF-8.
  Value(std::string_view text);
  Value(const String& text);
  Value(const Array& array);
  Value(const Dictionary& dictionary);

  /// A data value with a copy of the bytes.
  static Value data(std::span<const std::byte> bytes);

  Value(const Value& other) noexcept
      : payload_(other.payload_),
        object_(other.object_),
        kind_(other.kind_),
        home_(other.home_),
        isAboveSigned_(other.isAboveSigned_) {
    if (home_ != Home::none) node().retain();
  }
  Value(Value&& other) noexcept
      : payload_(other.payload_),
        object_(other.object_),
        kind_(std::exchange(other.kind_, Kind::nil)),
        home_(std::exchange(other.home_, Home::none)),
        isAboveSigned_(other.isAboveSigned_) {}
  Value& operator=(const Value& other) noexcept {
    Value copy(other);
    return *this = std::move(copy);
  }
  Value& operator=(Value&& other) noexcept {
    std::swap(payload_, other.payload_);
    std::swap(object_, other.object_);
    std::swap(kind_, other.kind_);
    std::swap(home_, other.home_);
    std::swap(isAboveSigned_, other.isAboveSigned_);
    return *this;
  }
  ~Value() {
    if (home_ != Home::none) node().release();
  }

  Kind kind() const noexcept { return kind_; }
  bool isNil() const noexcept { return kind_ == Kind::nil; }
  bool isString() const noexcept { return kind_ == Kind::string; }
  bool isArray() const noexcept { return kind_ == Kind::array; }
  bool isDictionary() const noexcept { return kind_ == Kind::dictionary; }

  // Each of these answers nothing when the value is of another kind, so that a wrong type reads as an absent
  // value.

  /// The text, or the nil String.
  String string() const&;
  String string() &&;
  std::optional<Array> array() const&;
  std::optional<Array> array() &&;
  std::optional<Dictionary> dictionary() const&;
  std::optional<Dictionary> dictionary() &&;
  std::optional<bool> boolean() const;
  /// An integer that fits; a real is not an integer.
  std::optional<std::int64_t> integer() const;
  std::optional<std::uint64_t> unsignedInteger() const;
  /// A real or an integer, as a real.
  std::optional<double> real() const;
  std::optional<Date> date() const;
  /// The bytes of a data value; they live as long as any copy of this value.
  std::optional<std::span<const std::byte>> bytes() const;

  /// The value as a switch: a boolean itself, a number other than zero, a text that starts with "Y", "y",
  /// "T", "t" or a number other than zero. Anything else is false.
  bool booleanValue() const;

  /// Why the value cannot be followed to its leaves; `Fault::none` for all that can. Only containers that
  /// were read from a file have faults, and a container has the fault of what it holds.
  Fault fault() const noexcept;

  /// Equality of contents: numbers by number (1 equals 1.0), containers entry by entry whatever their order
  /// of keys. Booleans equal only booleans. Values with a fault, and trees too large or too deep to compare
  /// within the library's limits, equal only themselves.
  friend ROSTER_EXPORT bool operator==(const Value& left, const Value& right);

  /// One and the same object: no contents are looked at, except that scalars and nil are compared.
  bool isIdenticalTo(const Value& other) const noexcept;

  /// A value that no later change reaches. Immutable contents are shared, live dictionaries are copied. Nil
  /// when a live dictionary was put into itself or the tree is deeper than the library follows.
  Value deepCopy() const;

 private:
  friend class Array;
  friend class Dictionary;
  friend class Document;
  friend class MutableDictionary;
  friend class String;
  friend struct ValueAccess;

  /// Where a string, data, array or dictionary lives: in a node of its own, or as an object of a document.
  enum class Home : std::uint8_t { none, node, document };

  union Payload {
    bool boolean;
    std::int64_t integer;
    std::uint64_t natural;
    double real;
    const Node* node;
  };

  Value(Kind kind, const Node* node) noexcept;
  Value(Kind kind, const Document* document, std::uint32_t object) noexcept;
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

/// A text that may be nil. Nil and the empty text are different.
class ROSTER_EXPORT String {
 public:
  String() = default;
  String(std::string_view text) : value_(text) {}
  String(const char* text) : value_(text) {}
  String(const std::string& text) : value_(text) {}

  bool isNil() const { return value_.isNil(); }
  explicit operator bool() const { return !isNil(); }
  /// True for nil and for the empty text.
  bool isEmpty() const { return view().empty(); }

  /// The text, empty for nil; it lives as long as any copy of this String.
  std::string_view view() const;
  operator std::string_view() const { return view(); }
  std::string str() const { return std::string(view()); }
  const Value& value() const { return value_; }

  /// Nil equals only nil.
  friend bool operator==(const String& left, const String& right) {
    return left.isNil() == right.isNil() && left.view() == right.view();
  }
  friend bool operator==(const String& left, std::string_view right) {
    return !left.isNil() && left.view() == right;
  }
  friend bool operator==(const String& left, const char* right) { return left == std::string_view(right); }

 private:
  friend class Value;
  friend struct ValueAccess;
  explicit String(Value value) : value_(std::move(value)) {}
  Value value_;
};

/// An immutable sequence of values; none of them is nil. Copying counts a reference.
class ROSTER_EXPORT Array {
 public:
  Array() = default;
  /// Throws std::invalid_argument when an element is nil.
  explicit Array(std::vector<Value> elements);

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  /// Throws std::out_of_range. An element that its file does not hold in a readable form is nil.
  Value at(std::size_t index) const;
  bool containsString(std::string_view text) const;

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    using pointer = const Value*;
    using reference = Value;
    Iterator() = default;
    Iterator(const Array* array, std::size_t index) : array_(array), index_(index) {}
    Value operator*() const { return array_->elementAt(index_); }
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    Iterator operator++(int) { return {array_, index_++}; }
    friend bool operator==(const Iterator&, const Iterator&) = default;

   private:
    const Array* array_ = nullptr;
    std::size_t index_ = 0;
  };
  Iterator begin() const { return {this, 0}; }
  Iterator end() const { return {this, size()}; }

 private:
  friend class Value;
  friend struct ValueAccess;
  explicit Array(Value value) : value_(std::move(value)) {}
  Value elementAt(std::size_t index) const;
  Value value_;  // nil stands for the empty array
};

/// One entry of a dictionary. The key lives as long as the dictionary is not changed.
struct DictionaryEntry {
  String key;
  Value value;
};

/// A mapping from texts to values, none of them nil; its order is the order in which the keys were set.
/// Copying counts a reference. It is immutable, unless it is the view of a MutableDictionary that somebody
/// still changes.
class ROSTER_EXPORT Dictionary {
 public:
  Dictionary() = default;
  /// Later entries win; nil values are left out.
  Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  /// The value under the key, nil when there is none.
  Value find(std::string_view key) const;
  bool contains(std::string_view key) const { return !find(key).isNil(); }

  /// An immutable copy, as `Value::deepCopy`; empty when the contents cannot be copied.
  Dictionary deepCopy() const;

  /// Walks the entries. Throws EnumerationMutation when the dictionary is changed while it is walked.
  class ROSTER_EXPORT Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = DictionaryEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = const DictionaryEntry*;
    using reference = DictionaryEntry;
    Iterator() = default;
    Iterator(const Dictionary* dictionary, std::size_t position);
    DictionaryEntry operator*() const;
    Iterator& operator++();
    friend bool operator==(const Iterator& left, const Iterator& right) {
      return left.position_ == right.position_;
    }

   private:
    void requireUnchanged() const;
    const Dictionary* dictionary_ = nullptr;
    std::size_t position_ = 0;
    std::uint64_t changes_ = 0;
  };
  Iterator begin() const;
  Iterator end() const;

  bool isIdenticalTo(const Dictionary& other) const noexcept { return value_.isIdenticalTo(other.value_); }
  /// Whether both are certain to be equal because one was copied from the other and neither was changed
  /// since. Looks at no entry.
  bool sharesContentsWith(const Dictionary& other) const noexcept;
  friend bool operator==(const Dictionary& left, const Dictionary& right) {
    return Value(left) == Value(right);
  }

 protected:
  friend class Value;
  friend struct ValueAccess;
  explicit Dictionary(Value value) : value_(std::move(value)) {}
  Value value_;  // nil stands for the empty dictionary
};

/// A dictionary that can be changed. Copies of the handle, and Values and Dictionaries made from it, all
/// stand for the one dictionary and see its changes. It starts as a copy of another one at the cost of a
/// reference: entries are copied only when the first of them changes. One that is put into itself, directly
/// or through others, is never freed.
class ROSTER_EXPORT MutableDictionary : public Dictionary {
 public:
  MutableDictionary();
  /// A shallow copy: live dictionaries among the values stay live in it. What is passed as a
  /// MutableDictionary is not copied but gets one more handle.
  explicit MutableDictionary(const Dictionary& initial);

  /// Puts the value under the key, in the key's old place if it had one. A nil value removes the key.
  void set(std::string_view key, Value value);
  /// Does nothing when there is no such key.
  void remove(std::string_view key);
};

}  // namespace roster
