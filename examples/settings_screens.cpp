#include <poll.h>
#include <roster/roster.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

/// Two settings screens are open on one device. Each adds, renames and deletes accounts, and after every step
/// both show the same list: a screen waits for its user and for the registry in one loop, brings in what
/// others have changed, and saves its own changes with a sync.

namespace {

using roster::AccountsManager;
using roster::RegistryWatch;

/// The other end of a screen's input and output.
struct Screen {
  pid_t process = 0;
  int input = -1;
  int output = -1;
};

roster::AccountPtr named(const AccountsManager& store, std::string_view name) {
  for (const auto& account : *store.allBasicAccounts()) {
    if (account->displayName() == name) return account;
  }
  return nullptr;
}

std::string list(const AccountsManager& store) {
  std::string names;
  for (const auto& account : *store.allBasicAccounts()) names += " " + account->displayName().str();
  return names;
}

/// What the user does: "add NAME", "rename NAME NEW", "delete NAME".
void perform(AccountsManager& store, const std::string& line) {
  std::istringstream words(line);
  std::string verb;
  std::string name;
  std::string newName;
  words >> verb >> name >> newName;
  if (verb == "add") {
    const auto account = roster::BasicAccount::accountWithTypeClass(roster::kMailAccountType, "IMAPAccount");
    account->setDisplayName(name);
    store.insertAccount(account);
  } else if (const auto account = named(store, name); account && verb == "rename") {
    account->setDisplayName(newName);
  } else if (account && verb == "delete") {
    store.deleteAccount(account);
  }
  const roster::SyncResult result = store.sync(std::chrono::seconds(5));
  if (result.error) std::cerr << result.error->message << '\n';
}

std::string readLine(int descriptor) {
  std::string line;
  for (char next = 0; read(descriptor, &next, 1) == 1 && next != '\n';) line += next;
  return line;
}

void writeLine(int descriptor, const std::string& line) {
  static_cast<void>(!write(descriptor, (line + "\n").c_str(), line.size() + 1));
}

int runScreen(int input, int output) {
  const auto store = AccountsManager::init();
  const auto watch = RegistryWatch::watchFor(store);
  if (!watch) {
    std::cerr << watch.error().message << '\n';
    return 1;
  }
  while (true) {
    pollfd ready[] = {{(*watch)->descriptor(), POLLIN, 0}, {input, POLLIN, 0}};
    if (poll(ready, 2, -1) == -1) return 1;
    // First what others did, so that the user sees it before acting on it.
    if (const auto done = (*watch)->dispatch([](const roster::AccountChange&) {}); !done)
      std::cerr << done.error().message << '\n';
    if (ready[1].revents == 0) continue;
    const std::string line = readLine(input);
    if (line.empty() || line == "close") return 0;
    if (line == "show") {
      writeLine(output, list(*store));
    } else {
      perform(*store, line);
      writeLine(output, "done");
    }
  }
}

Screen openScreen() {
  int input[2];
  int output[2];
  if (pipe(input) != 0 || pipe(output) != 0) return {};
  const pid_t process = fork();
  if (process == 0) {
    _exit(runScreen(input[0], output[1]));
  }
  close(input[0]);
  return {process, input[1], output[0]};
}

std::string ask(const Screen& screen, const std::string& line) {
  writeLine(screen.input, line);
  return readLine(screen.output);
}

}  // namespace

int main() {
  const Screen left = openScreen();
  const Screen right = openScreen();
  bool areSame = true;
  const std::pair<const Screen*, std::string> steps[] = {
      {&left, "add Work"},    {&right, "add Club"}, {&right, "rename Work Office"},
      {&left, "delete Club"}, {&left, "add Home"},  {&right, "delete Office"},
  };
  for (const auto& [screen, line] : steps) {
    ask(*screen, line);
    const std::string onLeft = ask(left, "show");
    const std::string onRight = ask(right, "show");
    areSame = areSame && onLeft == onRight;
    std::cout << (screen == &left ? "left:  " : "right: ") << line << "\n  left shows " << onLeft
              << "\n  right shows" << onRight << '\n';
  }
  for (const Screen& screen : {left, right}) {
    writeLine(screen.input, "close");
    waitpid(screen.process, nullptr, 0);
  }
  return areSame ? 0 : 1;
}
