// Which class of page a printer takes.
#include "KLARON_PrintPage.h"
#include "KLARON_PrintPageMitsu1.h"
#include "KLARON_PrintPage_DNP.h"
#include "OldPage.h"

#include "base/Text.h"

namespace {

// The old indices of the printers that take a KLARON_PrintPageMitsu1. 0 and all others stand for DNP.
constexpr std::int64_t indexD70 = 47;
constexpr std::int64_t indexD80 = 56;
constexpr std::int64_t indexD90 = 57;

std::int64_t indexForModel(std::string_view model) {
    if (!base::lowercase(model).starts_with("mitsu")) return 0;
    if (model.find("90") != std::string_view::npos) return indexD90;
    return model.find("80") != std::string_view::npos ? indexD80 : indexD70;
}

KLARON_PrintPageRef pageForIndex(std::int64_t index, const base::Value& urlOrDictionary) {
    if (index == indexD70 || index == indexD80 || index == indexD90)
        return KLARON_PrintPageMitsu1::initWithOLDVELM(urlOrDictionary);
    return KLARON_PrintPage_DNP::initWithOLDVELM(urlOrDictionary);
}

} // namespace

KLARON_PrintPageRef KLARON_PrintPage::printPageForModel(std::string_view model) {
    const std::int64_t index = indexForModel(model);
    const KLARON_PrintPageRef page = printPageForOldVelm(base::Dictionary{{"printer", index}});
    if (page && index == 0) page->setRequiredModel(std::string(model));
    return page;
}

KLARON_PrintPageRef KLARON_PrintPage::printPageForOldVelm(const base::Value& urlOrDictionary) {
    const auto settings = oldPageSettings(urlOrDictionary);
    const std::int64_t index = settings ? settings->printer : 0;
    const KLARON_PrintPageRef page =
        settings ? pageForIndex(index, urlOrDictionary) : KLARON_PrintPage::initWithOLDVELM(urlOrDictionary);
    if (page) page->setPrinterModel(static_cast<std::uint64_t>(index));
    return page;
}
