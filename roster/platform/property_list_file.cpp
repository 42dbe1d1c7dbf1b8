#include "roster/platform/property_list_file.h"

#include "roster/platform/file_system.h"
#include "roster/platform/stamped_property_list.h"

namespace roster {

Result<Value> readPropertyListFile(const std::string& path, Soundness soundness) {
  return readPropertyListFile(path, soundness, nullptr);
}

Result<Value> readPropertyListFile(const std::string& path, Soundness soundness,
                                   std::optional<FileStamp>* stamp) {
  Result<Bytes> bytes = readFile(path, stamp);
  if (!bytes) return bytes.error();
  Result<Value> parsed = parsePropertyList(*std::move(bytes), soundness);
  if (parsed) return parsed;
  return Error(parsed.error().code,
               "could not read " + path + " as a property list: " + parsed.error().message);
}

Result<Dictionary> readDictionaryFile(const std::string& path) {
  const Result<Value> file = readPropertyListFile(path);
  if (!file) return file.error();
  if (std::optional<Dictionary> dictionary = file->dictionary()) return *std::move(dictionary);
  return Error(std::errc::bad_message, "could not use " + path + ": it does not hold a dictionary");
}

}  // namespace roster
