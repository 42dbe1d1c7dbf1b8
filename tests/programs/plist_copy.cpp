// Reads a property list and writes it again in the binary format: plist_copy FROM TO.
#include <cstdio>
#include <fstream>

#include "roster/roster.h"

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const roster::Result<roster::Value> file = roster::readPropertyListFile(arguments[1]);
  if (!file) {
    std::fprintf(stderr, "plist_copy: %s\n", file.error().message.c_str());
    return 1;
  }
  const roster::Result<std::string> bytes = roster::binaryPropertyList(*file);
  if (!bytes) {
    std::fprintf(stderr, "plist_copy: could not write %s: %s\n", arguments[2], bytes.error().message.c_str());
    return 1;
  }
  std::ofstream out(arguments[2], std::ofstream::binary);
  out << *bytes;
  out.close();
  return out ? 0 : 1;
}
