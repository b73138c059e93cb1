#include "backup/runtime/posix_time.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <limits>

namespace {

constexpr long long seconds_a_day = 86400;

struct Quotient {
  long long quotient;
  long long remainder;  // 0 to divisor - 1
};

constexpr Quotient floor_divide(long long dividend, long long divisor) {
  long long const quotient = dividend / divisor;
  long long const remainder = dividend % divisor;
  return remainder < 0 ? Quotient{quotient - 1, remainder + divisor} : Quotient{quotient, remainder};
}

struct Date {
  long long year;
  int month;        // 0: January
  int day;          // from 1
  int day_of_year;  // 0: January 1
};

bool is_leap(long long year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

// Counts in years that start on March 1, so that a leap day is the last of its year, and in the calendar's period of
// 400 years from March 1 of year 0: H. Hinnant, "chrono-Compatible Low-Level Date Algorithms".
Date date_of(long long days_since_epoch) {
  constexpr long long epoch = 719468;  // 1970-01-01 in days since 0000-03-01
  constexpr long long days_in_400_years = 146097;
  constexpr long long days_in_100_years = 36524;
  constexpr long long days_in_4_years = 1461;
  auto const [period, day_of_period] = floor_divide(days_since_epoch + epoch, days_in_400_years);
  // The last century and the last year of four may have one day more than their divisor.
  long long const century = std::min(day_of_period / days_in_100_years, 3LL);
  long long const day_of_century = day_of_period - century * days_in_100_years;
  long long const leap_cycle = day_of_century / days_in_4_years;
  long long const day_of_cycle = day_of_century % days_in_4_years;
  long long const year_of_cycle = std::min(day_of_cycle / 365, 3LL);
  int const day_of_year = static_cast<int>(day_of_cycle - year_of_cycle * 365);  // 0: March 1
  int const month = (5 * day_of_year + 2) / 153;                                 // 0: March; five months have 153 days
  int const day = day_of_year - (153 * month + 2) / 5 + 1;
  long long const year = 400 * period + 100 * century + 4 * leap_cycle + year_of_cycle;
  constexpr int march = 2;
  constexpr int days_before_march = 59;
  constexpr int days_from_march = 306;
  if (day_of_year >= days_from_march) return {year + 1, month + march - 12, day, day_of_year - days_from_march};
  return {year, month + march, day, day_of_year + days_before_march + (is_leap(year) ? 1 : 0)};
}

// "%Z" writes the zone's name, on platforms where a std::tm has one.
template <class Tm>
auto set_zone(Tm& time, int /*preferred*/) -> decltype(time.tm_zone = "UTC", void()) {
  time.tm_zone = "UTC";
}
template <class Tm>
void set_zone(Tm& /*time*/, long /*otherwise*/) {}

bool fill_tm(long long seconds, std::tm& time) {
  auto const [days, second_of_day] = floor_divide(seconds, seconds_a_day);
  Date const date = date_of(days);
  constexpr long long base_year = 1900;  // of std::tm; a C library may add it as an int
  using Int = std::numeric_limits<int>;
  if (date.year < Int::min() + base_year || date.year > Int::max()) return false;
  time.tm_year = static_cast<int>(date.year - base_year);
  time.tm_mon = date.month;
  time.tm_mday = date.day;
  time.tm_yday = date.day_of_year;
  time.tm_wday = static_cast<int>(floor_divide(days + 4, 7).remainder);  // the epoch was a Thursday
  time.tm_hour = static_cast<int>(second_of_day / 3600);
  time.tm_min = static_cast<int>(second_of_day / 60 % 60);
  time.tm_sec = static_cast<int>(second_of_day % 60);
  set_zone(time, 0);
  return true;
}

}  // namespace

std::string POSIX_Time_To_ISO8601(long long seconds, char const* pattern) {
  if (pattern == nullptr || *pattern == '\0') return {};
  std::tm time{};
  if (!fill_tm(seconds, time)) return {};
  // strftime returns 0 for a short buffer and for an empty text; one more character makes the text not empty.
  std::string const marked = std::string(pattern) + '.';
  std::size_t const start = marked.size() + 64;
  std::size_t const limit = start * 64;  // only a pattern with long padding needs more: it gives no text
  std::string text;
  for (std::size_t size = start; size <= limit; size *= 2) {
    text.resize(size);
    std::size_t const length = std::strftime(&text[0], text.size(), marked.c_str(), &time);
    if (length == 0) continue;
    text.resize(length - 1);
    return text;
  }
  return {};
}
