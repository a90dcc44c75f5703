// The reading of the tickets of the other product, Sorrel: one product code and one picture become one package
// reference. Its pictures' paths are relative to a search folder that it keeps in its own preferences.
#include "jobs/VELM_Job.h"

#include "base/MessageTemplate.h"
#include "base/Text.h"
#include "internal/TicketReading.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <array>

using base::equalIgnoringCase;
using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

constexpr std::string_view foreignJobType = "VELM_Job_sorrel";
constexpr std::array<std::string_view, 5> plainElements = {"printid", "plucode", "imagepath", "quantity", "ipaddress"};

std::optional<std::string> searchFolder() {
    const base::Value root = platform::data::UserDefaults::suite("com.apple.java.util.prefs").objectForKey("/");
    const auto* rootNode = root.as<base::Dictionary>();
    const auto* node = rootNode ? base::valueForKey(*rootNode, "Sorrel/").as<base::Dictionary>() : nullptr;
    return node ? base::textForKey(*node, "searchfolder") : std::nullopt;
}

base::Error missingElement(std::string_view name) {
    return {std::string(base::posixErrorDomain), jobs::jobErrorCode, base::message("Error parsing job; no %@", name)};
}

void noteOtherQuantity(const XMLNode& element, OrderReport* report) {
    if (report && base::integerValue(element.stringValue()) != 1)
        jobs::note(report, element, "<%@> is \"%@\", but an order makes each product once", element.name(),
                   jobs::quotable(element.stringValue()));
}

} // namespace

void VELM_Job::parseXML_sorrelVersion1(const XMLNodeRef& root, const ParseCompletion& completion, OrderReport* report) {
    const jobs::TicketReading reading{report, {}};
    for (const XMLNodeRef& child : jobs::childrenOf(root)) {
        if (!jobs::isElementToRead(*child, report)) continue;
        const std::string name = base::lowercase(child->name());
        if (std::find(plainElements.begin(), plainElements.end(), name) == plainElements.end()) {
            parseElement(*child, report);
            continue;
        }
        reading.noteElement(*child, name);
        reading.noteAttributes(*child);
        if (name == "quantity") noteOtherQuantity(*child, report);
        setObject(child->stringValue(), name);
    }
    const auto error = translateForeignValues();
    if (!error && report)
        if (const auto place = report->placeOf(std::nullopt, "plucode")) report->setPlace(0, *place);
    if (completion) completion(error);
}

std::optional<base::Error> VELM_Job::translateForeignValues() {
    const auto product = pluCode();
    if (!product || product->empty()) return missingElement("plucode");
    auto imagePath = base::textForKey(valuesDict_, "imagepath");
    if (!imagePath || imagePath->empty()) return missingElement("imagepath");

    if (const auto folder = searchFolder()) {
        imagePath = base::appendingPathComponent(*folder, *imagePath);
        if (const auto* paths = valueForKeyInDict("allimages").as<base::Array>(); paths && !paths->empty()) {
            base::Array inFolder;
            for (const base::Value& path : *paths)
                inFolder.emplace_back(base::appendingPathComponent(*folder, path.textOr("")));
            setObject(std::move(inFolder), "allimages");
        }
    }
    setObject(*imagePath, "imagepath");
    setObject(foreignJobType, "type");
    setObject(base::Array{base::Dictionary{{"name", *product}, {"key", base::Dictionary{{"image1", *imagePath}}}}},
              "package");
    return std::nullopt;
}
