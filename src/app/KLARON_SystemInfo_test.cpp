#include "app/KLARON_SystemInfo.h"

#include "base/Processors.h"

#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <limits>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

TEST(SystemInfo, readsTheOutputOfCommands) {
    const base::Dictionary values = KLARON_SystemInfo::valuesOfLines("a=1\nno value\nb=x=y=\n=nothing\nc=");
    EXPECT_EQ(values, (base::Dictionary{{"a", "1"}, {"b", "x=y="}, {"", "nothing"}, {"c", ""}}));
    const std::vector<std::pair<std::string, std::string>> uptimes = {
        {" 10:11:12 up  3 days,  2:04,  1 user\n", "3 days, 2:04, 1 user\n"},
        {"up  3", "up  3"},
        {"", ""},
    };
    for (const auto& [output, uptime] : uptimes)
        EXPECT_EQ(KLARON_SystemInfo::uptimeOfOutput(output), uptime);

    struct sigaction before {};
    struct sigaction after {};
    sigaction(SIGCHLD, nullptr, &before);
    EXPECT_EQ(app::outputWhenRunAsShellCommand(""), std::nullopt);
    const std::string all = app::outputWhenRunAsShellCommand("for i in 1 2 3 4; do printf '%0150dé' $i; done").value();
    EXPECT_EQ(all.size(), 4 * 152u) << "pieces lose nothing";
    sigaction(SIGCHLD, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
}

TEST(SystemInfo, unitsSaturateAndGigabytesKeepThreeDigits) {
    constexpr std::uint64_t all = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(app::bytesFromKB(3), 3072u);
    EXPECT_EQ(app::bytesFromTB((1U << 24) - 1), ((1ULL << 24) - 1) << 40);
    EXPECT_EQ(app::bytesFromTB(1U << 24), all);
    EXPECT_EQ(app::bytesFromGB(all), all);
    for (const auto& [bytes, text] : std::vector<std::pair<std::int64_t, std::string>>{
             {0, "Zero GB"}, {17'179'869'184, "17.2 GB"}, {1'500'000'000, "1.50 GB"}, {256'400'000'000, "256 GB"}})
        EXPECT_EQ(app::gigabytesText(bytes), text);
}

TEST(SystemInfo, tellsOfThisMachineWhatTheSystemSays) {
    KLARON_SystemInfo info;
    EXPECT_EQ(info.cpuCountLogical(), base::logicalProcessors());
    EXPECT_EQ(info.cpuCountActive(), sysconf(_SC_NPROCESSORS_ONLN));
    ASSERT_TRUE(info.stats());
    const auto figure = [&](const char* name) { return info.stats()->at(name).integerValue(); };
    const std::int64_t physical = sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE);
    EXPECT_NEAR(static_cast<double>(figure("physical")), static_cast<double>(physical), 0.02 * physical);
    EXPECT_GT(figure("active"), 0);
    EXPECT_LT(figure("free") + figure("wired"), figure("physical"));
    const std::array<std::string_view, 2> names = {"kernel.pid_max", "../../etc/passwd"};
    EXPECT_EQ(KLARON_SystemInfo::sysctlValuesForKeys(names).size(), 1u);
}

} // namespace
