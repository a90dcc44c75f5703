// The one thread that waits for file-system events on behalf of all streams of the process.
#pragma once

#include <map>
#include <memory>
#include <mutex>

namespace platform::run {

class FileWatcherThread {
public:
    class Client {
    public:
        virtual ~Client() = default;
        /// The descriptor has something to read; it may also have been taken away meanwhile.
        virtual void descriptorIsReadable() = 0;
        /// A volume came or went.
        virtual void mountsDidChange() = 0;
    };

    /// Never destroyed; the thread starts with the first use.
    static FileWatcherThread& shared();

    /// The client is told on the thread as long as it lives. The descriptor stays the client's own; it must be removed
    /// before it is closed. False when the system can't wait for it.
    bool add(int descriptor, std::weak_ptr<Client> client);
    void remove(int descriptor);

private:
    FileWatcherThread();
    void run();
    void handle(int descriptor);

    int poll_ = -1;
    int mounts_ = -1;
    std::mutex mutex_;
    std::map<int, std::weak_ptr<Client>> clients_;
};

} // namespace platform::run
