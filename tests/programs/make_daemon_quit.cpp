// Makes the sync-accounts daemon quit, as a migration does, and prints the log on the standard error.
#include <cstdio>
#include <string>

#include "roster/roster.h"

int main() {
  roster::setSystemLogSink(
      [](std::string_view line) { std::fprintf(stderr, "%s\n", std::string(line).c_str()); });
  roster::AccountsManager::killTesseraIfNecessary();
}
