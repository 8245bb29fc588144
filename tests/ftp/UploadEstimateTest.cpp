#include "ftp/UploadEstimate.h"

#include <gtest/gtest.h>

#include <cmath>

namespace upload_estimate {

namespace {

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();

void expectTimeLeft(const TimeLeft& left, std::int64_t minutes, std::int64_t seconds) {
    EXPECT_EQ(left.minutes, minutes);
    EXPECT_EQ(left.seconds, seconds);
}

TEST(UploadEstimate, IsByTheAverageRateSinceTheBeginning) {
    expectTimeLeft(timeLeft(90'000, 300'000, 3.0), 0, 7);
    expectTimeLeft(timeLeft(1'000, 3'726'000, 1.0), 62, 5);
}

TEST(UploadEstimate, IsTruncatedNotRounded) {
    expectTimeLeft(timeLeft(100, 200, 59.999), 0, 59);
    expectTimeLeft(timeLeft(100, 200, 60.0), 1, 0);
}

TEST(UploadEstimate, IsNothingWhereAllBytesWentInNoTime) {
    expectTimeLeft(timeLeft(1, 300'000, 0.0), 0, 0);
    expectTimeLeft(timeLeft(300'000, 300'000, 1.0), 0, 0);
}

TEST(UploadEstimate, IsNothingWhereNothingIsKnown) {
    expectTimeLeft(timeLeft(0, 300'000, 0.0), 0, 0); // 0 / 0
    expectTimeLeft(timeLeft(0, 0, 1.0), 0, 0);
}

TEST(UploadEstimate, IsTheNearestIntegerWhereItFitsNone) {
    expectTimeLeft(timeLeft(0, 300'000, 1.0), kMost, kMost % 60); // infinite
    expectTimeLeft(timeLeft(1, 1ULL << 36, 1.0), ((1LL << 36) - 1) / 60, kMost % 60);
    expectTimeLeft(timeLeft(1, ~0ULL, 1.0), kMost, kMost % 60);
    expectTimeLeft(timeLeft(-1, ~0ULL - 10, 1.0), kLeast, kLeast % 60);
}

TEST(UploadEstimate, ClampsAtTheVeryEdges) {
    EXPECT_EQ(truncated(2147483646.9), kMost - 1);
    EXPECT_EQ(truncated(2147483647.0), kMost);
    EXPECT_EQ(truncated(2147483648.0), kMost);
    EXPECT_EQ(truncated(-2147483647.9), kLeast + 1);
    EXPECT_EQ(truncated(-2147483648.0), kLeast);
    EXPECT_EQ(truncated(-1e300), kLeast);
    EXPECT_EQ(truncated(std::numeric_limits<double>::infinity()), kMost);
    EXPECT_EQ(truncated(-std::numeric_limits<double>::infinity()), kLeast);
    EXPECT_EQ(truncated(std::nan("")), 0);
    EXPECT_EQ(truncated(-0.9), 0);
}

TEST(UploadEstimate, SentBytesAreASigned32BitSumThatWrapsAround) {
    EXPECT_EQ(bytesSent(10, 90), 100);
    EXPECT_EQ(bytesSent(1, static_cast<std::uint64_t>(kMost)), kLeast);
    EXPECT_EQ(bytesSent(-1, 0), -1);
    EXPECT_EQ(bytesSent(kMost, static_cast<std::uint64_t>(kMost)), -2);
}

TEST(UploadEstimate, NumberOfTheFileWrapsAround) {
    EXPECT_EQ(fileNumber(0), 1);
    EXPECT_EQ(fileNumber(kMost), kLeast);
}

TEST(UploadEstimate, OnlyTheLow32BitsOfTheValueTakePart) {
    EXPECT_EQ(bytesSent(5, (std::uint64_t{7} << 32) + 20), 25);
}

TEST(UploadEstimate, BeyondTwoGiBTheRateTurnsNegativeAndSoDoesTheEstimate) {
    // Sent -2147483548 of 4 000 000 000 in 100 s: remaining 6147483548 at -21474835.48 a second.
    expectTimeLeft(timeLeft(bytesSent(100, std::uint64_t{1} << 31), 4'000'000'000, 100.0), -4, -46);
}

TEST(UploadEstimate, MoreSentThanThereIsMakesAHugeUnsignedRest) {
    expectTimeLeft(timeLeft(20, 10, 1.0), kMost, kMost % 60);
}

} // namespace

} // namespace upload_estimate
