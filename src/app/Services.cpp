#include "app/Services.h"

#include "app/VELM.h"

namespace app {

namespace {

constexpr std::string_view osStatusErrorDomain = "NSOSStatusErrorDomain";
constexpr int authorizationInternalError = -60008;
constexpr double interfaceVersion = 0.24;

class LocalRenderingEngine final : public VELM_RenderingEngineProtocol {
public:
    void setObject(const base::Value& object, std::string_view key, const Reply& reply) override { reply(object, key); }
};

class LocalHelper final : public PrivilegedHelperProtocol {
public:
    void versionInterface(const std::function<void(double)>& reply) override { reply(interfaceVersion); }
    void makeVELMFolderWithReply(const std::function<void(const base::Result<base::URL>&)>& reply) override {
        reply(VELM::makeVELMFolder());
    }
};

} // namespace

Services Services::local() {
    return {
        [] { return std::make_shared<LocalRenderingEngine>(); },
        [] { return std::make_shared<LocalHelper>(); },
        [](std::string_view) -> base::Result<void> {
            return base::failure(osStatusErrorDomain, authorizationInternalError, "AuthorizationCreate() failed");
        },
    };
}

} // namespace app
