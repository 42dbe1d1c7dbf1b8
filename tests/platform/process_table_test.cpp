#include "roster/platform/process_table.h"

#include <sys/prctl.h>

#include <csignal>
#include <filesystem>

#include "tests/store/store_test.h"

namespace roster::testing {
namespace {

std::string nameOf(std::int32_t identifier) {
  const Result<std::vector<Process>> processes = processTable();
  if (!processes) return processes.error().message;
  for (const Process& process : *processes) {
    if (process.identifier == identifier) return process.name;
  }
  return "not there";
}

/// Starts a process that ends with the test's and, at the latest when `begin` has returned, stops itself.
pid_t startStopped(const std::function<void()>& begin) {
  const pid_t process = startProcess([&] {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    begin();
    return raise(SIGSTOP) == 0;
  });
  EXPECT_EQ(waitpid(process, nullptr, WUNTRACED), process);
  return process;
}

TEST(ProcessTable, HoldsProcessesByTheirNamesWhateverTheseContain) {
  EXPECT_EQ(nameOf(ownProcessIdentifier()), "roster_tests");
  for (const char* name : {") Z 1 (", "fifteen letters", ""})
    EXPECT_EQ(nameOf(startStopped([&] { prctl(PR_SET_NAME, name); })), name);
  const TemporaryDevice device;
  const std::string program = device.path("abcdefghijklmnopq");
  std::filesystem::create_symlink("/bin/sh", program);
  const auto run = [&] { execl(program.c_str(), program.c_str(), "-c", "kill -STOP $$; :", nullptr); };
  EXPECT_EQ(nameOf(startStopped(run)), "abcdefghijklmnop") << "one letter more than the kernel keeps";
}

TEST(ProcessTable, KillsAProcessOnlyUnderItsOwnNameAndHoldsItNoMoreThoughNobodyReapsIt) {
  const pid_t process = startStopped([] { prctl(PR_SET_NAME, "victim"); });
  const auto failure = [&](std::string_view name) { return errorOf(killProcess(process, name)); };
  EXPECT_EQ(failure("vic"), formatted("could not kill the process %d (vic): it is gone", process));
  EXPECT_EQ(failure("victim"), "none");
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
  EXPECT_EQ(info.si_status, SIGKILL);
  EXPECT_EQ(nameOf(process), "not there");
}

}  // namespace
}  // namespace roster::testing
