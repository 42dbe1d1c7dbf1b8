#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "roster/base/limits.h"
#include "roster/plist/numbered_objects.h"
#include "roster/plist/property_list.h"

namespace roster {

namespace {

/// How many bytes a number needs.
unsigned widthOf(std::uint64_t largest) {
  return std::max(1U, (static_cast<unsigned>(std::bit_width(largest)) + 7U) / 8U);
}

/// Writes numbered objects into one buffer of the size that they need.
class ObjectEncoding {
 public:
  explicit ObjectEncoding(const NumberedObjects& objects)
      : objects_(objects), referenceWidth_(widthOf(objects.objects().size() - 1)) {}

  Result<std::string> encode() {
    const std::uint64_t tableOffset =
        BinaryLayout::headerSize + objects_.size() + objects_.references() * referenceWidth_;
    const std::size_t count = objects_.objects().size();
    if (tableOffset + count + BinaryLayout::trailerSize >= limits::maximumFileSize) return tooLarge();
    std::vector<std::uint32_t> offsets;
    offsets.reserve(count);
    bytes_.resize(tableOffset + count * widthOf(tableOffset) + BinaryLayout::trailerSize);
    position_ = bytes_.data();
    append("bplist00");
    for (const NumberedObjects::Object& object : objects_.objects()) {
      offsets.push_back(static_cast<std::uint32_t>(position_ - bytes_.data()));
      appendObject(object);
    }
    appendTableAndTrailer(offsets, tableOffset);
    bytes_.resize(static_cast<std::size_t>(position_ - bytes_.data()));
    if (bytes_.size() >= limits::maximumFileSize) return tooLarge();
    return std::move(bytes_);
  }

 private:
  static Error tooLarge() { return {std::errc::file_too_large, "the property list is larger than 4 GiB"}; }

  void append(std::string_view bytes) {
    std::memcpy(position_, bytes.data(), bytes.size());
    position_ += bytes.size();
  }

  /// Stores eight bytes whatever the width: what follows overwrites the rest, and the trailer is longer.
  void appendNumber(std::uint64_t number, unsigned width) {
    std::uint64_t word = number << (64U - 8U * width);
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    std::memcpy(position_, &word, sizeof word);
    position_ += width;
  }

  void appendObject(const NumberedObjects::Object& object) {
    switch (object.kind) {
      case StoredKind::scalar:
        append(EncodedScalar(objects_.scalar(object)).bytes());
        break;
      case StoredKind::data:
      case StoredKind::asciiText:
      case StoredKind::wideText: {
        const std::string_view contents = objects_.contents(object);
        const std::size_t unit = object.kind == StoredKind::wideText ? 2 : 1;
        append(EncodedHeader(object.kind, contents.size() / unit).bytes());
        append(contents);
        break;
      }
      case StoredKind::array:
      case StoredKind::dictionary:
        append(EncodedHeader(object.kind, objects_.length(object)).bytes());
        objects_.forEachPart(object, [this](std::uint32_t part) { appendNumber(part, referenceWidth_); });
        break;
    }
  }

  void appendTableAndTrailer(const std::vector<std::uint32_t>& offsets, std::uint64_t tableOffset) {
    const unsigned offsetWidth = widthOf(offsets.back());
    for (const std::uint32_t offset : offsets) appendNumber(offset, offsetWidth);
    appendNumber(0, 6);
    appendNumber(offsetWidth, 1);
    appendNumber(referenceWidth_, 1);
    appendNumber(offsets.size(), 8);
    appendNumber(0, 8);
    appendNumber(tableOffset, 8);
  }

  const NumberedObjects& objects_;
  unsigned referenceWidth_;
  std::string bytes_;
  char* position_ = nullptr;
};

}  // namespace

Result<std::string> binaryPropertyList(const Value& value) {
  if (value.isNil()) return Error(std::errc::invalid_argument, "there is no value");
  const Result<NumberedObjects> objects = NumberedObjects::of(value);
  if (!objects) return objects.error();
  return ObjectEncoding(*objects).encode();
}

}  // namespace roster
