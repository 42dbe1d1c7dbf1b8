#include "fuzz/property_list_use.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view file(reinterpret_cast<const char*>(data), size);
  if (!file.starts_with("bplist")) roster::fuzzing::use(file);
  return 0;
}
