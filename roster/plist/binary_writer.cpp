#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "roster/base/limits.h"
#include "roster/plist/binary_property_list.h"
#include "roster/plist/property_list.h"

namespace roster {

namespace {

constexpr std::string_view magic = "bplist00";

/// How many bytes a number needs.
unsigned widthOf(std::uint64_t largest) {
  return std::max(1U, (static_cast<unsigned>(std::bit_width(largest)) + 7U) / 8U);
}

/// Gathers bytes into pieces that stay in the cache and gives those to a sink. After the sink's first failure
/// it gets no more.
class PieceWriter {
 public:
  PieceWriter(const ByteSink& sink, std::uint64_t total)
      : sink_(sink),
        pieceSize_(
            static_cast<std::size_t>(std::min<std::uint64_t>(largestPiece, total + sizeof(std::uint64_t)))),
        buffer_(std::make_unique_for_overwrite<char[]>(pieceSize_)),
        position_(buffer_.get()) {}

  std::uint64_t written() const { return flushed_ + buffered(); }

  void append(std::string_view bytes) {
    if (bytes.size() > pieceSize_ - buffered()) flush();
    if (bytes.size() > pieceSize_) return give(bytes);
    if (!bytes.empty()) std::memcpy(position_, bytes.data(), bytes.size());
    position_ += bytes.size();
  }

  void append(char byte) {
    if (buffered() == pieceSize_) flush();
    *position_++ = byte;
  }

  /// Stores eight bytes whatever the width; what follows overwrites the rest.
  void appendNumber(std::uint64_t number, unsigned width) {
    std::uint64_t word = number << (64U - 8U * width);
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    if (pieceSize_ - buffered() < sizeof word) flush();
    std::memcpy(position_, &word, sizeof word);
    position_ += width;
  }

  Result<> finish() {
    flush();
    return std::move(done_);
  }

 private:
  static constexpr std::size_t largestPiece = std::size_t{1} << 16U;

  std::size_t buffered() const { return static_cast<std::size_t>(position_ - buffer_.get()); }

  void flush() {
    const std::size_t size = buffered();
    position_ = buffer_.get();
    if (size > 0) give({buffer_.get(), size});
  }

  void give(std::string_view bytes) {
    flushed_ += bytes.size();
    if (done_) done_ = sink_(std::as_bytes(std::span(bytes)));
  }

  const ByteSink& sink_;
  const std::size_t pieceSize_;
  std::unique_ptr<char[]> buffer_;
  char* position_;
  std::uint64_t flushed_ = 0;
  Result<> done_;
};

/// Encodes numbered objects.
class ObjectEncoding {
 public:
  ObjectEncoding(const NumberedObjects& objects, unsigned referenceWidth, PieceWriter& writer)
      : objects_(objects), referenceWidth_(referenceWidth), writer_(writer) {}

  void append(const NumberedObjects::Object& object) {
    switch (object.kind) {
      case StoredKind::scalar:
        writer_.append(EncodedScalar(objects_.scalar(object)).bytes());
        break;
      case StoredKind::data:
      case StoredKind::asciiText:
      case StoredKind::wideText: {
        const std::string_view contents = objects_.contents(object);
        appendHeader(object.kind, contents.size() / (object.kind == StoredKind::wideText ? 2 : 1));
        writer_.append(contents);
        break;
      }
      case StoredKind::array:
      case StoredKind::dictionary:
        appendHeader(object.kind, objects_.length(object));
        objects_.forEachPart(object,
                             [this](std::uint32_t part) { writer_.appendNumber(part, referenceWidth_); });
        break;
    }
  }

 private:
  void appendHeader(StoredKind kind, std::uint64_t length) {
    if (length < EncodedHeader::lengthFollows) {
      writer_.append(static_cast<char>(static_cast<unsigned>(kind) << 4U | length));
    } else {
      writer_.append(EncodedHeader(kind, length).bytes());
    }
  }

  const NumberedObjects& objects_;
  unsigned referenceWidth_;
  PieceWriter& writer_;
};

}  // namespace

BinaryPropertyList::BinaryPropertyList(std::unique_ptr<const Value> value, NumberedObjects objects)
    : value_(std::move(value)),
      objects_(std::move(objects)),
      referenceWidth_(widthOf(objects_.objects().size() - 1)),
      tableOffset_(magic.size() + objects_.size() + objects_.references() * referenceWidth_),
      offsetWidth_(widthOf(tableOffset_ - objects_.sizeOfLast(referenceWidth_))),
      size_(tableOffset_ + objects_.objects().size() * offsetWidth_ + BinaryLayout::trailerSize) {}

Result<BinaryPropertyList> BinaryPropertyList::ofUnchanging(Value value, std::size_t expectedObjects) {
  if (value.isNil()) return Error(std::errc::invalid_argument, "there is no value");
  auto kept = std::make_unique<const Value>(std::move(value));
  Result<NumberedObjects> objects = NumberedObjects::of(*kept, expectedObjects);
  if (!objects) return objects.error();
  BinaryPropertyList list(std::move(kept), *std::move(objects));
  if (list.size() >= limits::maximumFileSize)
    return Error(std::errc::file_too_large, "the property list is larger than 4 GiB");
  return list;
}

Result<BinaryPropertyList> BinaryPropertyList::of(const Value& value, std::size_t expectedObjects) {
  Value copy = value.deepCopy();
  // What cannot be copied cannot be written either: the attempt tells why, and where.
  if (copy.isNil()) copy = value;
  return ofUnchanging(std::move(copy), expectedObjects);
}

Result<> BinaryPropertyList::write(const ByteSink& sink) const {
  PieceWriter writer(sink, size_);
  ObjectEncoding encoding(objects_, referenceWidth_, writer);
  std::vector<std::uint32_t> offsets;
  offsets.reserve(objects_.objects().size());
  writer.append(magic);
  for (const NumberedObjects::Object& object : objects_.objects()) {
    offsets.push_back(static_cast<std::uint32_t>(writer.written()));
    encoding.append(object);
  }
  for (const std::uint32_t offset : offsets) writer.appendNumber(offset, offsetWidth_);
  writer.appendNumber(0, 6);
  writer.appendNumber(offsetWidth_, 1);
  writer.appendNumber(referenceWidth_, 1);
  writer.appendNumber(offsets.size(), 8);
  writer.appendNumber(0, 8);
  writer.appendNumber(tableOffset_, 8);
  return writer.finish();
}

Result<std::string> binaryPropertyList(const Value& value) {
  const Result<BinaryPropertyList> list = BinaryPropertyList::ofUnchanging(value);
  if (!list) return list.error();
  std::string bytes;
  bytes.reserve(list->size());
  const Result<> done = list->write([&bytes](std::span<const std::byte> piece) -> Result<> {
    bytes.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    return {};
  });
  if (!done) return done.error();
  return bytes;
}

}  // namespace roster
