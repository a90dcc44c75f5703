#include "app/AppDelegate.h"

#include "app/VELM.h"
#include "base/Log.h"
#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "folders/DefaultsMirror.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <array>

using platform::data::UserDefaults;

namespace {

class AbsentRenderingEngine final : public VELM_RenderingEngineProtocol {
public:
    void setObject(const base::Value& object, std::string_view key, const Reply& reply) override { reply(object, key); }
};

/// Folders that only a person sets.
constexpr std::array forcedKeys = {key_velmFolderJobsPending};

bool isForced(std::string_view key) {
    return std::any_of(forcedKeys.begin(), forcedKeys.end(),
                       [&](std::string_view forced) { return base::lowercase(key) == base::lowercase(forced); });
}

} // namespace

AppDelegate::AppDelegate(std::shared_ptr<VELM_RenderingEngineProtocol> renderEngine)
    : renderEngine_(renderEngine ? std::move(renderEngine) : std::make_shared<AbsentRenderingEngine>()) {
    folders::setDefaultsMirror(
        [this](const base::Value& object, std::string_view key) { setDefaultObject(object, key); });
}

AppDelegate::~AppDelegate() {
    folders::setDefaultsMirror({});
}

void AppDelegate::applicationDidFinishLaunching() {
    base::log("%s", "-[AppDelegate applicationDidFinishLaunching:]");
    connectToPrivilegedHelper();
    setDefaultObject(base::standardizingPath("~/Desktop/PrintToFileOutputs/Unknown"), key_velmFolderFallbackOutputPath);
    resetFolders();
}

void AppDelegate::connectToPrivilegedHelper() {
    const base::Result<base::URL> root = VELM::makeVELMFolder();
    if (root)
        base::log("VELM directory URL: %@", *root);
    else
        base::log("Error making VELM directory:%@", root.error());
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
    renderEngine_->setObject(object, key, [](const base::Value& stored, std::string_view storedKey) {
        const auto* data = stored.as<base::Data>();
        const std::string what = data ? base::message("%lu data bytes", data->size()) : stored.description();
        base::log("remotely set %@ for %@", what, storedKey);
    });
}
