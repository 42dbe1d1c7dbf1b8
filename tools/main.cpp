#include <clocale>

#include "tools/command_line.h"

int main(int argumentCount, char** arguments) {
  // For the widths of characters: all text here is UTF-8, whatever the user's locale. Without it columns are
  // less straight, which is no reason to stop.
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has started
  static_cast<void>(std::setlocale(LC_CTYPE, "C.UTF-8"));
  return roster::tool::runCommandLine(argumentCount, arguments);
}
