// Times as programs read them: 2026-11-22T15:15:28+08:00.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlatch::control {

// Returns the local time in ISO 8601, with the zone's offset. Takes seconds since 1970.
std::string isoTime(std::int64_t seconds);

// Returns the seconds since 1970 of a log line's stamp, "MM-dd HH:mm:ss" in ASCII digits: in the
// newest year in which that is no more than a day after `now`. Empty for stamps of another form.
std::optional<std::int64_t> secondsOfStamp(std::string_view stamp, std::int64_t now);

}  // namespace vorlatch::control
