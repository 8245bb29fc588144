#include "tests/reliability/SoakExport.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>

namespace soak {

namespace {

/// The first exports load libraries and warm caches up.
constexpr std::size_t kWarmUp = 10;
constexpr double kLargestGrowth = 1.05;
/// Longer than the half minute for which Qt keeps the threads that it draws with, each with a descriptor:
/// there may be more of them after the last export than after the first.
constexpr std::chrono::seconds kUntilIdle{60};

int number(const char* variable, int usual) {
    return qEnvironmentVariableIsSet(variable) ? qEnvironmentVariableIntValue(variable) : usual;
}

std::size_t entries(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

/// What a process holds open of the system.
struct Held {
    std::size_t descriptors = entries("/proc/self/fd");
    std::size_t threads = entries("/proc/self/task");

    bool isWithin(const Held& other) const {
        return descriptors <= other.descriptors && threads <= other.threads;
    }
};

/// What the process's descriptors are of: paths, kinds of sockets, and so on.
std::string openDescriptors() {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code isGone;
        all += ' ' + std::filesystem::read_symlink(entry.path(), isGone).string();
    }
    return all;
}

/// Resident memory, in KiB.
long residentMemory() {
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

std::vector<Outcome> outcomes(unsigned seed, int exports, const Photographs& photographs) {
    std::mt19937 generator(seed);
    std::vector<Outcome> all;
    for (int count = 0; count < exports; ++count)
        all.push_back(runExport(Plan::next(generator, photographs.count()), photographs));
    return all;
}

TEST(Soak, LeavesNothingBehindAndLosesNothing) {
    const int exports = number("QUILLMARK_SOAK_EXPORTS", 4);
    const Photographs photographs(number("QUILLMARK_SOAK_IMAGES", 10));
    const auto seed =
        static_cast<unsigned>(number("QUILLMARK_SOAK_SEED", static_cast<int>(std::random_device()() >> 1)));
    std::cout << "QUILLMARK_SOAK_SEED=" << seed << std::endl;
    std::mt19937 generator(seed);

    runExport({}, photographs);
    // The connection that was kept for a next file is closed after a while.
    const Held first;
    EXPECT_TRUE(test_support::waitUntil([&] { return Held().descriptors < first.descriptors; }));
    const Held usual;
    const std::string usualDescriptors = openDescriptors();

    std::vector<long> memory;
    for (int count = 1; count <= exports; ++count) {
        const Plan plan = Plan::next(generator, photographs.count());
        const Outcome outcome = runExport(plan, photographs);
        memory.push_back(residentMemory());
        std::cout << count << ": " << plan << ": " << outcome << ", " << memory.back() << " KiB" << std::endl;
        if (HasFailure())
            break;
    }
    EXPECT_TRUE(test_support::waitUntil([&] { return Held().isWithin(usual); }, kUntilIdle))
        << Held().descriptors << " descriptors instead of " << usual.descriptors << ", " << Held().threads
        << " threads instead of " << usual.threads << "\nopen:" << openDescriptors()
        << "\nand before:" << usualDescriptors;
    if (memory.size() > kWarmUp) {
        const auto largest = *std::max_element(memory.begin() + kWarmUp, memory.end());
        EXPECT_LE(static_cast<double>(largest), kLargestGrowth * static_cast<double>(memory.at(kWarmUp - 1)));
    }
}

TEST(Soak, TakesTheSameCourseWithTheSameSeed) {
    const Photographs photographs(5);
    const unsigned seed = std::random_device()();
    EXPECT_EQ(outcomes(seed, 2, photographs), outcomes(seed, 2, photographs)) << "seed " << seed;
}

} // namespace

} // namespace soak
