#include "roster/store/damaged_copies.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>

#include "roster/platform/file_system.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view marker = ".damaged-";
constexpr std::string_view timeForm = "00000000T000000Z";
constexpr std::size_t maximumCopies = 8;

/// The present moment as file names can carry it: 20261121T080905Z.
std::string utcTime() {
  using namespace std::chrono;
  const auto now = floor<seconds>(system_clock::now());
  const auto today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss time(now - today);
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%04d%02u%02uT%02d%02d%02dZ",
                                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                                  static_cast<int>(time.minutes().count()),
                                  static_cast<int>(time.seconds().count())));
  return text.data();
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// The number of a copy that was made at the time: 1 without one. Nothing when the name of the file does not
/// go on, after the marker, as this library writes it.
std::optional<unsigned> numberOf(std::string_view rest) {
  if (rest.size() < timeForm.size()) return std::nullopt;
  for (std::size_t index = 0; index < timeForm.size(); ++index) {
    const bool isRight = isDigit(timeForm[index]) ? isDigit(rest[index]) : rest[index] == timeForm[index];
    if (!isRight) return std::nullopt;
  }
  rest.remove_prefix(timeForm.size());
  if (rest.empty()) return 1;
  unsigned number = 0;
  const auto [end, error] = std::from_chars(rest.data() + 1, rest.data() + rest.size(), number);
  const bool isNumber = rest[0] == '-' && error == std::errc() && end == rest.data() + rest.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

/// Whether the copy is the registry under a second name, or holds the same bytes. The registry is read when
/// that is needed for the first time.
bool holdsSame(const std::string& copy, const std::string& registry, std::optional<Result<Bytes>>& content) {
  std::error_code ignored;
  if (fs::equivalent(copy, registry, ignored)) return true;
  const Result<FileStamp> here = fileStamp(registry);
  const Result<FileStamp> there = fileStamp(copy);
  if (!here || !there || here->size != there->size) return false;
  if (!content) content = readFile(registry);
  if (!*content) return false;
  const Result<Bytes> kept = readFile(copy);
  return kept && kept->text() == (**content).text();
}

}  // namespace

std::vector<std::string> DamagedCopies::list() const {
  const std::string prefix = registry_.substr(registry_.rfind('/') + 1).append(marker);
  std::vector<std::tuple<std::string, unsigned, std::string>> found;
  const Result<std::vector<std::string>> names = namesIn(folderOf(registry_));
  if (!names) return {};
  for (const std::string& name : *names) {
    if (!name.starts_with(prefix)) continue;
    const std::string_view rest = std::string_view(name).substr(prefix.size());
    const std::optional<unsigned> number = numberOf(rest);
    if (!number) continue;
    std::string path = std::string(registry_).append(marker).append(rest);
    std::error_code ignored;
    if (fs::symlink_status(path, ignored).type() != fs::file_type::regular) continue;
    found.emplace_back(rest.substr(0, timeForm.size()), *number, std::move(path));
  }
  std::sort(found.begin(), found.end());
  std::vector<std::string> paths;
  paths.reserve(found.size());
  for (auto& [time, number, path] : found) paths.push_back(std::move(path));
  return paths;
}

Result<DamagedCopies::Copy> DamagedCopies::keep() const {
  std::optional<Result<Bytes>> content;
  for (std::string& copy : list())
    if (holdsSame(copy, registry_, content)) return Copy{std::move(copy), false};
  content.reset();

  constexpr int maximumAttempts = 1000;
  const std::string base = std::string(registry_).append(marker) + utcTime();
  std::string name = base;
  for (int attempt = 2;; ++attempt) {
    const Result<> kept = keepFileAs(registry_, name);
    if (kept) return Copy{name, true};
    // Only a name that is taken is a reason to try another one.
    if (kept.error().code != std::errc::file_exists || attempt > maximumAttempts) return kept.error();
    name = base + "-" + std::to_string(attempt);
  }
}

void DamagedCopies::settle(const Copy& copy, bool isReplaced, const std::string& damage) const {
  std::error_code ignored;
  if (!isReplaced && !copy.isNew) return;
  // While the damaged file is still in its place, a second name for it is of no use.
  if (!isReplaced && fs::equivalent(registry_, copy.path, ignored)) {
    fs::remove(copy.path, ignored);
    return;
  }
  systemLog("Kept the damaged registry %@ as %@%s: %@", registry_, copy.path,
            copy.isNew ? "" : ", which held the same already", damage);
  std::vector<std::string> others = list();
  std::erase(others, copy.path);
  for (std::size_t index = 0; index + maximumCopies <= others.size(); ++index)
    fs::remove(others[index], ignored);
}

}  // namespace roster
