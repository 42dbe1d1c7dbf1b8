#pragma once

#include <string_view>

#include "roster/value/value.h"
#include "tools/output_pieces.h"

namespace roster::tool {

/// Writes a document as it comes, part by part: neither the document nor a tree of it is in memory. A small
/// file can refer to one long text so often that the whole document would not fit there.
///
/// What is begun has to be ended. In an array each element is begun with `beginElement`, in an object each
/// entry with `beginEntry`; one value follows.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& stream) : output_(stream) {}

  void beginArray() { begin('['); }
  void endArray() { end(']'); }
  void beginObject() { begin('{'); }
  void endObject() { end('}'); }
  void beginElement();
  void beginEntry(std::string_view key);

  /// What is not UTF-8 in it is replaced.
  void writeText(std::string_view text);
  void writeTextOrNull(const String& text);
  void writeNull();
  /// A value, no part of which may be faulty, in the notation of tools/json.h.
  void writeValue(const Value& value);
  /// An object with exactly the keys of the dictionary, reserved or not; their values in that notation.
  void writeEntries(const Dictionary& entries);

  /// Ends the document, and its line.
  void endDocument();

 private:
  void writeElements(const Array& array);
  void writeDictionary(const Dictionary& dictionary);
  void writeScalar(const Value& value);
  void begin(char bracket);
  void end(char bracket);
  void breakLine();

  OutputPieces output_;
  std::size_t depth_ = 0;
  /// Whether the container that was begun last has no item yet.
  bool isFirst_ = true;
};

}  // namespace roster::tool
