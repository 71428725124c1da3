#include "control/moment.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace vorlatch::control {
namespace {

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kFarthestZoneHours = 14;

// Takes the parts of a text from its front. After a part that is missing, every further one is
// missing, too.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  // Takes exactly so many digits, or as many as follow, at most 9, if `digits` is 0.
  std::int64_t number(std::size_t digits, std::int64_t lowest, std::int64_t highest) {
    constexpr std::size_t kMostDigits = 9;
    std::int64_t value = 0;
    std::size_t taken = 0;
    while (taken < (digits == 0 ? kMostDigits : digits) && !rest_.empty() && rest_[0] >= '0' &&
           rest_[0] <= '9') {
      value = value * 10 + (rest_[0] - '0');
      rest_.remove_prefix(1);
      ++taken;
    }
    is_good_ = is_good_ && taken > 0 && (digits == 0 || taken == digits) && value >= lowest &&
               value <= highest;
    return value;
  }
  void expect(char c) {
    if (!takes(c)) is_good_ = false;
  }
  // Takes the character if it comes next.
  bool takes(char c) {
    if (rest_.empty() || rest_[0] != c) return false;
    rest_.remove_prefix(1);
    return true;
  }
  [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }
  [[nodiscard]] bool isGood() const { return is_good_; }
  [[nodiscard]] bool hasTakenAll() const { return is_good_ && rest_.empty(); }
  void fail() { is_good_ = false; }

 private:
  std::string_view rest_;
  bool is_good_ = true;
};

std::int64_t takeMonthAndDay(Scanner& scanner, std::int64_t year) {
  const auto month = static_cast<unsigned>(scanner.number(2, 1, 12));
  scanner.expect('-');
  const auto day = static_cast<unsigned>(scanner.number(2, 1, 31));
  const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)),
                                         std::chrono::month(month), std::chrono::day(day)};
  if (!scanner.isGood() || !date.ok()) {
    scanner.fail();
    return 0;
  }
  return std::chrono::sys_days(date).time_since_epoch().count() * kDay;
}

std::int64_t takeDate(Scanner& scanner) {
  const std::int64_t year = scanner.number(4, 1970, 9999);
  scanner.expect('-');
  return takeMonthAndDay(scanner, year);
}

std::int64_t takeHourAndMinute(Scanner& scanner) {
  const std::int64_t hours = scanner.number(2, 0, 23);
  scanner.expect(':');
  return hours * kHour + scanner.number(2, 0, 59) * kMinute;
}

std::int64_t takeTime(Scanner& scanner) {
  const std::int64_t seconds = takeHourAndMinute(scanner);
  scanner.expect(':');
  return seconds + scanner.number(2, 0, 60);
}

std::chrono::year_month_day dateOf(std::int64_t local_seconds) {
  const std::chrono::sys_seconds local{std::chrono::seconds(local_seconds)};
  return std::chrono::floor<std::chrono::days>(local);
}

// Returns how far the local zone is ahead of UTC when its clock shows this.
std::int64_t localZone(std::int64_t local_seconds) {
  constexpr int kTmYear = 1900;
  const std::chrono::year_month_day date = dateOf(local_seconds);
  std::tm parts{};
  parts.tm_year = static_cast<int>(date.year()) - kTmYear;
  parts.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
  parts.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
  parts.tm_hour = static_cast<int>(local_seconds % kDay / kHour);
  parts.tm_min = static_cast<int>(local_seconds % kHour / kMinute);
  parts.tm_sec = static_cast<int>(local_seconds % kMinute);
  parts.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&parts);
  return seconds == -1 ? 0 : local_seconds - std::int64_t{seconds};
}

std::int64_t takeZone(Scanner& scanner) {
  const bool is_behind = scanner.takes('-');
  if (!is_behind) scanner.expect('+');
  const std::int64_t seconds =
      scanner.number(2, 0, kFarthestZoneHours) * kHour + scanner.number(2, 0, 59) * kMinute;
  return is_behind ? -seconds : seconds;
}

std::optional<std::int64_t> ageIn(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const char unit_name = text.back();
  const std::int64_t unit = unit_name == 'm'   ? kMinute
                            : unit_name == 'h' ? kHour
                            : unit_name == 'd' ? kDay
                                               : 0;
  constexpr std::int64_t kMost = 999'999;
  Scanner scanner(text.substr(0, text.size() - 1));
  const std::int64_t count = scanner.number(0, 0, kMost);
  if (unit == 0 || !scanner.hasTakenAll()) return std::nullopt;
  return count * unit;
}

// Returns the moment's date and time, with the character between them.
std::string clockText(const Moment& moment, char between) {
  constexpr std::size_t kLongest = 40;
  const std::chrono::year_month_day date = dateOf(moment.localSeconds());
  const std::int64_t second = (moment.localSeconds() % kDay + kDay) % kDay;
  std::string text(kLongest, '\0');
  const int length =
      std::snprintf(text.data(), text.size(), "%04d-%02u-%02u%c%02d:%02d:%02d",
                    static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                    static_cast<unsigned>(date.day()), between, static_cast<int>(second / kHour),
                    static_cast<int>(second % kHour / kMinute), static_cast<int>(second % kMinute));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace

std::optional<Moment> momentIn(std::string_view text) {
  Scanner scanner(text);
  const std::int64_t date = takeDate(scanner);
  scanner.expect(' ');
  const std::int64_t local = date + takeTime(scanner);
  if (scanner.takes('.')) scanner.number(0, 0, 999'999'999);
  if (!scanner.isGood()) return std::nullopt;
  std::int64_t zone = 0;
  if (scanner.isAtEnd()) {
    zone = localZone(local);
  } else {
    scanner.expect(' ');
    zone = takeZone(scanner);
  }
  if (!scanner.hasTakenAll()) return std::nullopt;
  return Moment{.seconds = local - zone, .zone_seconds = static_cast<std::int32_t>(zone)};
}

Moment localMoment(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  localtime_r(&time, &parts);
  return {.seconds = seconds, .zone_seconds = static_cast<std::int32_t>(parts.tm_gmtoff)};
}

std::optional<std::int64_t> localSecondsOf(std::string_view stamp, std::int32_t year) {
  Scanner scanner(stamp);
  const std::int64_t date = takeMonthAndDay(scanner, year);
  scanner.expect(' ');
  const std::int64_t time = takeTime(scanner);
  return scanner.hasTakenAll() ? std::optional(date + time) : std::nullopt;
}

std::optional<std::int64_t> secondsOfStamp(std::string_view stamp, std::int64_t now) {
  constexpr std::int32_t kLongestLeapGap = 8;  // years between two 29ths of February, around 2100
  const std::int32_t next_year = yearOf(localMoment(now)) + 1;
  for (std::int32_t year = next_year; year >= next_year - 1 - kLongestLeapGap; --year) {
    const auto local = localSecondsOf(stamp, year);
    if (!local) continue;
    const std::int64_t seconds = *local - localZone(*local);
    if (seconds <= now + kDay) return seconds;
  }
  return std::nullopt;
}

std::optional<std::int64_t> secondsMeantBy(std::string_view text, std::int64_t now) {
  if (const auto age = ageIn(text)) return now - *age;
  Scanner scanner(text);
  std::int64_t local = takeDate(scanner);
  if (scanner.takes(' ') || scanner.takes('T')) {
    local += takeHourAndMinute(scanner);
    if (scanner.takes(':')) local += scanner.number(2, 0, 60);
  }
  if (!scanner.hasTakenAll()) return std::nullopt;
  return local - localZone(local);
}

std::string textOf(const Moment& moment) {
  return clockText(moment, ' ');
}

std::string isoTextOf(const Moment& moment) {
  constexpr std::size_t kLongest = 16;
  const std::int32_t minutes = std::abs(moment.zone_seconds) / static_cast<std::int32_t>(kMinute);
  std::string zone(kLongest, '\0');
  const int length = std::snprintf(zone.data(), zone.size(), "%c%02d:%02d",
                                   moment.zone_seconds < 0 ? '-' : '+', minutes / 60, minutes % 60);
  zone.resize(static_cast<std::size_t>(length));
  return clockText(moment, 'T') + zone;
}

std::int32_t yearOf(const Moment& moment) {
  return static_cast<int>(dateOf(moment.localSeconds()).year());
}

}  // namespace vorlatch::control
