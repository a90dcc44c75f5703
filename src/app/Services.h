// The two services that the application talks to, and how it comes by them.
#pragma once

#include "base/Error.h"
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

/// The helper with the rights that an application lacks. Replies on any thread.
class PrivilegedHelperProtocol {
public:
    virtual ~PrivilegedHelperProtocol() = default;
    /// The version of the helper's interface.
    virtual void versionInterface(const std::function<void(double version)>& reply) = 0;
    /// Makes the folder tree with all that the jobs need, and replies its root.
    virtual void makeVELMFolderWithReply(const std::function<void(const base::Result<base::URL>&)>& reply) = 0;
};

namespace app {

/// Where connections are made to; asked anew for each connection. Null answers mean that there is no such service.
struct Services {
    std::function<std::shared_ptr<VELM_RenderingEngineProtocol>()> renderingEngine;
    std::function<std::shared_ptr<PrivilegedHelperProtocol>()> privilegedHelper;
    /// Installs the helper of that label with an administrator's consent.
    std::function<base::Result<void>(std::string_view label)> blessHelper;

    /// Services of this process itself: a mirror that does nothing but answer, and a helper with the rights of the
    /// user, which is never installed.
    static Services local();
};

} // namespace app
