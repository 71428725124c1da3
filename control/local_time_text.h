// Times as text, in the local time zone.
#pragma once

#include <cstdint>
#include <string>

namespace vorlatch::control {

// Return a time, given in seconds since 1970, in ISO 8601 ("2026-11-22T15:15:28+08:00"), and for
// people ("2026-11-22 15:15:28").
std::string isoTime(std::int64_t seconds);
std::string readableTime(std::int64_t seconds);

}  // namespace vorlatch::control
