#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "roster/base/number_table.h"
#include "roster/base/result.h"
#include "roster/value/document.h"

namespace roster {

/// What the upper half of an object's first byte says in a binary property list. Of scalars there are several
/// kinds.
enum class StoredKind : std::uint8_t {
  scalar = 0x0,
  data = 0x4,
  asciiText = 0x5,
  wideText = 0x6,
  array = 0xA,
  dictionary = 0xD,
};

/// A scalar as it is stored: eight bytes hold the signed range of integers and fewer hold small natural
/// numbers, and a real that four bytes hold exactly takes four.
class EncodedScalar {
 public:
  explicit EncodedScalar(const Value& scalar);
  std::string_view bytes() const { return {bytes_.data(), size_}; }

 private:
  void append(unsigned marker, std::uint64_t number, unsigned width);
  void appendInteger(std::int64_t number);
  void appendReal(double real);

  std::array<char, 17> bytes_{};
  std::size_t size_ = 0;
};

/// The first byte of an object that has a length, and the length where that byte has no room for it.
class EncodedHeader {
 public:
  EncodedHeader(StoredKind kind, std::uint64_t length);
  std::string_view bytes() const { return {bytes_.data(), size_}; }

  static constexpr std::uint64_t lengthFollows = 0xF;
  static constexpr std::size_t sizeFor(std::uint64_t length) {
    return length < lengthFollows ? 1 : 2 + (std::size_t{1} << exponentOf(length));
  }
  /// Of one, two, four and eight bytes the smallest that a number fits into, as the power of two.
  static constexpr unsigned exponentOf(std::uint64_t number) {
    return number < 0x100 ? 0 : number < 0x10000 ? 1 : number < 0x100000000 ? 2 : 3;
  }

 private:
  std::array<char, 10> bytes_{};
  std::size_t size_ = 1;
};

/// The numbers of a document's objects. There are pages only where there are numbers, so that a small part of
/// a large document costs little.
class ObjectNumbers {
 public:
  explicit ObjectNumbers(std::size_t objects) : pages_((objects + pageSize - 1) / pageSize) {}

  /// `NumberTable::none` for an object without a number.
  std::uint32_t of(std::size_t object) const {
    const Page* page = pages_[object / pageSize].get();
    return page == nullptr ? NumberTable::none : (*page)[object % pageSize];
  }
  void set(std::size_t object, std::uint32_t number) {
    std::unique_ptr<Page>& page = pages_[object / pageSize];
    if (!page) {
      page = std::make_unique<Page>();
      page->fill(NumberTable::none);
    }
    (*page)[object % pageSize] = number;
  }

 private:
  static constexpr std::size_t pageSize = 1024;
  using Page = std::array<std::uint32_t, pageSize>;
  std::vector<std::unique_ptr<Page>> pages_;
};

/// The objects of a tree as they are written: parents before their parts, each distinct object once. What is
/// in a document already is neither decoded nor copied.
///
/// It refers to the values of the tree, which must live on and not change.
class NumberedObjects {
 public:
  struct Object {
    /// Who has the contents: the document of this number, or `inValues`, or `inTexts`.
    std::uint32_t home = 0;
    /// The number that the object has there.
    std::uint32_t index = 0;
    /// How many values it unfolds to, itself included. Saturates.
    std::uint32_t unfolded = 1;
    /// How many containers stand inside each other, itself included; 0 for what is none.
    std::uint16_t height = 0;
    StoredKind kind = StoredKind::scalar;
  };

  /// Fails, naming the fault and where it is, on a tree that cannot be written.
  static Result<NumberedObjects> of(const Value& root, std::size_t expectedObjects);

  const std::vector<Object>& objects() const { return objects_; }
  /// How many references the containers hold.
  std::uint64_t references() const { return references_; }
  /// How many bytes the objects take without their references.
  std::uint64_t size() const { return size_; }

  /// How many bytes the last object takes, with references of this width.
  std::uint64_t sizeOfLast(unsigned referenceWidth) const {
    return sizeOfLast_ + referencesOfLast_ * referenceWidth;
  }

  /// The way from an object to the root by the first container that refers to it, and so on. Each step is the
  /// place of a part in its container.
  std::vector<std::size_t> stepsToRoot(std::uint32_t object) const;

  /// The bytes of a text or of data.
  std::string_view contents(const Object& object) const {
    return object.home < documents_.size() ? storedContents(*documents_[object.home]->document, object)
                                           : ownContents(object);
  }
  Value scalar(const Object& object) const;
  /// Elements of an array, entries of a dictionary.
  std::size_t length(const Object& container) const;
  /// Calls with the number of each part of a container: its elements, or its keys and then its values.
  template <class Call>
  void forEachPart(const Object& container, const Call& call) const {
    if (container.home == inValues) {
      const ValueSource& source = values_[container.index];
      for (std::size_t part = 0; part < source.parts; ++part) call(parts_[source.firstPart + part]);
    } else {
      const DocumentSource& source = *documents_[container.home];
      source.document->forEachPart(container.index, [&](std::uint64_t part) {
        call(source.numbers.of(part));
        return true;
      });
    }
  }

 private:
  friend class ObjectNumbering;

  static constexpr std::uint32_t inValues = 0xFFFFFFFFU;
  static constexpr std::uint32_t inTexts = inValues - 1;

  struct DocumentSource {
    const Document* document = nullptr;
    std::uint32_t number = 0;
    ObjectNumbers numbers;
    /// Those whose keys have numbers.
    std::set<std::uint16_t> shapes{};
  };
  struct ValueSource {
    const Value* value = nullptr;
    /// Where a container's parts stand in the list of all parts, and how many they are.
    std::size_t firstPart = 0;
    std::size_t parts = 0;
    bool isInProgress = false;
  };

  NumberedObjects() = default;

  static std::string_view storedContents(const Document& document, const Object& object) {
    const ObjectHeader& header = document.header(object.index);
    const std::size_t unit = header.type == ObjectClass::wideText ? 2 : 1;
    return {reinterpret_cast<const char*>(document.contents(object.index)), header.count * unit};
  }
  std::string_view ownContents(const Object& object) const;

  std::vector<Object> objects_;
  std::vector<std::unique_ptr<DocumentSource>> documents_;
  std::vector<ValueSource> values_;
  /// The parts of those containers that are in no document.
  std::vector<std::uint32_t> parts_;
  /// Texts that their home has in another form than the one they are written in.
  std::vector<std::string> texts_;
  std::uint64_t references_ = 0;
  std::uint64_t size_ = 0;
  std::uint64_t sizeOfLast_ = 0;
  std::uint64_t referencesOfLast_ = 0;
};

}  // namespace roster
