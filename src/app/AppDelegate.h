// The application's launch as far as it needs no window: the folder tree, the settings that name its folders, and the
// mirror of settings to the rendering-engine service. One object for each process, made by the program at its start
// and living as long as the program runs; used on the main thread, save setDefaultObject, which any thread may call.
#pragma once

#include "base/Path.h"
#include "base/Value.h"

#include <functional>
#include <memory>
#include <string_view>

/// The rendering-engine service as this program sees it: it keeps a copy of each user default.
class VELM_RenderingEngineProtocol {
public:
    using Reply = std::function<void(const base::Value& object, std::string_view key)>;

    virtual ~VELM_RenderingEngineProtocol() = default;
    /// Stores the pair in the service, then replies on any thread.
    virtual void setObject(const base::Value& object, std::string_view key, const Reply& reply) = 0;
};

class AppDelegate {
public:
    /// Null: there is no such service here; one that does nothing but answer stands in for it.
    explicit AppDelegate(std::shared_ptr<VELM_RenderingEngineProtocol> renderEngine = nullptr);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// The steps of the launch: the tree is made, the fallback output path is stored, the folders are reset.
    void applicationDidFinishLaunching();

    /// Has the folder tree made with all that the jobs need, and logs its root or why it could not be made.
    void connectToPrivilegedHelper();

    /// Points each folder key to its place in the tree: whatever was stored before is replaced, save for the pending
    /// folder, which keeps what a person chose and otherwise stays unset.
    void resetFolders();
    void verifySavedPath(const base::URL& path, std::string_view key);

    /// Stores a user default and mirrors it to the rendering-engine service.
    void setDefaultObject(const base::Value& object, std::string_view key);

    const std::shared_ptr<VELM_RenderingEngineProtocol>& getRenderingEngine() const { return renderEngine_; }

private:
    std::shared_ptr<VELM_RenderingEngineProtocol> renderEngine_;
};
