// Reads a property list and writes it again in the binary format: plist_copy FROM TO.
#include <fstream>
#include <iostream>

#include "roster/roster.h"

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const roster::Result<roster::Value> file = roster::readPropertyListFile(arguments[1]);
  const roster::Result<std::string> bytes = file ? roster::binaryPropertyList(*file) : file.error();
  if (bytes && std::ofstream(arguments[2], std::ofstream::binary) << *bytes << std::flush) return 0;
  std::cerr << "plist_copy: " << (bytes ? arguments[2] : bytes.error().message) << '\n';
  return 1;
}
