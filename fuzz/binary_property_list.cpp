#include "fuzz/property_list_use.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A file starts with its format's name; without it, nearly every input would be XML.
  std::string file = "bplist00";
  file.append(reinterpret_cast<const char*>(data), size);
  roster::fuzzing::use(file);
  return 0;
}
