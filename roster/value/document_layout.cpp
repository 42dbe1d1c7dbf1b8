#include "roster/value/document_layout.h"

#include "roster/base/limits.h"

namespace roster {

namespace {

enum Marker : unsigned {
  singleton = 0x0,
  integer = 0x1,
  real = 0x2,
  date = 0x3,
  data = 0x4,
  ascii = 0x5,
  wide = 0x6,
  uid = 0x8,
  array = 0xA,
  set = 0xC,
  dictionary = 0xD,
};

constexpr unsigned falseMarker = 0x08;
constexpr unsigned trueMarker = 0x09;
constexpr unsigned dateMarker = 0x33;

Error damaged(std::string_view what) {
  return {std::errc::bad_message, "the binary property list is damaged: " + std::string(what)};
}

}  // namespace

Result<BinaryLayout> BinaryLayout::read(const Bytes& file) {
  const std::size_t size = file.size();
  if (!file.text().starts_with(magic))
    return Error(std::errc::bad_message, "this is not a binary property list");
  if (size >= limits::maximumFileSize)
    return Error(std::errc::file_too_large, "the property list is larger than 4 GiB");
  if (size < headerSize + trailerSize) return damaged("it ends before its trailer");

  const std::byte* trailer = file.data() + size - trailerSize;
  BinaryLayout layout;
  layout.bytes_ = file.data();
  layout.offsetWidth_ = std::to_integer<unsigned>(trailer[6]);
  layout.referenceWidth_ = std::to_integer<unsigned>(trailer[7]);
  const std::uint64_t objects = readBigEndian(trailer + 8, 8);
  const std::uint64_t top = readBigEndian(trailer + 16, 8);
  const std::uint64_t table = readBigEndian(trailer + 24, 8);

  if (layout.offsetWidth_ < 1 || layout.offsetWidth_ > 8) return damaged("its trailer gives no offset width");
  if (layout.referenceWidth_ < 1 || layout.referenceWidth_ > 8) {
    return damaged("its trailer gives no reference width");
  }
  if (table < headerSize || table > size - trailerSize)
    return damaged("its offset table lies outside the file");
  if (objects > (size - trailerSize - table) / layout.offsetWidth_) {
    return damaged("its offset table has no room for its objects");
  }
  if (top >= objects) return damaged("its top object does not exist");
  const auto referenceUnit = static_cast<std::uint8_t>(layout.referenceWidth_);
  layout.kinds_[data] = {ObjectClass::data, 1};
  layout.kinds_[ascii] = {ObjectClass::asciiText, 1};
  layout.kinds_[wide] = {ObjectClass::wideText, 2};
  layout.kinds_[array] = {ObjectClass::array, referenceUnit};
  layout.kinds_[set] = {ObjectClass::array, referenceUnit};
  layout.kinds_[dictionary] = {ObjectClass::dictionary, static_cast<std::uint8_t>(2 * referenceUnit)};
  layout.tableOffset_ = static_cast<std::size_t>(table);
  layout.objectCount_ = static_cast<std::uint32_t>(objects);
  layout.topObject_ = static_cast<std::uint32_t>(top);
  return layout;
}

ObjectHeader BinaryLayout::fixedHeader(unsigned marker, std::size_t offset) const {
  const auto fixed = [&](ObjectClass type, std::size_t width) {
    if (width > tableOffset_ - offset - 1) return unreadable(Fault::outOfBounds);
    return ObjectHeader{static_cast<std::uint32_t>(offset + 1), static_cast<std::uint32_t>(width), type,
                        Fault::none};
  };
  const unsigned exponent = marker & 0xFU;
  switch (marker >> 4U) {
    case singleton:
      if (marker == falseMarker || marker == trueMarker) return fixed(ObjectClass::boolean, 0);
      return unreadable(Fault::unknownObject);
    case integer:
      return exponent <= 4 ? fixed(ObjectClass::integer, std::size_t{1} << exponent)
                           : unreadable(Fault::badNumber);
    case real:
      return exponent == 2 || exponent == 3 ? fixed(ObjectClass::real, std::size_t{1} << exponent)
                                            : unreadable(Fault::badNumber);
    case date:
      return marker == dateMarker ? fixed(ObjectClass::date, 8) : unreadable(Fault::unknownObject);
    case uid:
      return unreadable(Fault::uid);
    default:
      return unreadable(Fault::unknownObject);
  }
}

}  // namespace roster
