#include "WrittenFiles.h"

#include "output/VELM_Output.h"

#include <memory>
#include <mutex>
#include <vector>

namespace {

using Callback = VELM_Output::FileCallback;

struct Observers {
    std::mutex mutex;
    std::vector<std::shared_ptr<const Callback>> callbacks;
};

Observers& observers() {
    static auto& all = *new Observers; // tokens may outlive everything that is destroyed at the process's end
    return all;
}

} // namespace

platform::run::Observation VELM_Output::observeWrittenFiles(FileCallback callback) {
    const auto entry = std::make_shared<const Callback>(std::move(callback));
    const std::lock_guard lock(observers().mutex);
    observers().callbacks.push_back(entry);
    return platform::run::Observation([entry] {
        const std::lock_guard inner(observers().mutex);
        std::erase(observers().callbacks, entry);
    });
}

void output::announceWrittenFile(const VELM_Output& output, const base::URL& file) {
    std::vector<std::shared_ptr<const Callback>> callbacks;
    {
        const std::lock_guard lock(observers().mutex);
        callbacks = observers().callbacks;
    }
    for (const auto& callback : callbacks)
        (*callback)(output, file);
}
