// A log file that several processes add to at the same time, turned over at a limit: Name.log becomes Name.old.log, in
// the place of an earlier one. Whoever writes holds a shared lock on the file and first sees whether it still stands
// at its path; whoever turns it over holds the lock alone. So a line is never written to a file that was put aside,
// and of two processes that find the file full one turns it over. One thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace app {

class LogFile {
public:
    static constexpr std::size_t standardLimit = 0xa00000;

    /// Nothing is opened yet. The file is turned over by the write after which it has `limit` bytes.
    explicit LogFile(std::string path, std::size_t limit = standardLimit);
    ~LogFile() { close(); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    const std::string& path() const { return path_; }

    struct Written {
        std::size_t size = 0; ///< How much of the text stands in the file.
        int error = 0;        ///< errno of what kept the rest from it.
        /// The message that the error belongs in: places for an operation's name and the system's words.
        const char* messageTemplate = nullptr;
    };
    /// Opens the file, and makes its folder, when it is not open or stands at its path no more; then adds the text. A
    /// path that leads to no regular file (a FIFO) may keep the caller waiting.
    Written append(std::string_view text);

    /// Of the file that is open now, -1 for none.
    int descriptor() const { return descriptor_; }

private:
    int open();
    void close();
    bool standsAtItsPath() const;
    int openAndLock();
    void turnOverWhenFull();

    const std::string path_;
    const std::size_t limit_;
    std::size_t turnOverAt_;
    int descriptor_ = -1;
    bool folderIsTold_ = false;
};

} // namespace app
