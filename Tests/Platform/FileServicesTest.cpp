#include "Platform/FileServices.h"
#include "Tests/Harness/EnvironmentVariable.h"

#include <cmath>
#include <ctime>
#include <gtest/gtest.h>

namespace kelvane::tests {

TEST(FileServices, WritesDatesInTheUsersFormatAndTimeZone) {
    const EnvironmentVariable zone("TZ", "EST5");
    ::tzset();
    const LocalFileSystem disk{Volumes()};
    const SystemAccounts accounts;
    for (const char* localeName : {"C", "no such locale"}) {
        const PlainFileServices services(disk, accounts, localeName);
        EXPECT_EQ(services.dateAndTime(Date{0}), "12/31/00 19:00:00");
        EXPECT_EQ(services.dateAndTime(Date{-0.5}), "12/31/00 18:59:59");
        // Where no calendar reaches, the number has to do.
        EXPECT_EQ(services.dateAndTime(Date{1e300}), "1e+300");
        EXPECT_EQ(services.dateAndTime(Date{-INFINITY}), "-inf");
        EXPECT_EQ(services.dateAndTime(Date{NAN}), "nan");
    }
}

} // namespace kelvane::tests
