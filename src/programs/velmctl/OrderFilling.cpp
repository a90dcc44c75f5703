#include "OrderFilling.h"

namespace velmctl {

base::Result<OrderFilling> OrderFilling::ofOrder(const std::string& path) {
    OrderFilling filling;
    if (path.empty()) return filling;
    base::Result<VELM_Job::Ref> job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(path));
    if (!job) return base::failure(job.error());
    filling.job = *job;
    filling.package = VELM_Package::init();
    filling.package->setJob(filling.job);
    if (const auto name = filling.job->packageName()) filling.package->setValue("name", *name);
    return filling;
}

} // namespace velmctl
