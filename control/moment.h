// Moments: reading them from reports, logs and the command line, and writing them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlatch::control {

// A moment, and the time zone in which a clock showed it.
struct Moment {
  std::int64_t seconds;       // since 1970, in UTC
  std::int32_t zone_seconds;  // how far the zone is ahead of UTC

  // Returns what the clock showed, as seconds since 1970 as if it were UTC.
  [[nodiscard]] std::int64_t localSeconds() const { return seconds + zone_seconds; }
};

// Reads "2026-11-22 15:15:28.63 +0800"; the fraction is dropped, and without a zone it is the local
// one. Returns std::nullopt for any other form.
std::optional<Moment> momentIn(std::string_view text);

// Returns the moment as the local clock shows it.
Moment localMoment(std::int64_t seconds);

// Returns what a clock showed in the year, as seconds since 1970 as if it were UTC, for a stamp in
// the form "11-22 15:15:28".
std::optional<std::int64_t> localSecondsOf(std::string_view stamp, std::int32_t year);

// Returns the seconds since 1970 of a log line's stamp, in the form "11-22 15:15:28" and local
// time: in the newest year in which that is no more than a day after `now`. Returns std::nullopt
// for any other form.
std::optional<std::int64_t> secondsOfStamp(std::string_view stamp, std::int64_t now);

// Returns the moment that a user means: "30m", "2h" or "3d" before `now`, or the local time
// "2026-11-20" or "2026-11-20 18:00". Returns std::nullopt for any other form.
std::optional<std::int64_t> secondsMeantBy(std::string_view text, std::int64_t now);

// Returns "2026-11-22 15:15:28", in the moment's zone.
std::string textOf(const Moment& moment);
// Returns "2026-11-22T15:15:28+08:00".
std::string isoTextOf(const Moment& moment);

std::int32_t yearOf(const Moment& moment);

}  // namespace vorlatch::control
