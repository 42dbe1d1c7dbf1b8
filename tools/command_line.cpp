#include <sys/auxv.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>

#include "roster/platform/system_log.h"
#include "tools/commands.h"
#include "tools/printing.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr const char* description =
    "Shows and changes the registry of a device's user accounts.\n"
    "A change leaves alone what the library cannot use, and is refused while a migration is due. Where the\n"
    "registry itself is damaged, a copy of it is kept.\n"
    "Exit status: 0 done, if only with a warning; 1 failed or not found; 2 wrong usage.";

constexpr const char* globalOptions =
    "The options --root, --json and --verbose of 'rosterctl --help' may stand here too.";

constexpr const char* values =
    "KEY=TEXT stores the text as it stands. KEY:=JSON stores a number, true, false, [...] or {...}.\n"
    "The first = splits, so a key has none. What JSON lacks is an object with one key:\n"
    R"(  {"$data": "AAEC"}                    bytes in base64)"
    "\n"
    R"(  {"$date": "2024-02-29T12:00:00Z"}    an instant in UTC)"
    "\n"
    R"(  {"$real": "nan"}                     "nan", "inf" or "-inf")"
    "\n"
    R"(  {"$dictionary": {"$data": "AAEC"}}   an object that has such a key itself)"
    "\n"
    "'show --json' and 'dump --json' print the same.\n\n";

constexpr const char* force =
    "Change the registry although a migration is due, and give known keys values of any type";

constexpr const char* examples =
    "Examples:\n"
    "  rosterctl list --type Mail --type Exchange\n"
    "  rosterctl add CalDAV CalDAVAccount DisplayName=Work Port:=8443\n"
    "  rosterctl set ID DisplayName=Home 'LastSync:={\"$date\": \"2024-02-29T12:00:00Z\"}'\n"
    "  rosterctl add SMTP SMTPAccount Hostname=smtp.example.org --parent ID\n"
    "  rosterctl disable ID Mail Notes\n"
    "  rosterctl --root /tmp/demo --json show ID\n"
    "  rosterctl check old-registry.plist";

/// The parser splits a word in square brackets into a list. It leaves a word alone that begins with this
/// character.
constexpr char shield = '\x01';

std::string shielded(const std::string& word) {
  const bool isAtRisk = word.starts_with('[') || word.starts_with(shield);
  return isAtRisk ? shield + word : word;
}

void unshield(std::string& word) {
  if (word.starts_with(shield)) word.erase(0, 1);
}

/// The parser, the options it fills, and the command that was chosen.
class CommandLine {
 public:
  CommandLine(int count, const char* const* arguments) : app_(description, "rosterctl") {
    for (int index = count - 1; index > 0; --index) words_.push_back(shielded(arguments[index]));
    app_.footer(globalOptions);  // of each command: they inherit it when they are added
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.set_help_all_flag();
    app_.get_formatter()->column_width(34);
    app_.add_option("--root", root_, "Work on the device below this folder, as ROSTER_ROOT does")
        ->type_name("DIR");
    app_.add_flag("--json", options_.isJson, "Print JSON");
    app_.add_flag("--verbose", options_.isVerbose, "Print the library's log lines on the standard error");
    app_.set_version_flag("--version", "rosterctl " ROSTERCTL_VERSION);
    // Making a command takes longer than to see that it cannot be meant. Help names them all.
    const bool isHelpAsked = isHelpGiven();
    for (const Command& command : commands) {
      if (isHelpAsked || isGiven(command.name)) addCommand(command);
    }
    app_.footer(examples);
  }

  /// Throws CLI::ParseError.
  void parse() {
    app_.parse(std::move(words_));
    for (std::string* text : {&root_, &options_.identifier, &options_.type, &options_.accountClass,
                              &options_.parent, &options_.file}) {
      unshield(*text);
    }
    for (std::string& word : options_.words) unshield(word);
    if (const CLI::Option* root = app_.get_option("--root"); root->count() > 0) {
      if (root_.empty()) throw CommandError("--root", "the folder's name is empty", wrongUsage);
      // The library would not look at it, and the command would change the real device.
      if (getauxval(AT_SECURE) != 0) {
        throw CommandError("--root", "a set-uid program works on the device that it runs on only",
                           wrongUsage);
      }
      setenv("ROSTER_ROOT", root_.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): the tool has one thread
    }
  }

  int run() const {
    if (options_.isVerbose) setSystemLogSink(&note);
    return run_(options_);
  }

  int exit(const CLI::ParseError& error) const {
    if (error.get_exit_code() == 0) {
      const int status = app_.exit(error);
      flushOutput();
      return status;
    }
    const std::vector<CLI::App*> chosen = app_.get_subcommands();
    const std::vector<std::string> words = app_.remaining();
    const std::string help =
        "see 'rosterctl " + (chosen.empty() ? "" : chosen.front()->get_name() + " ") + "--help'";
    std::string message = error.what();
    if (chosen.empty() && words.empty()) message = "a command is missing";
    if (chosen.empty() && !words.empty()) message = words.front() + ": there is no such command";
    std::cerr << "rosterctl: " << singleLine(message) << "; " << help << '\n';
    return wrongUsage;
  }

 private:
  struct Command {
    const char* name;
    const char* help;
    int (*run)(const Options&);
    void (CommandLine::*describe)(CLI::App& command);
  };
  static const std::array<Command, 16> commands;

  bool isGiven(std::string_view word) const {
    return std::find(words_.begin(), words_.end(), word) != words_.end();
  }

  /// Whether one of the words asks for help.
  bool isHelpGiven() const {
    return std::any_of(words_.begin(), words_.end(), [](const std::string& word) {
      return word.starts_with("-h") || word.starts_with("--help");
    });
  }

  void addCommand(const Command& command) {
    CLI::App& added = *app_.add_subcommand(command.name, command.help);
    added.callback([this, run = command.run] { run_ = run; });
    (this->*command.describe)(added);
  }

  static CLI::Option& required(CLI::App& command, const char* name, std::string& value, const char* help) {
    return *command.add_option(name, value, help)->required()->type_name("");
  }

  CLI::Option& words(CLI::App& command, const char* name, const char* help) {
    return *command.add_option(name, options_.words, help)->type_name("");
  }

  void addForce(CLI::App& command) { command.add_flag("--force", options_.isForced, force); }

  // What each command takes beside the options of all.

  void nothing(CLI::App& /*command*/) {}

  void account(CLI::App& command) {
    required(command, "ID", options_.identifier, "The account's identifier");
  }

  void accountTypes(CLI::App& command) {
    command.add_option("--type", options_.types, "Only accounts of this type; may be repeated")
        ->allow_extra_args(false)
        ->type_name("TYPE");
  }

  void creatorsType(CLI::App& command) {
    command.add_option("TYPE", options_.type, "Only those of this type")->type_name("");
  }

  void newAccount(CLI::App& command) {
    required(command, "TYPE", options_.type, "The account's type, as 'rosterctl types' lists them");
    required(command, "CLASS", options_.accountClass, "The name of the class that implements the account");
    command.footer(std::string(values) + globalOptions);
    words(command, "PROPERTY", "KEY=TEXT or KEY:=JSON");
    command.add_option("--parent", options_.parent, "Make it a child of this account")->type_name("ID");
    addForce(command);
  }

  void assignments(CLI::App& command) {
    account(command);
    command.footer(std::string(values) + globalOptions);
    words(command, "PROPERTY", "KEY=TEXT or KEY:=JSON").required();
    addForce(command);
  }

  void keys(CLI::App& command) {
    account(command);
    words(command, "KEY", "The property's key").required();
    addForce(command);
  }

  void dataclassNames(CLI::App& command) {
    account(command);
    words(command, "DATACLASS", "A dataclass, as \"Mail\" or in full").required();
    addForce(command);
  }

  void doomedAccount(CLI::App& command) {
    account(command);
    addForce(command);
  }

  void file(CLI::App& command) {
    required(command, "FILE", options_.file, "The property list; - is the standard input");
  }

  void registry(CLI::App& command) {
    command.add_option("FILE", options_.file, "The registry; that of the device if there is none")
        ->type_name("");
  }

  void rehearsal(CLI::App& command) {
    command.add_flag("--dry-run", options_.isDryRun, "Only tell what would be done, and why");
  }

  /// The arguments, the last one first, as the parser takes them.
  std::vector<std::string> words_;
  CLI::App app_;
  Options options_;
  std::string root_;
  int (*run_)(const Options&) = nullptr;
};

const std::array<CommandLine::Command, 16> CommandLine::commands = {{
    {"list", "List the accounts, each followed by its children", &list, &CommandLine::accountTypes},
    {"show", "Show the stored properties of one account", &show, &CommandLine::account},
    {"watch", "Print each change to the registry as it happens, until it is interrupted", &watch,
     &CommandLine::nothing},
    {"types", "List the account types and what they can do", &types, &CommandLine::nothing},
    {"dataclasses", "List the dataclasses and how they behave", &dataclasses, &CommandLine::nothing},
    {"creators", "List the plug-in classes that serve each account type, and whether they work", &creators,
     &CommandLine::creatorsType},
    {"add", "Add an account and print its new identifier", &add, &CommandLine::newAccount},
    {"set", "Set properties of an account", &set, &CommandLine::assignments},
    {"unset", "Remove properties of an account", &unset, &CommandLine::keys},
    {"enable", "Switch dataclasses of an account on", &enable, &CommandLine::dataclassNames},
    {"disable", "Switch dataclasses of an account off", &disable, &CommandLine::dataclassNames},
    {"delete", "Delete an account with its children, or one child", &deleteAccount,
     &CommandLine::doomedAccount},
    {"dump", "Print any property list, binary or XML", &dump, &CommandLine::file},
    {"check", "Tell what loading a registry would drop, repair or ignore, and why", &check,
     &CommandLine::registry},
    {"migrate", "Bring accounts that older system versions left into the registry", &migrate,
     &CommandLine::rehearsal},
    {"wait-for-migration", "Return when no migration is running any more", &waitForMigration,
     &CommandLine::nothing},
}};

int report(const std::string& message, int status) {
  std::cerr << "rosterctl: " << singleLine(message) << '\n';
  return status;
}

/// Runs the command that the arguments name and returns the program's exit status.
int runCommandLine(int argumentCount, const char* const* arguments) {
  try {
    CommandLine line(argumentCount, arguments);
    try {
      line.parse();
    } catch (const CLI::ParseError& error) {
      return line.exit(error);
    }
    const int status = line.run();
    flushOutput();
    return status;
  } catch (const CommandError& error) {
    return report(error.what(), error.status());
  } catch (const std::exception& error) {
    return report(error.what(), failed);
  }
}

}  // namespace

}  // namespace roster::tool

int main(int argumentCount, char** arguments) {
  return roster::tool::runCommandLine(argumentCount, arguments);
}
