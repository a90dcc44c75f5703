// Streams of file-system events with the granularity of folders, grouped by a latency.
//
// A stream observes paths. For a folder it reports a change among its entries under the folder's own path, and a change
// inside one of its subfolders, or in a folder inside that, under that subfolder's path; what lies deeper is not seen.
// For a file it reports the path of the file, and so in per-file mode for the files in a folder and in its subfolders.
// Paths are reported as they were given, followed by the entry's name: links are not resolved.
//
// An observed path need not exist: its appearance is reported, as are its removal and its return. Where the system
// brings no events (network volumes), or can't watch, the folder is polled, which the log tells once. Each subfolder
// takes a watch, and so does each folder inside it; when the system or `mostWatches` grants no more, those are given
// back and what is inside the subfolders is polled, while the entries of the folder itself are still told by events.
// Watching is tried again every minute. When events were lost, and when it changes whether a path is polled, the
// observed paths themselves are reported with `mustScanSubDirs`.
#pragma once

#include "platform/run/Clock.h"
#include "platform/run/Queue.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform::run {

/// Flags of one reported path, by the numbers under which they are logged.
namespace fileEventFlags {
inline constexpr std::uint32_t none = 0;
inline constexpr std::uint32_t mustScanSubDirs = 0x1; ///< Events were lost: look at everything below.
inline constexpr std::uint32_t rootChanged = 0x20;    ///< The observed path itself went, came or was replaced.
} // namespace fileEventFlags

class FileEventStream {
public:
    /// The changed paths, each once, and the flags of each. Runs on the stream's queue.
    using Callback =
        std::function<void(const std::vector<std::string>& paths, const std::vector<std::uint32_t>& flags)>;

    struct Options {
        /// Changes are collected for this long after a delivery before the next one.
        std::chrono::nanoseconds latency{std::chrono::milliseconds(500)};
        /// The first change after a quiet time is delivered at once and those that follow are grouped; without it the
        /// first one waits for the latency too. What is still being made waits in either case: a new entry until its
        /// file is closed or the latency has passed, though never longer than `patience` latencies; and changes inside
        /// a subfolder until it has been quiet there for the latency (where it is polled: for a look), however long
        /// that takes and whatever else is delivered meanwhile.
        bool noDefer = true;
        int patience = 5;
        /// Report changed files, not the folders that they are in.
        bool fileEvents = false;
        /// How often a folder is looked at where events do not come. Slow folders are looked at less often.
        std::chrono::nanoseconds pollInterval{std::chrono::seconds(2)};
        /// Poll every observed path, whatever its volume.
        bool alwaysPoll = false;
        /// How many folders the stream may watch at the most: the kernel keeps about a kilobyte for each.
        std::size_t mostWatches = 50'000;
        /// Null: the clock in force when the stream is made.
        ClockRef clock;
    };

    /// Makes a stream that stands still. `paths` are absolute.
    FileEventStream(std::vector<std::string> paths, Options options, Callback callback);
    /// Stops it.
    ~FileEventStream();
    FileEventStream(const FileEventStream&) = delete;
    FileEventStream& operator=(const FileEventStream&) = delete;

    /// The queue on which the callback runs; must be set before the start.
    void setQueue(QueueRef queue);
    /// Reports what changes from now on. False when there is no queue or no path.
    bool start();
    /// No call of the callback begins after this has returned on the stream's own queue.
    void stop();
    /// Whether the subfolder, by the path under which it is reported, is still being made: something changed inside it
    /// that waits for it to be quiet there, and will be delivered. Knows all that has happened before the call where
    /// events come; where none come, a subfolder that no look has seen yet counts as well. Never in per-file mode.
    bool isSettling(const std::string& subfolder);
    /// Whether some path is looked at now and then, since no events come of it. What comes and goes between two looks
    /// is not reported then, so whoever changes something there himself had better look himself.
    bool isPolling() const;

private:
    class Implementation;
    std::shared_ptr<Implementation> implementation_;
};

} // namespace platform::run
