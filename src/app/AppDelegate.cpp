#include "app/AppDelegate.h"

#include "app/KLARON_SystemInfo.h"
#include "app/Logger.h"
#include "app/VELM.h"
#include "base/Log.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/run/Clock.h"
#include "platform/run/MainQueue.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <utility>

using platform::data::UserDefaults;

namespace {

constexpr std::string_view helperLabel = "com.kestrune.VELM-Helper";
constexpr double helperVersionNeeded = 0.24;
constexpr std::chrono::nanoseconds helperRetryTime{1'000'000'000};

/// Folders that only a person sets.
constexpr std::array forcedKeys = {key_velmFolderJobsPending};

bool isForced(std::string_view key) {
    return std::any_of(forcedKeys.begin(), forcedKeys.end(),
                       [&](std::string_view forced) { return base::lowercase(key) == base::lowercase(forced); });
}

} // namespace

std::optional<app::SingleInstance> AppDelegate::initialize(const app::DuplicateHandling& handling) {
    std::optional<app::SingleInstance> instance = app::checkForDuplicateRunningInstances(handling);
    Logger::setLogFile(Logger::defaultLogFileVELM());
    app::processInfo::logCurrentSystemInfo();
    return instance;
}

AppDelegate::AppDelegate(app::Services services) : services_(std::move(services)) {
    folders::setDefaultsMirror(
        [this](const base::Value& object, std::string_view key) { setDefaultObject(object, key); });
}

AppDelegate::~AppDelegate() {
    folders::setDefaultsMirror({});
}

void AppDelegate::awakeFromNib() {
    base::log("%s", "-[AppDelegate awakeFromNib]");
    jobsCompleted_ = UserDefaults::standard().integerForKey(key_velmProcessorJobsCompleted);
    jobsFailed_ = UserDefaults::standard().integerForKey(key_velmProcessorJobsFailed);
}

void AppDelegate::applicationDidFinishLaunching() {
    base::log("%s", "-[AppDelegate applicationDidFinishLaunching:]");
    UserDefaults& defaults = UserDefaults::standard();
    // A setting that stays as it is costs no write.
    if (defaults.stringForKey(key_prefLongVersionDescriptionString) != app::longDescription())
        static_cast<void>(defaults.setObject(app::longDescription(), key_prefLongVersionDescriptionString));
    connectToPrivilegedHelper();
    setDefaultObject(base::standardizingPath("~/Desktop/PrintToFileOutputs/Unknown"), key_velmFolderFallbackOutputPath);
    pendingFolder_ = defaults.observe(key_velmFolderJobsPending, [](const base::Value&) {
        base::log("%s", "-[AppDelegate observeValueForKeyPath:ofObject:change:context:]");
    });
    resetFolders();
}

void AppDelegate::applicationWillTerminate() {
    base::log("%s", "-[AppDelegate applicationWillTerminate:]");
}

void AppDelegate::applicationOpenURLs(const std::vector<base::URL>& urls) {
    VELM_JobFolders::addJobFiles(urls);
}

bool AppDelegate::applicationOpenFile(std::string_view path) {
    base::log("request to open file %@", path);
    return false;
}

void AppDelegate::testJobWithPath(std::string_view path, TestReply reply) {
    const base::Result<VELM_Job::Ref> job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(path));
    if (!job) return;
    (*job)->processJob([reply = std::move(reply)](bool, const std::optional<base::Error>& error) {
        if (error) base::log("%@", error);
        if (reply) reply(error);
    });
}

void AppDelegate::resetFolders() {
    verifySavedPath(VELM::velmDirectoryNodes(), key_velmFolderNodes);
    verifySavedPath(VELM::velmDirectoryPackages(), key_velmFolderPackages);
    verifySavedPath(VELM::velmDirectoryTemplates(), key_velmFolderTemplates);
    verifySavedPath(VELM::velmDirectoryGraphics(), key_velmFolderGraphics);
    verifySavedPath(VELM::velmDirectoryJobsCompleted(), key_velmFolderJobsCompleted);
    verifySavedPath(VELM::velmDirectoryJobsFailed(), key_velmFolderJobsFailed);
    verifySavedPath(VELM::velmDirectoryJobsPending(), key_velmFolderJobsPending);
}

void AppDelegate::verifySavedPath(const base::URL& path, std::string_view key) {
    if (isForced(key)) {
        base::log("not overwritting forced pref...");
        return;
    }
    if (UserDefaults::standard().objectForKey(key) != base::Value(path.path())) setDefaultObject(path.path(), key);
}

void AppDelegate::setDefaultObject(const base::Value& object, std::string_view key) {
    // What can't be written is logged by the defaults, and holds in this process all the same.
    static_cast<void>(UserDefaults::standard().setObject(object, key));
    const std::shared_ptr<VELM_RenderingEngineProtocol> service = getRenderingEngine()->remoteObjectProxy();
    if (!service) return;
    service->setObject(object, key, [](const base::Value& stored, std::string_view storedKey) {
        const auto* data = stored.as<base::Data>();
        const std::string what = data ? base::message("%lu data bytes", data->size()) : stored.description();
        base::log("remotely set %@ for %@", what, storedKey);
    });
}

std::shared_ptr<AppDelegate::RenderEngineConnection> AppDelegate::getRenderingEngine() {
    const std::lock_guard lock(mutex_);
    if (xpcRenderEngine_ && xpcRenderEngine_->hasInvalidationHandler()) return xpcRenderEngine_;
    xpcRenderEngine_ = std::make_shared<RenderEngineConnection>(services_.renderingEngine());
    xpcRenderEngine_->setInvalidationHandler([weak = std::weak_ptr(self_)] {
        base::log("xpc connection invalidated");
        if (const auto self = weak.lock()) {
            const std::lock_guard selfLock((*self)->mutex_);
            (*self)->xpcRenderEngine_.reset();
        }
    });
    xpcRenderEngine_->setInterruptionHandler([] { base::log("xpc connection terminated"); });
    return xpcRenderEngine_;
}

void AppDelegate::connectToPrivilegedHelper() {
    static constexpr const char* name = "-[AppDelegate connectToPrivilegedHelper]";
    const auto connection = std::make_shared<HelperConnection>(services_.privilegedHelper());
    {
        const std::lock_guard lock(mutex_);
        xpcPrivilegedHelper_ = connection;
    }
    const std::weak_ptr weakSelf = self_;
    connection->setInterruptionHandler([] { base::log("interrupted %s", name); });
    connection->setInvalidationHandler([weakSelf] {
        base::log("invalidated %s", name);
        if (const auto self = weakSelf.lock()) (*self)->helperWasInvalidated();
    });
    const auto refuse = [weakSelf, connection] {
        if (const auto self = weakSelf.lock()) (*self)->needsRelaunch_ = false;
        connection->invalidate();
    };
    const std::shared_ptr<PrivilegedHelperProtocol> helper = connection->remoteObjectProxy(refuse);
    if (!helper) return;
    helper->versionInterface([weakSelf, connection, refuse](double version) {
        if (version < helperVersionNeeded) {
            refuse();
            return;
        }
        const std::shared_ptr<PrivilegedHelperProtocol> plain = connection->remoteObjectProxy();
        if (!plain) return;
        plain->makeVELMFolderWithReply([weakSelf](const base::Result<base::URL>& root) {
            if (root)
                base::log("VELM directory URL: %@", *root);
            else
                base::log("Error making VELM directory:%@", root.error());
            if (const auto self = weakSelf.lock()) (*self)->cleanUpPrivilegedHelper();
        });
    });
}

void AppDelegate::helperWasInvalidated() {
    {
        const std::lock_guard lock(mutex_);
        xpcPrivilegedHelper_.reset();
    }
    if (!installHelperWithLabel(helperLabel)) return;
    if (needsRelaunch_) {
        relauchSelf();
        return;
    }
    platform::run::clock()->after(helperRetryTime, platform::run::mainQueue(), [weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock()) (*self)->connectToPrivilegedHelper();
    });
}

void AppDelegate::cleanUpPrivilegedHelper() {
    std::shared_ptr<HelperConnection> connection;
    {
        const std::lock_guard lock(mutex_);
        connection = std::exchange(xpcPrivilegedHelper_, nullptr);
    }
    if (!connection) return;
    connection->setInvalidationHandler({});
    connection->invalidate();
}

bool AppDelegate::installHelperWithLabel(std::optional<std::string_view> label, const ErrorBlock& errorBlock) {
    const base::Result<void> installed =
        label ? services_.blessHelper(*label)
              : base::failure(base::cocoaErrorDomain, -1, "Failed to provide a required label");
    if (installed) return true;
    if (errorBlock)
        errorBlock(installed.error());
    else
        base::log("%@", installed.error());
    return false;
}

void AppDelegate::replaceWithExecutable(const std::string& path) {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string all(std::istreambuf_iterator<char>(file), {});
    std::vector<std::string> words;
    for (std::size_t start = 0; start < all.size(); start += words.back().size() + 1)
        words.emplace_back(all.c_str() + start);
    if (words.empty()) words.emplace_back();
    words.front() = path;
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    Logger::drain();
    // The pipe of the log is read by a thread of this process, which will be gone.
    const int toLog = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(Logger::firstStandardError(), STDERR_FILENO);
    execv(path.c_str(), arguments.data());
    const int failedWith = errno;
    if (toLog >= 0) {
        dup2(toLog, STDERR_FILENO);
        close(toLog);
    }
    base::log("Failed exec to %@ with error %s", path, std::strerror(failedWith));
}

void AppDelegate::relauchSelf() {
    std::array<char, PATH_MAX> path{};
    if (readlink("/proc/self/exe", path.data(), path.size() - 1) > 0) replaceWithExecutable(path.data());
}
