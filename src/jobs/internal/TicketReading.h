// Where the reader of a ticket stands, and to whom it tells what it passes over.
#pragma once

#include "XMLReading.h"
#include "jobs/OrderReport.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace jobs {

/// None of a job without a document.
inline const std::vector<platform::data::XMLNodeRef>& childrenOf(const platform::data::XMLNodeRef& root) {
    static const std::vector<platform::data::XMLNodeRef> none;
    return root ? root->children() : none;
}

/// In the ticket itself, or in the package reference of that index. Without a report nothing is noted.
struct TicketReading {
    OrderReport* report = nullptr;
    std::optional<std::size_t> reference;

    void noteAttributes(const platform::data::XMLNode& element) const {
        if (!report) return;
        for (const auto& attribute : element.attributes())
            note(report, *attribute, "attribute %@ of <%@> is not read", attribute->name(), element.name());
    }

    /// Keeps the place of what is stored under the key.
    void noteElement(const platform::data::XMLNode& element, std::string_view key) const {
        if (!report) return;
        if (const auto before = report->placeOf(reference, key))
            note(report, element, "<%@> stands in line %d already; the last one counts", element.name(), before->line);
        report->setPlace(reference, key, placeOf(element, *report));
    }
};

} // namespace jobs
