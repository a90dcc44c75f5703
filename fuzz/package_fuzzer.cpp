// A package file: looked at as the search does, read with its outputs, written and read again. Templates that it names
// are not there.
#include "Fuzzing.h"
#include "base/Places.h"
#include "jobs/VELM_Package.h"
#include "platform/data/XMLDocument.h"

#include <string>

using fuzzing::require;
using platform::data::XMLDocument;

namespace {

std::string written(VELM_Package& package) {
    const auto document = XMLDocument::withRoot(package.asXMLElement());
    return std::string(document->xmlData(platform::data::XMLFormat::prettyPrinted).asText());
}

/// As a ticket holds it.
VELM_Package::Ref readInline(const std::string& text) {
    const auto document = XMLDocument::parse(text);
    require(document.has_value(), "what was written is XML");
    return VELM_Package::initWithNode((*document)->rootElement(), nullptr);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    static const fuzzing::NamelessFile file = [] {
        base::setPlaces(base::Places::below("/nonexistent"));
        return fuzzing::NamelessFile();
    }();
    file.write({reinterpret_cast<const char*>(bytes), size});
    const auto package = VELM_Package::instanceWithXMLObject(base::URL::fileURLWithPath(file.path()));
    if (!package) return 0;
    int looks = 0;
    bool failed = false;
    package->parseXML([&](VELM_Package& looked, const std::optional<base::Error>& error, bool&) {
        (void)looked.name();
        (void)looked.pluCode();
        failed = error.has_value();
        ++looks;
    });
    require(looks <= 2, "there are two looks at most");
    if (failed) return 0;
    (void)package->description();
    for (const auto& output : package->outputs())
        (void)output->description();

    const auto again = readInline(written(*package));
    require(again != nullptr, "what was written is read");
    const std::string second = written(*again);
    require(written(*readInline(second)) == second, "what was written and read is written alike");
    return 0;
}
