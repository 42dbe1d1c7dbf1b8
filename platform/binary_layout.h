#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/bytes.h"
#include "platform/result.h"
#include "platform/value.h"

namespace roster {

/// A big-endian number of up to eight bytes. Eight bytes are loaded whatever the width, so `at` must be followed by
/// as many readable ones; `Bytes` pads its end for that.
inline std::uint64_t readBigEndian(const std::byte* at, unsigned width) {
  std::uint64_t word = 0;
  std::memcpy(&word, at, sizeof word);
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

/// An object as its first bytes describe it.
struct ObjectHeader {
  ObjectClass type = ObjectClass::unreadable;
  Fault fault = Fault::none;
  /// Where its contents begin, behind marker and length.
  std::size_t contents = 0;
  /// Characters, bytes, elements or entries; for numbers the width in bytes.
  std::uint64_t count = 0;
  /// The first position behind the contents.
  std::size_t end = 0;

  bool isText() const { return type == ObjectClass::asciiText || type == ObjectClass::wideText; }
  bool isContainer() const { return type == ObjectClass::array || type == ObjectClass::dictionary; }
  std::uint64_t references() const {
    return type == ObjectClass::dictionary ? 2 * count : type == ObjectClass::array ? count : 0;
  }
};

/// Where things are in a binary property list: what its trailer says, once it has been found to fit the file.
///
/// The file is a magic text, then the objects, then a table with the offset of each object, then the trailer. Each
/// object starts with a marker byte that tells its kind and, for small ones, its length. Containers hold numbers of
/// other objects. Everything is big-endian.
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

  /// The header of an object, whose every length and offset is checked against the file; its contents are not looked
  /// at. An object that cannot be read has the class `unreadable` and a fault.
  ObjectHeader header(std::uint32_t object) const;

  /// The number of the object that a container refers to at a place; may be out of range.
  std::uint64_t reference(const ObjectHeader& container, std::uint64_t place) const {
    return readBigEndian(bytes_ + container.contents + place * referenceWidth_, referenceWidth_);
  }

 private:
  ObjectHeader sizedHeader(unsigned marker, std::size_t at) const;
  static ObjectHeader unreadable(Fault fault) { return {.fault = fault}; }

  const std::byte* bytes_ = nullptr;
  std::size_t tableOffset_ = 0;
  unsigned offsetWidth_ = 0;
  unsigned referenceWidth_ = 0;
  std::uint32_t objectCount_ = 0;
  std::uint32_t topObject_ = 0;
};

}  // namespace roster
