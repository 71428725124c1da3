#include "control/log_stamp.h"

#include <array>
#include <ctime>

namespace vorlatch::control {
namespace {

constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr int kLongestLeapGap = 8;  // years between two 29ths of February, as around 2100

int yearOf(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&time, &local);
  return local.tm_year;
}

// Returns month, day, hour, minute and second; empty if the stamp has another form.
std::optional<std::array<int, 5>> numbersOf(std::string_view stamp) {
  constexpr std::string_view kForm = "00-00 00:00:00";
  if (stamp.size() != kForm.size()) return std::nullopt;
  std::array<int, 5> numbers{};
  std::size_t index = 0;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    if (kForm[i] != '0') {
      if (stamp[i] != kForm[i]) return std::nullopt;
      ++index;
    } else {
      if (stamp[i] < '0' || stamp[i] > '9') return std::nullopt;
      numbers[index] = numbers[index] * 10 + (stamp[i] - '0');
    }
  }
  return numbers;
}

}  // namespace

std::optional<std::int64_t> secondsOfStamp(std::string_view stamp, std::int64_t now) {
  const auto numbers = numbersOf(stamp);
  if (!numbers) return std::nullopt;
  const auto [month, day, hour, minute, second] = *numbers;
  const int next_year = yearOf(now) + 1;
  for (int year = next_year; year >= next_year - 1 - kLongestLeapGap; --year) {
    std::tm local{};
    local.tm_year = year;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    const std::int64_t seconds = std::mktime(&local);
    // mktime moves a date that the year does not have into the next month.
    const bool exists = local.tm_mon == month - 1 && local.tm_mday == day &&
                        local.tm_min == minute && local.tm_sec == second;
    if (exists && seconds <= now + kSecondsPerDay) return seconds;
  }
  return std::nullopt;
}

}  // namespace vorlatch::control
