#include "cvtp/internal/TransferSummary.h"

#include <gtest/gtest.h>

#include <chrono>
#include <locale>
#include <string>

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

TEST(TransferSummary, SaysWhatWasWrittenAndRead) {
    EXPECT_EQ(writeSummary(5, 0), "Wrote 5 bytes to the CvPipe (0 Mbps).");
    EXPECT_EQ(readSummary(5, 0), "Read 5 bytes from the CvPipe (0 Mbps).");
}

TEST(TransferSummary, StepsToTheNextUnitAt1024AtMostTwice) {
    EXPECT_EQ(readSummary(0, 0), "Read 0 bytes from the CvPipe (0 Mbps).");
    EXPECT_EQ(readSummary(1023, 0), "Read 1023 bytes from the CvPipe (0 Mbps).");
    EXPECT_EQ(readSummary(1024, 0), "Read 1 Kb from the CvPipe (0 Mbps).");
    EXPECT_EQ(readSummary(1536, 0), "Read 1.5 Kb from the CvPipe (0 Mbps).");
    EXPECT_EQ(readSummary(1048575, 0), "Read 1024 Kb from the CvPipe (0 Mbps).") << "rounded, not stepped";
    EXPECT_EQ(readSummary(1048576, 0), "Read 1 Mb from the CvPipe (0 Mbps).");
    EXPECT_EQ(readSummary(UINT64_C(1) << 40, 0), "Read 1.04858e+06 Mb from the CvPipe (0 Mbps).");
}

TEST(TransferSummary, TheRateHasItsDeliberateDivisor) {
    // 12024 * 1024 bytes in eight seconds, times eight bits.
    EXPECT_EQ(writeSummary(UINT64_C(12024) * 1024, 8000), "Wrote 11.7422 Mb to the CvPipe (1 Mbps).");
    EXPECT_EQ(writeSummary(1000000, 1000), "Wrote 976.562 Kb to the CvPipe (0.649742 Mbps).");
    EXPECT_EQ(writeSummary(1, 1000), "Wrote 1 bytes to the CvPipe (6.49742e-07 Mbps).");
}

TEST(TransferSummary, TheRateIsOfSinglePrecision) {
    // With more digits on the way it would end in a 9.
    EXPECT_EQ(writeSummary(1053841, 7000), "Wrote 1.00502 Mb to the CvPipe (0.0978178 Mbps).");
}

TEST(TransferSummary, TheRateIsZeroWhenNoTimeHasPassed) {
    EXPECT_EQ(writeSummary(1000, 0), "Wrote 1000 bytes to the CvPipe (0 Mbps).");
    EXPECT_EQ(writeSummary(1000, -5), "Wrote 1000 bytes to the CvPipe (0 Mbps).");
}

TEST(TransferSummary, DoesNotFollowTheLocaleOfTheApplication) {
    struct CommaAndGroups : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaAndGroups));
    const std::string broken = readSummary(1536, 0);
    const std::string grouped = writeSummary(1000, 1);
    std::locale::global(before);
    EXPECT_EQ(broken, "Read 1.5 Kb from the CvPipe (0 Mbps).");
    EXPECT_EQ(grouped, "Wrote 1000 bytes to the CvPipe (0.649742 Mbps).");
}

TEST(TransferSummary, ItsClockCountsMillisecondsSinceTheEpoch) {
    using namespace std::chrono;
    const auto before = system_clock::now();
    const system_clock::time_point time{milliseconds(currentMilliseconds())};
    const auto after = system_clock::now();
    EXPECT_LT(before - milliseconds(1), time);
    EXPECT_LE(time, after);
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
