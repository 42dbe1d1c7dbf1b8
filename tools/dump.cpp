#include <iostream>
#include <iterator>

#include "roster/platform/property_list_file.h"
#include "tools/commands.h"
#include "tools/printing.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

Value readStandardInput() {
  const std::string text(std::istreambuf_iterator<char>(std::cin), {});
  const Result<Value> value = parsePropertyList(Bytes(text));
  if (!value)
    throw CommandError("could not read the standard input as a property list", value.error().message);
  return *value;
}

Value readFile(const std::string& path) {
  Result<Value> file = readPropertyListFile(path);
  if (!file) throw CommandError(file.error().message);
  return *std::move(file);
}

}  // namespace

int dump(const Options& options) {
  const Value value = options.file == "-" ? readStandardInput() : readFile(options.file);
  if (options.isJson) {
    printJsonValue(value);
  } else {
    printTree(value);
  }
  return done;
}

}  // namespace roster::tool
