// The time zone of the process.
#pragma once

#include <cstdlib>
#include <ctime>

namespace ov {

inline void SetTimeZone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

}  // namespace ov
