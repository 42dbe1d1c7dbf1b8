#include <roster/account/vocabulary.h>
#include <roster/roster.h>

#include <iostream>

int main() {
  // A constant, a class and a copy of it: data, code and type information, all from the shared library.
  const roster::Value type = roster::kMailAccountType;
  std::cout << (type == roster::Value("Mail") ? "consumer works" : "consumer reads another vocabulary")
            << '\n';
}
