// What a template that is looked at alone takes from an order: the job, and a package that stands for its first one.
#pragma once

#include "base/Error.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"

#include <optional>
#include <string>

namespace velmctl {

/// Templates refer to the package weakly: this must outlive their use.
struct OrderFilling {
    VELM_Job::Ref job;
    VELM_Package::Ref package;

    /// Empty for an empty path; an error when the order can't be read.
    static base::Result<OrderFilling> ofOrder(const std::string& path);
    /// The bundle's folder.
    std::optional<base::URL> container() const { return job ? job->urlJobContainer() : std::nullopt; }
};

} // namespace velmctl
