// Faults of disks and folders.
#include "soak/faults_scene.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace soak {

namespace fs = std::filesystem;

namespace {

bool isMissing(const fs::path& path) {
    return !fs::exists(path);
}

std::size_t itemsIn(const fs::path& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

void allowNothing(const fs::path& item) {
    chmod(item.c_str(), 0);
}

void allowReading(const fs::path& item) {
    chmod(item.c_str(), 0555);
}

void allowAll(const fs::path& item) {
    chmod(item.c_str(), 0755);
}

/// An order that can't be moved blocks the queue until it is taken away.
void playCompletedUnusable(Figures& figures, const char* name, void (*spoil)(const fs::path&),
                           void (*mend)(const fs::path&)) {
    Scene scene(figures, name);
    scene.start();
    spoil(scene.home().completed());
    const int stuck = scene.add();
    scene.expectMessage("Failed to move completed job");
    mend(scene.home().completed());
    scene.dropAgain(stuck);
    scene.expectCompleted(stuck);
    scene.expectNothingLost();
}

} // namespace

void playDisk(Figures& figures) {
    constexpr int kilobytes = 400;
    {
        Scene scene(figures, "full volume of Completed");
        if (!scene.mountVolume(scene.home().completed(), kilobytes)) return;
        scene.start();
        int number = 0;
        {
            const FullVolume full(scene.home().completed());
            number = scene.add();
            scene.expectMessage("Failed to move completed job");
            scene.expect("nothing half is left there", [&] { return itemsIn(scene.home().completed()) == 1; });
        }
        scene.dropAgain(number);
        scene.expectCompleted(number);
        scene.expectCompleted(scene.add());
        scene.expectNothingLost();
    }
    {
        Scene scene(figures, "full volume of the products");
        scene.mountVolume(scene.home().products(), kilobytes);
        for (const std::string& folder : SoakHome::productFolders())
            fs::create_directories(scene.home().products() / folder);
        scene.start();
        {
            const FullVolume full(scene.home().products());
            scene.expectFailed(scene.add());
            scene.expectMessage("No space left");
            scene.expectMessage("Job completed successfully? No");
            scene.expect("no product is cut off", [&] {
                std::size_t count = 0;
                for (const std::string& folder : SoakHome::productFolders())
                    count += itemsIn(scene.home().products() / folder);
                return count == 0;
            });
        }
        scene.expectCompleted(scene.add());
        scene.expectNothingLost();
    }
    {
        Scene scene(figures, "full volume of the settings");
        const fs::path settings = scene.home().path() / "Settings";
        scene.mountVolume(settings, kilobytes);
        scene.start();
        scene.expectCompleted(scene.add());
        const fs::path file = settings / "com.kestrune.VELM.plist";
        const std::string key = "velmProcessorJobsCompleted";
        scene.expect("the counter is stored", [&] { return contentsOf(file).find(key) != std::string::npos; });
        std::string before;
        {
            const FullVolume full(settings);
            scene.expectCompleted(scene.add());
            scene.expectMessage("No space left");
            before = contentsOf(file);
            scene.expect("the settings stay whole", [&] { return before.ends_with("</plist>\n"); });
        }
        scene.expectCompleted(scene.add());
        scene.expect("the settings are stored again", [&] { return contentsOf(file) != before; });
        scene.expectNothingLost();
    }
}

void playRights(Figures& figures) {
    if (geteuid() == 0) {
        figures.add("folders without rights", "not tried: this user may do everything");
        return;
    }
    {
        Scene scene(figures, "watched folder without rights");
        scene.start();
        const fs::path watched = scene.home().bundles();
        scene.expectCompleted(scene.add());
        allowNothing(watched);
        scene.expectMessage(watched.filename().string() + ":cannot read the folder");
        allowAll(watched);
        scene.expectCompleted(scene.add());
        scene.expectNothingLost();
    }
    playCompletedUnusable(figures, "Completed without rights", allowReading, allowAll);
    for (const auto& [name, folder] : {std::pair{"product folder without rights", "Products/Proof"},
                                       std::pair{"packages without rights", "VELM/Packages"}}) {
        Scene scene(figures, name);
        scene.start();
        scene.expectCompleted(scene.add());
        allowNothing(scene.home().path() / folder);
        scene.expectFailed(scene.add());
        scene.expectMessage("Job completed successfully? No");
        allowAll(scene.home().path() / folder);
        scene.expectCompleted(scene.add());
        scene.expectNothingLost();
    }
    {
        Scene scene(figures, "order without rights");
        scene.start();
        const fs::path held = scene.home().path() / "Arriving/held.velm_job";
        const int locked = scene.add();
        scene.expectCompleted(locked);
        for (const auto& [number, path] : SoakHome::ordersIn(scene.home().completed()))
            fs::rename(path, held);
        allowNothing(held / "job.xml");
        fs::rename(held, scene.placeOf(locked));
        scene.expectCompleted(scene.add());
        scene.expect("it waits", [&] { return fs::exists(scene.placeOf(locked)); });
        allowAll(scene.placeOf(locked) / "job.xml");
        scene.expectCompleted(locked);
        scene.expectNothingLost();
    }
}

void playFolders(Figures& figures) {
    {
        Scene scene(figures, "watched folder goes and comes");
        scene.start();
        const fs::path watched = scene.home().bundles();
        const fs::path away = watched.string() + " away";
        for (const bool withWhatIsAbove : {false, true}) {
            const fs::path removed = withWhatIsAbove ? watched.parent_path() : watched;
            scene.expectCompleted(scene.add());
            fs::remove_all(removed);
            fs::create_directories(watched);
            scene.expectCompleted(scene.add());
        }
        fs::rename(watched, away);
        fs::create_directories(watched);
        SoakHome::write(away / "untouched.velm_job/job.xml", SoakHome::ticketText(999, "none.jpg"));
        scene.expectCompleted(scene.add());
        scene.expect("what is in the folder that went is let be",
                     [&] { return fs::exists(away / "untouched.velm_job"); });
        fs::remove_all(watched);
        fs::rename(away, watched);
        scene.expect("and taken when that comes back", [&] { return isMissing(watched / "untouched.velm_job"); });
        scene.expectNothingLost();
    }
    {
        Scene scene(figures, "watched folder becomes a file");
        scene.start();
        const fs::path watched = scene.home().bundles();
        fs::remove_all(watched);
        SoakHome::write(watched, "a file");
        scene.expectCompleted(scene.add(OrderKind::ticket));
        fs::remove(watched);
        fs::create_directories(watched);
        scene.expectCompleted(scene.add());
        scene.expectNothingLost();
    }
    playCompletedUnusable(
        figures, "Completed is missing", [](const fs::path& folder) { fs::remove_all(folder); },
        [](const fs::path& folder) { fs::create_directories(folder); });
}

void playTwoEngines(Figures& figures) {
    Scene first(figures, "two homes, one folder");
    Scene second(figures, "two homes, one folder (second)");
    fs::remove_all(second.home().bundles());
    fs::create_directory_symlink(first.home().bundles(), second.home().bundles());
    first.start();
    second.start();
    constexpr int count = 20;
    for (int i = 0; i < count; ++i)
        first.add();
    const auto places = [&] {
        std::multiset<int> numbers;
        for (const Scene* scene : {&first, &second})
            for (const fs::path& folder : {scene->home().completed(), scene->home().failed()})
                for (const auto& [number, path] : SoakHome::ordersIn(folder))
                    numbers.insert(number);
        return numbers;
    };
    first.expect("all leave the folder", [&] { return itemsIn(first.home().bundles()) == 0; });
    std::vector<std::string> faults;
    for (int number = 1; number <= count; ++number)
        if (const std::size_t found = places().count(number); found != 1)
            faults.push_back("order " + std::to_string(number) + " stands in " + std::to_string(found) + " places");
    figures.promise("two homes, one folder: nothing lost, nothing doubled", faults);
    figures.add("two homes, one folder: taken by the first and the second",
                std::to_string(itemsIn(first.home().completed()) + itemsIn(first.home().failed())) + " and " +
                    std::to_string(itemsIn(second.home().completed()) + itemsIn(second.home().failed())));
    figures.add("two homes, one folder: of these in Failed",
                static_cast<std::int64_t>(itemsIn(first.home().failed()) + itemsIn(second.home().failed())));
}

} // namespace soak
