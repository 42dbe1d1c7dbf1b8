#include <clocale>

#include "tools/command_line.h"

int main(int argumentCount, char** arguments) {
  // What the columns of a terminal depend on; everything read and written is UTF-8, whatever the user's
  // locale.
  // Should there be no such locale, columns are less straight. NOLINTNEXTLINE(concurrency-mt-unsafe): one
  // thread
  static_cast<void>(std::setlocale(LC_CTYPE, "C.UTF-8"));
  return roster::tool::runCommandLine(argumentCount, arguments);
}
