// Takes the log in place of standard error for as long as it lives. Made and ended on the test's thread; lines may come
// from any. Needs the base module, which every test links.
#pragma once

#include "base/Log.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace support {

class LogCapture {
public:
    LogCapture()
        : previous_(base::setLogSink([held = held_](std::string_view line) {
              const std::lock_guard lock(held->mutex);
              held->lines.emplace_back(line);
          })) {}
    ~LogCapture() { base::setLogSink(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const {
        const std::lock_guard lock(held_->mutex);
        return held_->lines;
    }
    /// How many lines hold the part.
    std::size_t count(std::string_view part) const {
        const std::vector<std::string> all = lines();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [part](const std::string& line) { return line.find(part) != std::string::npos; }));
    }
    bool has(std::string_view part) const { return count(part) > 0; }

private:
    /// Shared with the sink: a thread may still be in it when the capture ends.
    struct Held {
        std::mutex mutex;
        std::vector<std::string> lines;
    };
    std::shared_ptr<Held> held_ = std::make_shared<Held>();
    base::LogSink previous_;
};

} // namespace support
