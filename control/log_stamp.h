// Reads the stamps of log lines.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vorlatch::control {

// Returns the seconds since 1970 of a log line's stamp, "MM-dd HH:mm:ss" in ASCII digits: in the
// newest year in which that is no more than a day after `now`. Empty for stamps of another form.
std::optional<std::int64_t> secondsOfStamp(std::string_view stamp, std::int64_t now);

}  // namespace vorlatch::control
