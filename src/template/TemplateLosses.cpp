#include "template/TemplateLosses.h"

#include "base/MessageTemplate.h"
#include "base/Path.h"
#include "platform/data/XMLDocument.h"
#include "template/TemplateKeys.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

using platform::data::XMLNode;
using platform::data::XMLNodeKind;
using platform::data::XMLNodeRef;

namespace {

using Finding = TemplateReport::Finding;

// The element that would hold the key as its attribute.
std::optional<std::string_view> carrierOf(const VELM_Template& layer, std::string_view key) {
    for (const std::string_view child : layer.availableChildren()) {
        const auto attributes = VELM_Template::attributesForChild(child);
        if (std::find(attributes.begin(), attributes.end(), key) != attributes.end())
            return VELM_Template::translatedChildName(child);
    }
    return std::nullopt;
}

class Comparison {
public:
    Comparison(VELM_Template& document, const TemplateReport& report) : document_(document), report_(report) {}

    std::vector<Finding> losses(const std::optional<base::URL>& jobContainer);

private:
    void compareReports(const TemplateReport& after);
    void compareDocument();
    void compareLayer(const VELM_Template& before, const VELM_Template& after);
    void addComments(const XMLNode& node);
    void add(const VELM_Template& layer, std::string_view key, std::string sentence);

    VELM_Template& document_;
    const TemplateReport& report_;
    std::vector<Finding> losses_;
};

void Comparison::add(const VELM_Template& layer, std::string_view key, std::string sentence) {
    losses_.push_back({report_.placeOf(layer, key).value_or(TemplateReport::Place()), std::move(sentence)});
}

// What reading finds fault with in the written file too is in it still.
void Comparison::compareReports(const TemplateReport& after) {
    std::multiset<std::string_view> left;
    for (const Finding& finding : after.findings())
        left.insert(finding.message);
    const std::string file = document_.documentURL().value_or(base::URL()).path();
    for (const Finding& finding : report_.findings()) {
        if (finding.place.file != file) continue;
        if (const auto same = left.find(finding.message); same != left.end())
            left.erase(same);
        else
            losses_.push_back(finding);
    }
}

// A save keeps the size and the layers.
void Comparison::compareDocument() {
    for (const auto& [key, value] : document_.valuesDict()) {
        constexpr std::string_view kept[] = {VELM_XML_Key_type, VELM_XML_Key_version, VELM_XML_Key_frame,
                                             VELM_XML_Key_layers};
        if (std::find(std::begin(kept), std::end(kept), key) != std::end(kept)) continue;
        // A name that nobody gave is the word of the body element.
        if (key == VELM_XML_Key_name && !report_.originOf(document_, key)) continue;
        add(document_, key, base::message("the document's %@ is not written and is lost", key));
    }
}

void Comparison::compareLayer(const VELM_Template& before, const VELM_Template& after) {
    for (const auto& [key, value] : before.valuesDict()) {
        // What a nested file holds stays in that file.
        if (key == VELM_XML_Key_layers || after.value(key) == value) continue;
        if (const auto carrier = carrierOf(before, key); carrier && !after.value(key))
            add(before, key, base::message("the layer's %@ has no %@ element to stand in and is lost", key, *carrier));
        else if (!after.value(key))
            add(before, key, base::message("the layer's %@ is lost: a saved file does not bring it back", key));
        else
            add(before, key, base::message("the layer's %@ changes", key));
    }
}

void Comparison::addComments(const XMLNode& node) {
    for (const XMLNodeRef& child : node.children()) {
        if (child->isComment() || child->kind() == XMLNodeKind::processingInstruction) {
            Finding finding;
            finding.place.file = document_.documentURL()->path();
            finding.place.line = child->line();
            finding.message = child->isComment() ? "the comment is not written and is lost"
                                                 : "the processing instruction is not written and is lost";
            losses_.push_back(std::move(finding));
        }
        addComments(*child);
    }
}

std::vector<Finding> Comparison::losses(const std::optional<base::URL>& jobContainer) {
    compareDocument();
    const base::Data written = document_.xmlForSaving()->xmlData(platform::data::XMLFormat::prettyPrinted);
    TemplateReport reportAfter;
    const auto after = VELM_Template::templateWithPath(written, false, jobContainer, &reportAfter);
    if (!after) {
        add(document_, VELM_XML_Key_layers, "what is written can't be read back, so all of it is lost");
        return std::move(losses_);
    }
    compareReports(reportAfter);
    const auto layersBefore = document_.layers();
    const auto layersAfter = after->layers();
    for (std::size_t index = 0; index < std::min(layersBefore.size(), layersAfter.size()); ++index)
        compareLayer(*layersBefore[index], *layersAfter[index]);
    if (const auto file = document_.documentURL()) {
        if (const auto read = VELM_XML_object::instanceWithXMLObject<VELM_Template>(*file); read && read->xmlDoc())
            addComments(*read->xmlDoc());
    }
    std::stable_sort(losses_.begin(), losses_.end(), [](const Finding& left, const Finding& right) {
        return std::tie(left.place.file, left.place.line) < std::tie(right.place.file, right.place.line);
    });
    return std::move(losses_);
}

} // namespace

std::vector<Finding> lossesOfSaving(VELM_Template& document, const TemplateReport& report,
                                    const std::optional<base::URL>& jobContainer) {
    return Comparison(document, report).losses(jobContainer);
}
