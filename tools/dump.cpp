#include <iostream>
#include <iterator>

#include "platform/property_list.h"
#include "tools/command_error.h"
#include "tools/commands.h"
#include "tools/json_writer.h"
#include "tools/terminal.h"
#include "tools/value_tree.h"

namespace roster::tool {

namespace {

Value readStandardInput() {
  const std::string text(std::istreambuf_iterator<char>(std::cin), {});
  const Result<Value> value = parsePropertyList(Bytes(text));
  if (!value) throw CommandError("could not read the standard input as a property list", value.error());
  return *value;
}

Value readFile(const std::string& path) {
  PropertyListFile file = readPropertyListFile(path);
  if (file.status != PropertyListFile::Status::read) throw CommandError(file.error);
  return std::move(file.value);
}

}  // namespace

int dump(const Options& options) {
  const Value value = options.file == "-" ? readStandardInput() : readFile(options.file);
  if (options.isJson) {
    printJson(jsonFromValue(value));
  } else {
    printTree(value);
  }
  return done;
}

}  // namespace roster::tool
