// The application's launch and end as far as they need no window: the folder tree, the settings that name its folders,
// the connections to the rendering-engine service and to the privileged helper, and the way of files that are opened
// from outside. One object for each process, made by the program at its start and living as long as the program runs;
// used on the main thread, save setDefaultObject and getRenderingEngine, which any thread may call.
#pragma once

#include "app/MainBundle.h"
#include "app/ServiceConnection.h"
#include "app/Services.h"
#include "base/Error.h"
#include "base/Path.h"
#include "base/Value.h"
#include "platform/data/UserDefaults.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class AppDelegate {
public:
    /// Before any object and any other thread: ends the process when another one runs the engine, turns standard error
    /// to the log file and writes the report of the system there. Answers the right to run the engine, which must be
    /// kept; nothing where there can be none.
    static std::optional<app::SingleInstance> initialize(const app::DuplicateHandling& handling);

    explicit AppDelegate(app::Services services = app::Services::local());
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Copies the counters of the finished jobs for display.
    void awakeFromNib();
    std::int64_t jobsCompleted() const { return jobsCompleted_; }
    std::int64_t jobsFailed() const { return jobsFailed_; }

    /// The steps of the launch: the version's description is stored, the tree is made, the fallback output path is
    /// stored, the folders are reset.
    void applicationDidFinishLaunching();
    /// A job that runs is cut off; its file still stands in the watched folder.
    void applicationWillTerminate();

    /// Moves job files into the default job folder.
    void applicationOpenURLs(const std::vector<base::URL>& urls);
    /// False: files are opened as URLs.
    bool applicationOpenFile(std::string_view path);

    /// Runs the job at the path without the folders and replies its error, if any, on the job's thread. Of a path that
    /// can't be read as a job there is no reply.
    using TestReply = std::function<void(const std::optional<base::Error>& error)>;
    void testJobWithPath(std::string_view path, TestReply reply);

    /// Points each folder key to its place in the tree: whatever was stored before is replaced, save for the pending
    /// folder, which keeps what a person chose and otherwise stays unset.
    void resetFolders();
    void verifySavedPath(const base::URL& path, std::string_view key);

    /// Stores a user default and mirrors it to the rendering-engine service.
    void setDefaultObject(const base::Value& object, std::string_view key);

    using RenderEngineConnection = app::ServiceConnection<VELM_RenderingEngineProtocol>;
    /// The connection to the service, made at the first use and after each loss.
    std::shared_ptr<RenderEngineConnection> getRenderingEngine();

    /// Has the helper make the folder tree with all that the jobs need, and logs its root or why it could not be made.
    /// A helper that is missing or older than version 0.24 is installed, and asked again a second later on the main
    /// queue, for as long as it can be installed.
    void connectToPrivilegedHelper();
    void cleanUpPrivilegedHelper();
    /// Errors go to the callback, or else to the log.
    using ErrorBlock = std::function<void(const base::Error& error)>;
    bool installHelperWithLabel(std::optional<std::string_view> label, const ErrorBlock& errorBlock = {});

    /// Replaces this process by the executable, with the same arguments. Comes back only when that fails.
    static void replaceWithExecutable(const std::string& path);
    static void relauchSelf();

private:
    using HelperConnection = app::ServiceConnection<PrivilegedHelperProtocol>;
    void helperWasInvalidated();

    const app::Services services_;
    bool needsRelaunch_ = false;
    std::int64_t jobsCompleted_ = 0;
    std::int64_t jobsFailed_ = 0;
    std::mutex mutex_; // guards the connections
    std::shared_ptr<RenderEngineConnection> xpcRenderEngine_;
    std::shared_ptr<HelperConnection> xpcPrivilegedHelper_;
    platform::data::UserDefaults::Observation pendingFolder_;
    /// For work that may outlive this object.
    const std::shared_ptr<AppDelegate*> self_ = std::make_shared<AppDelegate*>(this);
};
