#include "roster/plist/property_list.h"

#include "roster/plist/xml_property_list.h"
#include "roster/value/document.h"

namespace roster {

Result<Value> parsePropertyList(Bytes bytes, Soundness soundness) {
  if (bytes.empty()) return Error(std::errc::bad_message, "it is empty");
  const bool isBinary = bytes.text().starts_with(BinaryLayout::magic);
  Result<Value> result = isBinary ? Document::read(std::move(bytes)) : parseXmlPropertyList(bytes, soundness);
  if (!result) return result;
  if (result->isNil()) return Error(std::errc::bad_message, "its top value cannot be read");
  if (soundness == Soundness::required && result->fault() != Fault::none) {
    return Error(std::errc::bad_message, "a value in it " + std::string(describe(result->fault())));
  }
  return result;
}

}  // namespace roster
