#include "bench/first_load.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "bench/generated_registry.h"
#include "roster/store/accounts_manager.h"

namespace roster::bench {

namespace {

/// An order to measure one load: the device's root, and what its registry holds.
struct Order {
  std::array<char, PATH_MAX> root{};
  std::size_t accounts = 0;
};

template <class Message>
bool send(int descriptor, const Message& message) {
  return write(descriptor, &message, sizeof message) == static_cast<ssize_t>(sizeof message);
}

template <class Message>
bool receive(int descriptor, Message& message) {
  return read(descriptor, &message, sizeof message) == static_cast<ssize_t>(sizeof message);
}

/// Seconds; 0 when not all accounts were loaded.
double timeOfLoad(std::size_t accounts) {
  const auto start = std::chrono::steady_clock::now();
  const auto store = AccountsManager::init();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  return store->count() == accounts ? taken.count() : 0;
}

enum class State { cold, warm };

/// A process that has loaded, or has not, and forks another one for each load that is measured.
class Origin {
 public:
  explicit Origin(State state) {
    std::array<int, 2> orders{};
    std::array<int, 2> times{};
    if (pipe(orders.data()) != 0 || pipe(times.data()) != 0)
      throw std::runtime_error("could not make a pipe");
    process_ = fork();
    if (process_ == 0) {
      close(orders[1]);
      obey(orders[0], times[1], state);
      _exit(0);
    }
    close(orders[0]);
    close(times[1]);
    orders_ = orders[1];
    times_ = times[0];
  }
  Origin(const Origin&) = delete;
  Origin& operator=(const Origin&) = delete;
  ~Origin() {
    close(orders_);
    close(times_);
    waitpid(process_, nullptr, 0);
  }

  double timeOf(const Order& order) const {
    double seconds = 0;
    if (!send(orders_, order) || !receive(times_, seconds) || seconds == 0)
      throw std::runtime_error("could not measure a first load");
    return seconds;
  }

 private:
  static void obey(int orders, int times, State state) {
    Order order;
    while (receive(orders, order)) {
      setenv("ROSTER_ROOT", order.root.data(), 1);
      if (state == State::warm) timeOfLoad(order.accounts);
      const pid_t child = fork();
      if (child == 0) _exit(send(times, timeOfLoad(order.accounts)) ? 0 : 1);
      waitpid(child, nullptr, 0);
    }
  }

  pid_t process_ = -1;
  int orders_ = -1;
  int times_ = -1;
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

std::vector<FirstLoad> measureFirstLoads() {
  // Before a registry is made below, which uses the library.
  const Origin coldOrigin(State::cold);
  const Origin warmOrigin(State::warm);
  std::vector<FirstLoad> measured;
  for (const std::size_t accounts : {10UL, 100UL}) {
    const BenchDevice device(registryOf(accounts).bytes);
    Order order{.accounts = accounts};
    const std::string root = std::getenv("ROSTER_ROOT");
    root.copy(order.root.data(), order.root.size() - 1);
    constexpr int turns = 501;
    std::vector<double> cold;
    std::vector<double> warm;
    std::vector<double> beyond;
    for (int turn = 0; turn < turns; ++turn) {
      cold.push_back(coldOrigin.timeOf(order));
      warm.push_back(warmOrigin.timeOf(order));
      beyond.push_back(cold.back() - warm.back());
    }
    measured.push_back({accounts, median(cold), median(warm), median(beyond)});
  }
  return measured;
}

}  // namespace roster::bench
