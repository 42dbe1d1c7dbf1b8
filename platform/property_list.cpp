#include "platform/property_list.h"

#include "platform/binary_document.h"
#include "platform/file_system.h"

namespace roster {

Result<Value> parsePropertyList(Bytes bytes, Soundness soundness) {
  if (bytes.empty()) return Error{"it is empty"};
  const bool isBinary = bytes.text().starts_with(BinaryLayout::magic);
  Result<Value> result = isBinary ? Document::read(std::move(bytes)) : parseXmlPropertyList(bytes);
  if (!result) return result;
  if (result->isNil()) return Error{"its top value cannot be read"};
  if (soundness == Soundness::required && result->fault() != Fault::none) {
    return Error{"a value in it " + std::string(describe(result->fault()))};
  }
  return result;
}

PropertyListFile readPropertyListFile(const std::string& path, Soundness soundness) {
  using Status = PropertyListFile::Status;
  FileContents contents = readFile(path);
  if (contents.status != FileContents::Status::read) {
    const bool isMissing = contents.status == FileContents::Status::missing;
    return {isMissing ? Status::missing : Status::unreadable, {}, std::move(contents.error)};
  }
  Result<Value> parsed = parsePropertyList(std::move(contents.bytes), soundness);
  if (!parsed) {
    return {Status::malformed, {}, "could not read " + path + " as a property list: " + parsed.error()};
  }
  return {Status::read, *std::move(parsed), {}};
}

}  // namespace roster
