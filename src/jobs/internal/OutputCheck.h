// The findings of an order that concern its outputs alone: canvases, destinations, folders, and products that would
// replace each other.
#pragma once

#include "jobs/OrderPlan.h"
#include "platform/data/Finding.h"
#include "platform/data/XMLDocument.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace jobs {

class OutputCheck {
public:
    /// `element` is that of the package, in its file or in the ticket, for the lines; null gives all the `place`.
    void check(const PlannedPackage& package, const platform::data::XMLNodeRef& element,
               const platform::data::Place& place);
    std::vector<platform::data::Finding> takeFindings() { return std::move(findings_); }

private:
    using Place = platform::data::Place;
    void checkOutput(const VELM_Output& output, const Place& place);
    void checkDestination(const PlannedFile& file, const Place& place);
    void checkFolder(const std::string& folder, const Place& place);

    std::vector<platform::data::Finding> findings_;
    std::set<std::string> folders_;
    std::set<std::string> replacing_; ///< The paths of products that replace what is there.
};

} // namespace jobs
