// What an object answers whose doings can be recorded (jobs/KLARON_Audit.h).
#pragma once

#include <optional>
#include <string>
#include <vector>

class KLARON_Audited {
public:
    virtual ~KLARON_Audited() = default;
    /// The keys of the products that it can provide.
    virtual std::vector<std::string> auditedProductKeys() const = 0;
    /// None where the name of its class will do.
    virtual std::optional<std::string> auditedDisplayName() const { return std::nullopt; }
};
