#include "platform/binary_layout.h"

#include "platform/limits.h"

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
constexpr unsigned lengthFollows = 0xF;

Error damaged(std::string_view what) { return {"the binary property list is damaged: " + std::string(what)}; }

}  // namespace

Result<BinaryLayout> BinaryLayout::read(const Bytes& file) {
  const std::size_t size = file.size();
  if (!file.text().starts_with(magic)) return Error{"this is not a binary property list"};
  if (size >= limits::maximumFileSize) return Error{"the property list is larger than 4 GiB"};
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
  if (table < headerSize || table > size - trailerSize) return damaged("its offset table lies outside the file");
  if (objects > (size - trailerSize - table) / layout.offsetWidth_) {
    return damaged("its offset table has no room for its objects");
  }
  if (top >= objects) return damaged("its top object does not exist");
  layout.tableOffset_ = static_cast<std::size_t>(table);
  layout.objectCount_ = static_cast<std::uint32_t>(objects);
  layout.topObject_ = static_cast<std::uint32_t>(top);
  return layout;
}

ObjectHeader BinaryLayout::header(std::uint32_t object) const {
  const std::byte* entry = bytes_ + tableOffset_ + std::size_t{object} * offsetWidth_;
  const std::uint64_t offset = readBigEndian(entry, offsetWidth_);
  if (offset < headerSize || offset >= tableOffset_) return unreadable(Fault::outOfBounds);

  const auto at = static_cast<std::size_t>(offset);
  const auto marker = std::to_integer<unsigned>(bytes_[at]);
  const auto fixed = [&](ObjectClass type, std::size_t width) {
    if (width > tableOffset_ - at - 1) return unreadable(Fault::outOfBounds);
    return ObjectHeader{type, Fault::none, at + 1, width, at + 1 + width};
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
    case date: return marker == dateMarker ? fixed(ObjectClass::date, 8) : unreadable(Fault::unknownObject);
    case uid: return unreadable(Fault::uid);
    default: return sizedHeader(marker, at);
  }
}

ObjectHeader BinaryLayout::sizedHeader(unsigned marker, std::size_t at) const {
  ObjectHeader header;
  std::size_t unit = 1;
  switch (marker >> 4U) {
    case data: header.type = ObjectClass::data; break;
    case ascii: header.type = ObjectClass::asciiText; break;
    case wide:
      header.type = ObjectClass::wideText;
      unit = 2;
      break;
    case array:
    case set:
      header.type = ObjectClass::array;
      unit = referenceWidth_;
      break;
    case dictionary:
      header.type = ObjectClass::dictionary;
      unit = 2 * std::size_t{referenceWidth_};
      break;
    default: return unreadable(Fault::unknownObject);
  }
  header.contents = at + 1;
  header.count = marker & 0xFU;
  if (header.count == lengthFollows) {
    if (at + 1 >= tableOffset_) return unreadable(Fault::outOfBounds);
    const auto lengthMarker = std::to_integer<unsigned>(bytes_[at + 1]);
    const unsigned width = 1U << (lengthMarker & 0xFU);
    if (lengthMarker >> 4U != integer || (lengthMarker & 0xFU) > 3) return unreadable(Fault::badNumber);
    if (width > tableOffset_ - at - 2) return unreadable(Fault::outOfBounds);
    header.count = readBigEndian(bytes_ + at + 2, width);
    header.contents = at + 2 + width;
  }
  if (header.count > (tableOffset_ - header.contents) / unit) return unreadable(Fault::outOfBounds);
  header.end = header.contents + static_cast<std::size_t>(header.count) * unit;
  return header;
}

}  // namespace roster
