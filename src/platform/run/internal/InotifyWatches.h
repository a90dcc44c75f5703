// The watches of one stream on the kernel's inotify facility: which folders are watched, under which paths, and the
// reading of its records. Not synchronized.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace platform::run {

class InotifyWatches {
public:
    /// One record. `folder` is the path under which the folder was added; empty for a lost-events record.
    struct Record {
        const std::string& folder;
        std::string_view name; ///< Of the entry concerned; empty for the folder itself.
        std::uint32_t mask;
    };

    /// descriptor() is negative when the system has no more of them.
    InotifyWatches();
    ~InotifyWatches();
    InotifyWatches(const InotifyWatches&) = delete;
    InotifyWatches& operator=(const InotifyWatches&) = delete;

    int descriptor() const { return descriptor_; }

    /// Watches a folder, besides what it is watched for already. Answers 0 or errno's value.
    int add(const std::string& folder, std::uint32_t mask);
    void remove(const std::string& folder);
    /// All that are watched below the folder.
    void removeBelow(const std::string& folder);
    bool isWatching(const std::string& folder) const { return watches_.contains(folder); }
    std::size_t count() const { return watches_.size(); }

    /// Hands on the records that are waiting when it begins, and not those that come meanwhile: it ends, however fast
    /// they come.
    void read(const std::function<void(const Record&)>& handle);
    /// The same for records in memory.
    void parse(std::string_view records, const std::function<void(const Record&)>& handle);

private:
    int descriptor_ = -1;
    std::unordered_map<int, std::vector<std::string>> folders_; // several paths may lead to one folder
    std::map<std::string, int> watches_;
};

} // namespace platform::run
