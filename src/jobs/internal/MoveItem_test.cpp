#include "MoveItem.h"

#include "base/Path.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::size_t itemsIn(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

} // namespace

TEST(MoveItem, MovesWholeOrNotAtAll) {
    const support::TemporaryDirectory near;
    const std::string shared = "/dev/shm/velm-move-" + std::to_string(getpid());
    std::vector<std::string> targets = {near / "target"};
    if (access("/dev/shm", W_OK) == 0) targets.push_back(shared); // another volume, where there is one
    for (const std::string& target : targets) {
        fs::create_directories(target);
        const std::string name = std::string(246, 'o') + ".velm_job"; // as long as names can be
        const std::string source = near / ("source/" + name);
        const std::string picture = near.write("source/" + name + "/Images/a.jpg", "picture");
        const auto longAgo = fs::file_time_type::clock::now() - std::chrono::hours(1000);
        for (const std::string& path : {picture, source})
            fs::last_write_time(path, longAgo);
        const std::string moved = base::appendingPathComponent(target, name);

        EXPECT_FALSE(jobs::moveItem(source, base::appendingPathComponent(target, "missing/o")));
        fs::create_directories(moved);
        EXPECT_FALSE(jobs::moveItem(source, moved)) << "something stands there";
        EXPECT_TRUE(fs::exists(source + "/Images/a.jpg"));
        EXPECT_EQ(itemsIn(target), 1U);
        fs::remove_all(moved);

        const auto result = jobs::moveItem(source, moved);
        EXPECT_TRUE(result) << result.error().localizedDescription;
        EXPECT_EQ(support::readFile(moved + "/Images/a.jpg"), "picture") << target;
        EXPECT_EQ(fs::last_write_time(moved), longAgo);
        EXPECT_EQ(fs::last_write_time(moved + "/Images/a.jpg"), longAgo);
        EXPECT_EQ(itemsIn(near / "source"), 0U);
        EXPECT_EQ(itemsIn(target), 1U);
    }
    fs::remove_all(shared);
}
