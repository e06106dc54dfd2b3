// ISO 8601 date text of snapshot files.
#include "model/iso_date.h"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

using namespace std::chrono;

TEST(IsoDate, WritesUtcWholeSecondsWithZ) {
    Date date = sys_days{2026y / March / 14} + 9h + 26min + 53s + 870ms;
    EXPECT_EQ(isoDateText(date), "2026-03-14T09:26:53Z");
    EXPECT_EQ(isoDateText(Date{}), "1970-01-01T00:00:00Z");
    // Before 1970 the fraction still goes toward the past.
    EXPECT_EQ(isoDateText(Date{} - 1ms), "1969-12-31T23:59:59Z");
}

TEST(IsoDate, ReadsZAndOffsets) {
    Date expected = sys_days{2026y / March / 14} + 9h + 26min + 53s;
    EXPECT_EQ(isoDateFrom("2026-03-14T09:26:53Z"), expected);
    EXPECT_EQ(isoDateFrom("2026-03-14T11:26:53+02:00"), expected);
    EXPECT_EQ(isoDateFrom("2026-03-14T04:56:53-04:30"), expected);
}

TEST(IsoDate, RejectsOtherShapes) {
    for (const char* text : {"", "2026-03-14", "2026-03-14T09:26:53", "2026-03-14T09:26:53.5Z",
                             "2026-03-14 09:26:53Z", "2026-02-30T09:26:53Z", "2026-13-01T00:00:00Z",
                             "2026-03-14T24:00:00Z", "2026-03-14T09:60:00Z", "2026-03-14T09:26:53z",
                             "2026-03-14T09:26:53+0200", "2026-03-14T09:26:53Z ", "+2026-03-14T09:26:53Z",
                             "9999-12-31T23:59:59Z", "1000-01-01T00:00:00Z"})
        EXPECT_EQ(isoDateFrom(text), std::nullopt) << text;
}

}  // namespace
}  // namespace tarnwick
