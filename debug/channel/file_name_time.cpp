#include "debug/channel/file_name_time.h"

#include <array>
#include <cstdio>

#include "platform/bounded.h"

namespace velt {
namespace {

// These functions replace the C library's timegm: that takes the time zone's lock, which a forked child may
// have inherited locked.
constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr std::int64_t kDaysPerEra = 146'097;      // 400 years
constexpr std::int64_t kDaysBefore1970 = 719'468;  // from 0000-03-01

struct Date {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
};

// Counts years from March, so that February 29 is the last day of a year.
std::int64_t DaysOf(Date const& date) {
  std::int64_t const year = date.month <= 2 ? date.year - 1 : date.year;
  std::int64_t const era = (year >= 0 ? year : year - 399) / 400;
  std::int64_t const year_of_era = year - era * 400;
  std::int64_t const month = date.month > 2 ? date.month - 3 : date.month + 9;
  std::int64_t const day_of_year = (153 * month + 2) / 5 + date.day - 1;
  std::int64_t const day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * kDaysPerEra + day_of_era - kDaysBefore1970;
}

Date DateOf(std::int64_t days) {
  days += kDaysBefore1970;
  std::int64_t const era = (days >= 0 ? days : days - (kDaysPerEra - 1)) / kDaysPerEra;
  std::int64_t const day_of_era = days - era * kDaysPerEra;
  std::int64_t const year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
  std::int64_t const day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  auto const month = static_cast<int>((5 * day_of_year + 2) / 153);
  auto const day = static_cast<int>(day_of_year - (153 * month + 2) / 5 + 1);
  std::int64_t const year = year_of_era + era * 400;
  return {month < 10 ? year : year + 1, month < 10 ? month + 3 : month - 9, day};
}

std::int64_t SecondOfDay(std::int64_t hour, std::int64_t minute, std::int64_t second) {
  return hour * 3600 + minute * 60 + second;
}

// Reads the number in the `count` characters at `at`. Returns false when one of them is not a digit.
bool Digits(std::string_view text, std::size_t at, std::size_t count, int& number) {
  number = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    number = number * 10 + (text[i] - '0');
  }
  return true;
}

}  // namespace

std::int64_t SecondsOf(std::tm const& local) {
  Date const date{local.tm_year + std::int64_t{1900}, local.tm_mon + 1, local.tm_mday};
  return DaysOf(date) * kSecondsPerDay + SecondOfDay(local.tm_hour, local.tm_min, local.tm_sec);
}

std::string NameTimeOf(std::int64_t seconds) {
  std::int64_t days = seconds / kSecondsPerDay;
  std::int64_t rest = seconds % kSecondsPerDay;
  if (rest < 0) {
    rest += kSecondsPerDay;
    --days;
  }
  Date const date = DateOf(days);
  std::array<char, 64> text{};
  (void)snprintf_s(text.data(), text.size(), text.size() - 1, "%04d%02d%02d_%02d%02d%02d",
                   static_cast<int>(date.year), date.month, date.day, static_cast<int>(rest / 3600),
                   static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60));
  return text.data();
}

bool SecondsOfNameTime(std::string_view text, std::int64_t& seconds) {
  if (text.size() != kNameTimeLength || text[8] != '_') return false;
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  bool const digits = Digits(text, 0, 4, year) && Digits(text, 4, 2, month) && Digits(text, 6, 2, day) &&
                      Digits(text, 9, 2, hour) && Digits(text, 11, 2, minute) && Digits(text, 13, 2, second);
  bool const in_range = month >= 1 && month <= 12 && day >= 1 && day <= 31 && hour < 24 && minute < 60 &&
                        second <= 60;  // a leap second
  if (!digits || !in_range) return false;
  seconds = DaysOf({year, month, day}) * kSecondsPerDay + SecondOfDay(hour, minute, second);
  return true;
}

}  // namespace velt
