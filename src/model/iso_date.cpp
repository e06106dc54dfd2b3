// ISO 8601 date text, written and read with <chrono> civil-date arithmetic.
#include "model/iso_date.h"

#include <chrono>
#include <cstdio>

namespace tarnwick {

using namespace std::chrono;

std::optional<std::string> isoDateText(Date date) {
    auto seconds = floor<std::chrono::seconds>(date);
    auto day = floor<days>(seconds);
    year_month_day ymd{day};
    hh_mm_ss<std::chrono::seconds> time{seconds - day};
    int y = static_cast<int>(ymd.year());
    if (y < 0 || y > 9999) return std::nullopt;
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ", y, static_cast<unsigned>(ymd.month()),
                  static_cast<unsigned>(ymd.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
    return std::string(buffer);
}

namespace {

// Reads exactly `width` decimal digits at `pos`.
std::optional<int> digitsAt(std::string_view text, size_t pos, size_t width) {
    if (pos + width > text.size()) return std::nullopt;
    int value = 0;
    for (size_t i = pos; i < pos + width; ++i) {
        char c = text[i];
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

bool charAt(std::string_view text, size_t pos, char c) { return pos < text.size() && text[pos] == c; }

}  // namespace

std::optional<Date> isoDateFrom(std::string_view text) {
    auto y = digitsAt(text, 0, 4), mo = digitsAt(text, 5, 2), d = digitsAt(text, 8, 2);
    auto h = digitsAt(text, 11, 2), mi = digitsAt(text, 14, 2), s = digitsAt(text, 17, 2);
    if (!y || !mo || !d || !h || !mi || !s) return std::nullopt;
    if (!charAt(text, 4, '-') || !charAt(text, 7, '-') || !charAt(text, 10, 'T') || !charAt(text, 13, ':') ||
        !charAt(text, 16, ':'))
        return std::nullopt;
    year_month_day ymd{year{*y}, month{static_cast<unsigned>(*mo)}, day{static_cast<unsigned>(*d)}};
    if (!ymd.ok() || *h > 23 || *mi > 59 || *s > 59) return std::nullopt;

    minutes offset{0};
    std::string_view zone = text.substr(19);
    if (zone != "Z") {
        auto oh = digitsAt(zone, 1, 2), om = digitsAt(zone, 4, 2);
        if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') || zone[3] != ':' || !oh || !om || *oh > 23 ||
            *om > 59)
            return std::nullopt;
        offset = hours{*oh} + minutes{*om};
        if (zone[0] == '-') offset = -offset;
    }
    sys_seconds instant = sys_days{ymd} + hours{*h} + minutes{*mi} + seconds{*s} - offset;
    // A Date counts in a fine unit with a limited range (about 1677 to 2262 with
    // nanoseconds); a date beyond it cannot be held and is unreadable, not wrapped.
    if (instant < ceil<seconds>(Date::min()) || instant > floor<seconds>(Date::max())) return std::nullopt;
    return time_point_cast<Date::duration>(instant);
}

}  // namespace tarnwick
