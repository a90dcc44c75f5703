// A template file: read with its report, described, copied, drawn, written and read again. Files that it names are not
// there.
#include "Fuzzing.h"
#include "base/Places.h"
#include "platform/data/XMLDocument.h"
#include "platform/draw/Image.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <string>

using fuzzing::NamelessFile;
using fuzzing::require;

namespace {

// Larger ones would cost time and find nothing more.
constexpr double mostPixelsDrawn = 512 * 512;

VELM_Template::Ref read(const NamelessFile& file, std::string_view content, TemplateReport* report = nullptr) {
    file.write(content);
    return VELM_Template::templateWithPath(file.path(), false, std::nullopt, report);
}

std::string written(VELM_Template& document) {
    return std::string(document.xmlForSaving()->xmlData(platform::data::XMLFormat::prettyPrinted).asText());
}

VELM_Template::Ref readAgain(const NamelessFile& file, const std::string& text) {
    TemplateReport report;
    auto document = read(file, text, &report);
    require(document != nullptr, "what was written is read");
    return document;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    static const NamelessFile file = [] {
        base::setPlaces(base::Places::below("/nonexistent"));
        return NamelessFile();
    }();
    TemplateReport report;
    const auto document = read(file, {reinterpret_cast<const char*>(bytes), size}, &report);
    if (!document) return 0;
    for (const TemplateReport::Finding& finding : report.findings())
        require(!finding.message.empty() && !finding.place.file.empty() && finding.place.line >= 0,
                "a finding says what and where");
    (void)document->description();
    for (const auto& layer : document->layers()) {
        (void)layer->description();
        require(layer->parent() == document, "a layer knows what it stands in");
        require(report.placeOf(*layer).has_value(), "the report knows each layer");
    }
    const auto copy = document->copyWithZone();
    require(copy->isEqual(*document), "a copy is equal");

    // What is written loses some of what was read, once.
    const std::string second = written(*readAgain(file, written(*document)));
    require(written(*readAgain(file, second)) == second, "what was written and read is written alike");

    const base::Size canvas = document->canvasSize();
    if (canvas.width * canvas.height > mostPixelsDrawn) return 0;
    (void)document->createProductImage();
    require(copy->isEqual(*document), "drawing changes no value");
    return 0;
}
