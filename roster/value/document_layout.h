#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "roster/base/bytes.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// A big-endian number of up to eight bytes. Eight bytes are loaded whatever the width, so the first one must
/// be followed by as many readable ones; `Bytes` pads its end for that.
inline std::uint64_t readBigEndian(const std::byte* first, unsigned width) {
  std::uint64_t word = 0;
  std::memcpy(&word, first, sizeof word);
  if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
  return word >> (64U - 8U * width);
}

enum class ObjectClass : std::uint8_t {
  boolean,
  integer,
  real,
  date,
  data,
  asciiText,
  wideText,
  array,
  dictionary,
  unreadable,
};

/// An object as its first bytes describe it. A file is smaller than 4 GiB, and so is every offset and length
/// in it.
struct ObjectHeader {
  /// Where its contents begin, behind marker and length.
  std::uint32_t contents = 0;
  /// Characters, bytes, elements or entries; for numbers the width in bytes.
  std::uint32_t count = 0;
  ObjectClass type = ObjectClass::unreadable;
  Fault fault = Fault::none;
  /// For a dictionary whose keys were met before or may be met again: the number of that set of keys, from 1.
  std::uint16_t shape = 0;

  bool isText() const { return type == ObjectClass::asciiText || type == ObjectClass::wideText; }
  bool isContainer() const { return type == ObjectClass::array || type == ObjectClass::dictionary; }
  std::uint64_t references() const {
    return type == ObjectClass::dictionary ? 2 * std::uint64_t{count}
           : type == ObjectClass::array    ? count
                                           : 0;
  }
};

/// Where things are in a binary property list: what its trailer says, once it has been found to fit the file.
///
/// The file is a magic text, then the objects, then a table with the offset of each object, then the trailer.
/// Each object starts with a marker byte that tells its kind and, for small ones, its length. Containers hold
/// numbers of other objects. Everything is big-endian.
class BinaryLayout {
 public:
  static constexpr std::string_view magic = "bplist0";
  static constexpr std::size_t headerSize = 8;
  static constexpr std::size_t trailerSize = 32;

  /// Fails when the file is too short, is not of the format, or its trailer contradicts its size.
  static Result<BinaryLayout> read(const Bytes& file);

  std::uint32_t objectCount() const { return objectCount_; }
  std::uint32_t topObject() const { return topObject_; }
  /// The bytes that objects can occupy.
  std::size_t objectSpace() const { return tableOffset_ - headerSize; }
  const std::byte* bytes() const { return bytes_; }

  /// Where the table says that an object stands; may be anywhere.
  std::uint64_t offset(std::uint32_t object) const {
    return readBigEndian(bytes_ + tableOffset_ + std::size_t{object} * offsetWidth_, offsetWidth_);
  }

  /// The header of the object at an offset that the table gives. Its every length is checked against the
  /// file; its contents are not looked at. An object that cannot be read has the class `unreadable` and a
  /// fault.
  ObjectHeader headerAt(std::uint64_t tableEntry) const;

  /// The first position behind the contents of a readable object.
  std::size_t end(const ObjectHeader& header) const {
    if (header.isContainer()) return header.contents + header.references() * referenceWidth_;
    return header.contents + std::size_t{header.count} * (header.type == ObjectClass::wideText ? 2 : 1);
  }
  unsigned referenceWidth() const { return referenceWidth_; }

  /// The number of the object that a container refers to at an index; may be out of range.
  std::uint64_t reference(const ObjectHeader& container, std::uint64_t index) const {
    return readBigEndian(bytes_ + container.contents + index * referenceWidth_, referenceWidth_);
  }

 private:
  /// What the upper half of a marker says about the object.
  struct Kind {
    ObjectClass type = ObjectClass::unreadable;
    /// Bytes for each thing that the length counts; 0 for objects without a length.
    std::uint8_t unit = 0;
  };
  static constexpr unsigned lengthFollows = 0xF;

  ObjectHeader fixedHeader(unsigned marker, std::size_t offset) const;
  ObjectHeader longHeader(Kind kind, std::size_t offset) const;
  ObjectHeader sized(Kind kind, std::size_t contents, std::uint64_t count) const {
    // The count alone is checked first: it may be so large that the size overflows.
    if (count > tableOffset_) return unreadable(Fault::outOfBounds);
    if (contents + count * kind.unit > tableOffset_) return unreadable(Fault::outOfBounds);
    return {static_cast<std::uint32_t>(contents), static_cast<std::uint32_t>(count), kind.type, Fault::none};
  }
  static ObjectHeader unreadable(Fault fault) { return {.fault = fault}; }

  const std::byte* bytes_ = nullptr;
  std::array<Kind, 16> kinds_;
  std::size_t tableOffset_ = 0;
  unsigned offsetWidth_ = 0;
  unsigned referenceWidth_ = 0;
  std::uint32_t objectCount_ = 0;
  std::uint32_t topObject_ = 0;
};

inline ObjectHeader BinaryLayout::headerAt(std::uint64_t tableEntry) const {
  if (tableEntry < headerSize || tableEntry >= tableOffset_) return unreadable(Fault::outOfBounds);
  const auto offset = static_cast<std::size_t>(tableEntry);
  const auto marker = std::to_integer<unsigned>(bytes_[offset]);
  const Kind kind = kinds_[marker >> 4U];
  if (kind.unit == 0) return fixedHeader(marker, offset);
  if ((marker & 0xFU) == lengthFollows) return longHeader(kind, offset);
  return sized(kind, offset + 1, marker & 0xFU);
}

/// The length is an integer object of its own behind the marker.
inline ObjectHeader BinaryLayout::longHeader(Kind kind, std::size_t offset) const {
  if (offset + 1 >= tableOffset_) return unreadable(Fault::outOfBounds);
  const auto marker = std::to_integer<unsigned>(bytes_[offset + 1]);
  if (marker < 0x10 || marker > 0x13) return unreadable(Fault::badNumber);
  const unsigned width = 1U << (marker & 0xFU);
  if (width > tableOffset_ - offset - 2) return unreadable(Fault::outOfBounds);
  return sized(kind, offset + 2 + width, readBigEndian(bytes_ + offset + 2, width));
}

}  // namespace roster
