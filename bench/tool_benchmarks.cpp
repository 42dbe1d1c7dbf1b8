#include "bench/tool_benchmarks.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/generated_registry.h"
#include "bench/iteration_timer.h"

namespace roster::bench {

namespace {

using Command = std::vector<std::string>;
enum class Output { thrownAway, readByAnother };

void require(bool isTrue, const std::string& what) {
  if (!isTrue) throw std::runtime_error(what);
}

/// This process's environment, except for its own resources: each program is to find those that it comes
/// with.
std::vector<char*> environmentOfOthers() {
  std::vector<char*> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with("ROSTER_RESOURCES=")) variables.push_back(*variable);
  }
  variables.push_back(nullptr);
  return variables;
}

/// Starts a program. The memory of this process, which holds large registries, is not copied for it.
pid_t start(const Command& command, int output) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t process = 0;
  const int error = posix_spawn(&process, arguments.front(), &actions, nullptr, arguments.data(),
                                environmentOfOthers().data());
  posix_spawn_file_actions_destroy(&actions);
  require(error == 0, "could not start " + command.front());
  return process;
}

void waitForSuccess(pid_t process, const Command& command) {
  int status = 0;
  while (waitpid(process, &status, 0) == -1) require(errno == EINTR, "waitpid");
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, command.front() + " failed");
}

void readToTheEnd(int fd) {
  std::array<char, 64 * 1024> block{};
  while (read(fd, block.data(), block.size()) > 0) {
  }
}

/// Runs a program from its start to its end.
void runProgram(const Command& command, Output output) {
  if (output == Output::thrownAway) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    require(nowhere >= 0, "open");
    const pid_t process = start(command, nowhere);
    close(nowhere);
    return waitForSuccess(process, command);
  }
  std::array<int, 2> ends{};
  require(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
  const pid_t process = start(command, ends[1]);
  close(ends[1]);
  readToTheEnd(ends[0]);
  close(ends[0]);
  waitForSuccess(process, command);
}

void timeProgram(benchmark::State& state, const Command& command, Output output = Output::thrownAway) {
  for (auto _ : state) {
    const IterationTimer timer(state);
    runProgram(command, output);
  }
}

/// The program with the identifier of an account behind its other arguments. It finds a registry that an
/// earlier change has made durable, as on a device.
void timeOnAccount(benchmark::State& state, Command command, const Command& behind = {}) {
  const GeneratedRegistry& registry = registryOf(static_cast<std::size_t>(state.range(0)));
  const BenchDevice device(registry.bytes);
  const std::string& identifier = registry.identifiers[registry.identifiers.size() / 2];
  runProgram({ROSTER_LIBRARY_CHANGE, identifier}, Output::thrownAway);
  command.push_back(identifier);
  command.insert(command.end(), behind.begin(), behind.end());
  timeProgram(state, command);
}

void timeList(benchmark::State& state, const Command& command, Output output) {
  const BenchDevice device(registryOf(static_cast<std::size_t>(state.range(0))).bytes);
  timeProgram(state, command, output);
}

}  // namespace

void registerToolBenchmarks() {
  const std::string tool = ROSTERCTL;
  if (tool.empty()) return;
  // The times of single processes: their median is not moved by the few that something else on the machine
  // has held up.
  const auto add = [](const char* name, std::int64_t accounts, int processes, auto run) {
    benchmark::RegisterBenchmark(name, run)->Arg(accounts)->UseManualTime()->Iterations(1)->Repetitions(
        processes);
  };
  constexpr int starts = 101;
  add("true", 0, starts, [](benchmark::State& state) { timeProgram(state, {"/bin/true"}); });
  add("rosterctl", 0, starts, [tool](benchmark::State& state) { timeProgram(state, {tool, "--version"}); });
  add("library change", 0, starts,
      [](benchmark::State& state) { timeProgram(state, {ROSTER_LIBRARY_CHANGE}); });

  constexpr std::int64_t accounts = 10'000;
  constexpr int runs = 25;
  add("library change", accounts, runs,
      [](benchmark::State& state) { timeOnAccount(state, {ROSTER_LIBRARY_CHANGE}); });
  add("rosterctl set", accounts, runs, [tool](benchmark::State& state) {
    timeOnAccount(state, {tool, "set"}, {"DisplayName=Home"});
  });
  add("rosterctl show", accounts, runs, [tool](benchmark::State& state) {
    timeOnAccount(state, {tool, "show"});
  });
  const auto addList = [&](const char* name, const Command& command, Output output) {
    add(name, accounts, runs,
        [command, output](benchmark::State& state) { timeList(state, command, output); });
  };
  addList("rosterctl list", {tool, "list"}, Output::thrownAway);
  addList("rosterctl list, read", {tool, "list"}, Output::readByAnother);
  addList("rosterctl list --json", {tool, "list", "--json"}, Output::thrownAway);
}

}  // namespace roster::bench
