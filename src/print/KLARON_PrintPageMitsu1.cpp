#include "print/KLARON_PrintPageMitsu1.h"

#include "base/MessageTemplate.h"
#include "base/Places.h"
#include "internal/ProfileFiles.h"
#include "print/OldPage.h"
#include "print/mitsu_tables.h"

using platform::draw::ColorSpaceRef;

// -- Making ----------------------------------------------------------------------------------------------------------

std::shared_ptr<KLARON_PrintPageMitsu1> KLARON_PrintPageMitsu1::initWithOLDVELM(const base::Value& urlOrDictionary) {
    auto page = std::make_shared<KLARON_PrintPageMitsu1>();
    return page->readOldVelm(urlOrDictionary) ? page : nullptr;
}

base::Result<base::ObjectRef> KLARON_PrintPageMitsu1::initWithCoder(const base::Dictionary& values) {
    auto page = std::make_shared<KLARON_PrintPageMitsu1>();
    page->decode(values);
    return page;
}

KLARON_PrintPageRef KLARON_PrintPageMitsu1::copy() const {
    auto page = std::make_shared<KLARON_PrintPageMitsu1>();
    copyTo(*page);
    return page;
}

void KLARON_PrintPageMitsu1::copyTo(KLARON_PrintPage& page) const {
    KLARON_PrintPage::copyTo(page);
    auto& other = dynamic_cast<KLARON_PrintPageMitsu1&>(page);
    other.mediaSize_ = mediaSize_;
    other.multicut_ = multicut_;
    other.overcoat_ = overcoat_;
    other.quality_ = quality_;
}

std::optional<base::Dictionary> KLARON_PrintPageMitsu1::encoded() {
    auto values = KLARON_PrintPage::encoded();
    if (!values) return values;
    values->insert_or_assign("self.mediaSize", mediaSize_);
    values->insert_or_assign("self.multicut", multicut_);
    values->insert_or_assign("self.overcoat", overcoat_);
    values->insert_or_assign("self.quality", quality_);
    return values;
}

void KLARON_PrintPageMitsu1::decode(const base::Dictionary& values) {
    KLARON_PrintPage::decode(values);
    const auto number = [&](std::string_view key) { return base::valueForKey(values, key).integerValue(); };
    mediaSize_ = static_cast<std::uint8_t>(number("self.mediaSize"));
    multicut_ = static_cast<std::uint64_t>(number("self.multicut"));
    overcoat_ = static_cast<std::uint8_t>(number("self.overcoat"));
    quality_ = static_cast<std::uint8_t>(number("self.quality"));
}

// -- Old pages -------------------------------------------------------------------------------------------------------

namespace {

// By the number of the printer; the media stand for the types from 1 on.
struct OldPrinter {
    std::int64_t number;
    const char* model;
    std::vector<std::uint8_t> media;
};
const OldPrinter oldPrinters[] = {
    {57, "Mitsubishi CP-D90DW", {1, 4, 2, 15, 5}},
    {56, "Mitsu CP-D80DW [BETA]", {4, 15}},
    {47, "Mitsu CP-D70DW [BETA-may not work]", {1, 4, 2, 15, 5}},
};

const OldPrinter* oldPrinter(std::int64_t number) {
    for (const OldPrinter& printer : oldPrinters)
        if (printer.number == number) return &printer;
    return nullptr;
}

// The first row that fits counts; what none fits has no layout.
struct OldLayout {
    std::int64_t printer;
    std::uint8_t media;
    std::optional<std::int64_t> cutInHalf; // nothing: whatever it is
    std::uint64_t multicut;
};
constexpr OldLayout oldLayouts[] = {
    {57, 1, {}, 16},                                                           //
    {57, 2, 2, 1},     {57, 2, {}, 128},                                       //
    {57, 4, 1, 32},    {57, 4, {}, 64},                                        //
    {57, 5, 2, 512},   {57, 5, 3, 1024},  {57, 5, 4, 2048}, {57, 5, {}, 256},  //
    {57, 15, 2, 512},  {57, 15, 3, 128},  {57, 15, 4, 1},   {57, 15, 5, 4232}, //
    {57, 15, 6, 6036}, {57, 15, {}, 256},                                      //
    {56, 15, 2, 512},  {56, 15, 3, 128},  {56, 15, 4, 1},   {56, 15, {}, 256}, //
    {56, 4, 1, 32},    {56, 4, 2, 64},                                         //
};

std::uint64_t oldMulticut(std::int64_t printer, std::uint8_t media, std::int64_t cutInHalf) {
    for (const OldLayout& row : oldLayouts)
        if (row.printer == printer && row.media == media && row.cutInHalf.value_or(cutInHalf) == cutInHalf)
            return row.multicut;
    return 0;
}

} // namespace

bool KLARON_PrintPageMitsu1::readOldVelm(const base::Value& urlOrDictionary) {
    if (!KLARON_PrintPage::readOldVelm(urlOrDictionary)) return false;
    const auto settings = oldPageSettings(urlOrDictionary);
    if (!settings) return false;
    const OldPrinter* printer = oldPrinter(settings->printer);
    setRequiredModel(printer ? std::optional<std::string>(printer->model) : std::nullopt);
    const std::int64_t type = settings->mediaType;
    const bool isKnown = printer && type >= 1 && type <= std::ssize(printer->media);
    setMediaSize(isKnown ? printer->media[static_cast<std::size_t>(type - 1)] : 0);
    if (mediaSize_ == 0) {
        setReason("Unsupported Printer/Media");
        return true;
    }
    setMulticut(oldMulticut(settings->printer, mediaSize_, settings->cutInHalf));
    setOvercoat(settings->lamination == 2 ? 2 : 0);
    setQuality(settings->printingMode == 2 ? 10 : 0);
    return true;
}

// -- Paper and words -------------------------------------------------------------------------------------------------

void KLARON_PrintPageMitsu1::setMulticut(std::uint64_t multicut) {
    change("multicut", [&] { multicut_ = multicut; });
}

void KLARON_PrintPageMitsu1::setQuality(std::uint8_t quality) {
    change("quality", [&] { quality_ = quality; });
}

std::uint64_t KLARON_PrintPageMitsu1::pixelsWide() const {
    return static_cast<std::uint64_t>(
        mitsu_pixelsWideForMulticut(multicut_, static_cast<std::int64_t>(printerModel())));
}

std::uint64_t KLARON_PrintPageMitsu1::pixelsHigh() const {
    return pixelsHighForMulticut(multicut_);
}

std::uint64_t KLARON_PrintPageMitsu1::pixelsHighForMulticut(std::uint64_t multicut) const {
    return static_cast<std::uint64_t>(mitsu_pixelsHighForMulticut(multicut, static_cast<std::int64_t>(printerModel())));
}

base::Size KLARON_PrintPageMitsu1::outputSize() const {
    return {static_cast<double>(pixelsWide()), static_cast<double>(pixelsHigh())};
}

std::vector<std::string> KLARON_PrintPageMitsu1::paperNames() const {
    const auto modes = availableMulticutModes();
    return modes ? mitsu_paperNamesForMulticutModes(*modes) : std::vector<std::string>();
}

void KLARON_PrintPageMitsu1::configureNamedPaper(std::string_view name) {
    setMulticut(mitsu_multicutForNamedPaperSize(name));
    setMediaSize(mitsu_mediaCodeForPaperName(name));
    setReason(std::nullopt);
}

std::optional<std::string> KLARON_PrintPageMitsu1::mediaName() const {
    return base::message("( %@ media )", mitsu_mediaNameForCode(mediaSize_));
}

std::optional<std::string> KLARON_PrintPageMitsu1::reason() const {
    if (auto stored = KLARON_PrintPage::reason()) return stored;
    return base::message("No %@ with %@ media%@", requiredModel().value_or("printer"),
                         mitsu_mediaNameForCode(mediaSize_), "");
}

std::string KLARON_PrintPageMitsu1::description() const {
    return base::message("%@ %@, %@, %@\n( %@ media )", requiredModel(), mitsu_printNameForMulticut(multicut_),
                         mitsu_nameForQuality(quality_), mitsu_nameForOvercoat(overcoat_),
                         mitsu_mediaNameForCode(mediaSize_));
}

// -- Colours ---------------------------------------------------------------------------------------------------------

ColorSpaceRef KLARON_PrintPageMitsu1::outputColorSpace() {
    const auto url = base::resourceURL("CPD70_SF", "icc");
    return url ? print::colorSpaceOfFile(*url) : nullptr;
}

platform::filter::WorkingFormat KLARON_PrintPageMitsu1::rasterContextFormatWorking() const {
    return platform::filter::WorkingFormat::rgbaHalf;
}
