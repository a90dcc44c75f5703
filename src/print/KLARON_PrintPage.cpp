// What a page is and holds.
#include "KLARON_PrintPage.h"

#include "KLARON_USBPrinter.h"
#include "OldPage.h"
#include "base/Log.h"
#include "base/MessageTemplate.h"
#include "imaging/KLARON_Image.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/FileTypes.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>
#include <utility>

namespace {

namespace Property {
constexpr std::string_view dateInit = "dateInit";
constexpr std::string_view datePrintStart = "datePrintStart";
constexpr std::string_view datePrintComplete = "datePrintComplete";
constexpr std::string_view requiresIdealMedia = "requiresIdealMedia";
constexpr std::string_view applyImageFilters = "applyImageFilters";
constexpr std::string_view autoRotate = "autoRotate";
constexpr std::string_view gravity = "gravity";
constexpr std::string_view reason = "reason";
constexpr std::string_view paperName = "paperName";
} // namespace Property

/// What else changes with a key.
struct Dependency {
    std::string_view key;
    std::string_view dependent;
};
constexpr Dependency dependencies[] = {
    {"multicut", "imagePreview"},        {"quality", "imagePreview"},      {"inputImages", "imagePreview"},
    {"imageFilters", "imagePreview"},    {"imageGravity", "imagePreview"}, {"printerProfileICC", "imagePreview"},
    {"colorManagement", "imagePreview"}, {"autoRotate", "imagePreview"},   {"applyImageFilters", "imagePreview"},
    {"multicut", "selectedPaperIndex"},
};

std::optional<base::Date> dateForKey(const base::Dictionary& dictionary, std::string_view key) {
    const auto* date = base::valueForKey(dictionary, key).as<base::Date>();
    return date ? std::optional(*date) : std::nullopt;
}

bool boolForKey(const base::Dictionary& dictionary, std::string_view key, bool otherwise) {
    const base::Value& value = base::valueForKey(dictionary, key);
    return value ? value.boolValue() : otherwise;
}

std::uint64_t wholePixels(double length) {
    constexpr double most = 9007199254740992; // the largest up to which doubles hold every whole number
    return length > 0 ? static_cast<std::uint64_t>(std::min(length, most)) : 0;
}

} // namespace

// -- Making ----------------------------------------------------------------------------------------------------------

KLARON_PrintPage::KLARON_PrintPage() : colorManagement_(1) {
    setAutoRotate(true);
    setProperty(Property::dateInit, base::Date(std::chrono::system_clock::now()));
}

KLARON_PrintPage::~KLARON_PrintPage() = default;

KLARON_PrintPageRef KLARON_PrintPage::initWithOLDVELM(const base::Value& urlOrDictionary) {
    auto page = std::make_shared<KLARON_PrintPage>();
    return page->readOldVelm(urlOrDictionary) ? page : nullptr;
}

bool KLARON_PrintPage::readOldVelm(const base::Value& urlOrDictionary) {
    const auto page = readOldPage(urlOrDictionary);
    if (!page) {
        base::log("%@", page.error());
        return false;
    }
    const auto* url = urlOrDictionary.as<base::URL>();
    if (!url) return true; // only the kinds of pages read a dictionary that stands for itself
    using namespace platform::data;
    const base::URL image = appendingPathExtensionForType(url->deletingPathExtension(), kUTTypeJPEG);
    if (!conformsToType(image, kUTTypeImage)) {
        base::log("ERROR: cannot init a print page;no Image available at %@", *url);
        return false;
    }
    if (const auto modified = dateModified(*url)) setProperty(Property::dateInit, *modified);
    setFileURLs({*url, image});
    setInputImages({image});
    const auto* colors = base::valueForKey(*page, "colorAdjustSettings").as<base::Dictionary>();
    setImageFilters(filtersForOLDVELMColorAdjustments(colors ? *colors : base::Dictionary()));
    auto label = base::valueForKey(*page, "destinationLabel").stringValue();
    if (!label)
        if (const auto* order = base::valueForKey(*page, "webServerDictionary").as<base::Dictionary>())
            label = base::valueForKey(*order, "clienttdevicename").stringValue();
    setDestinationLabel(std::move(label));
    // "mediaTypeMustMatch" has no say: old pages never went on another medium, whatever they stated.
    setRequiresIdealMedia(true);
    const std::int64_t quantity = base::valueForKey(*page, "printQuantity").integerValue();
    setCopies(quantity == 0 ? 1 : quantity);
    return true;
}

KLARON_PrintPageRef KLARON_PrintPage::copy() const {
    auto page = std::make_shared<KLARON_PrintPage>();
    copyTo(*page);
    return page;
}

// The properties bring the date of this page's making along. Files, model, label and number of copies stay behind: the
// copy is no part of the order that this page came from.
void KLARON_PrintPage::copyTo(KLARON_PrintPage& page) const {
    page.inputImages_ = inputImages_;
    page.imageFilters_ = imageFilters_;
    page.printerProfileICC_ = printerProfileICC_;
    page.properties_ = properties_;
    page.colorManagement_ = colorManagement_;
    page.printer_ = printer_;
}

KLARON_PrintPageRef KLARON_PrintPage::snapshot() const {
    KLARON_PrintPageRef page = copy();
    page->printerModel_ = printerModel_;
    page->requiredModel_ = requiredModel_;
    page->isDuplex_ = isDuplex_;
    page->outputSize_ = outputSize_;
    page->outputResolution_ = outputResolution_;
    for (platform::filter::Filters& filters : page->imageFilters_)
        for (platform::filter::FilterRef& filter : filters) {
            const auto own = platform::filter::Filter::filterWithName(filter->name());
            for (const auto& [key, value] : filter->inputs())
                own->setInput(key, value);
            filter = own;
        }
    return page;
}

// -- Members ---------------------------------------------------------------------------------------------------------

void KLARON_PrintPage::change(std::string_view key, const std::function<void()>& change) {
    observable_.willChange(key);
    for (const Dependency& each : dependencies)
        if (each.key == key) observable_.willChange(each.dependent);
    change();
    observable_.didChange(key);
    for (const Dependency& each : dependencies)
        if (each.key == key) observable_.didChange(each.dependent);
}

void KLARON_PrintPage::setColorManagement(std::int32_t colorManagement) {
    change("colorManagement", [&] { colorManagement_ = colorManagement; });
}

void KLARON_PrintPage::setInputImages(std::vector<base::URL> urls) {
    change("inputImages", [&] { inputImages_ = std::move(urls); });
}

void KLARON_PrintPage::setImageFilters(std::vector<platform::filter::Filters> filters) {
    change("imageFilters", [&] { imageFilters_ = std::move(filters); });
}

void KLARON_PrintPage::setPrinterProfileICC(std::optional<base::URL> url) {
    change("printerProfileICC", [&] { printerProfileICC_ = std::move(url); });
}

const platform::run::GroupRef& KLARON_PrintPage::groupPrint() {
    if (!groupPrint_) groupPrint_ = std::make_shared<platform::run::Group>();
    return groupPrint_;
}

// -- Properties ------------------------------------------------------------------------------------------------------

void KLARON_PrintPage::setProperty(std::string_view key, base::Value value) {
    if (value)
        properties_.insert_or_assign(std::string(key), std::move(value));
    else if (const auto entry = properties_.find(key); entry != properties_.end())
        properties_.erase(entry);
}

std::optional<base::Date> KLARON_PrintPage::dateInit() const {
    return dateForKey(properties_, Property::dateInit);
}

std::optional<base::Date> KLARON_PrintPage::datePrintStart() const {
    return dateForKey(properties_, Property::datePrintStart);
}

void KLARON_PrintPage::setDatePrintStart(std::optional<base::Date> date) {
    setProperty(Property::datePrintStart, date);
}

std::optional<base::Date> KLARON_PrintPage::datePrintComplete() const {
    return dateForKey(properties_, Property::datePrintComplete);
}

void KLARON_PrintPage::setDatePrintComplete(std::optional<base::Date> date) {
    setProperty(Property::datePrintComplete, date);
}

bool KLARON_PrintPage::requiresIdealMedia() const {
    return boolForKey(properties_, Property::requiresIdealMedia, false);
}

void KLARON_PrintPage::setRequiresIdealMedia(bool required) {
    setProperty(Property::requiresIdealMedia, required);
}

bool KLARON_PrintPage::applyImageFilters() const {
    const bool hasFilters = static_cast<std::uint8_t>(imageFilters_.size()) != 0; // the count's low eight bits decide
    return boolForKey(properties_, Property::applyImageFilters, hasFilters);
}

void KLARON_PrintPage::setApplyImageFilters(bool apply) {
    change("applyImageFilters", [&] { setProperty(Property::applyImageFilters, apply); });
}

bool KLARON_PrintPage::autoRotate() const {
    return boolForKey(properties_, Property::autoRotate, true);
}

void KLARON_PrintPage::setAutoRotate(bool rotate) {
    change("autoRotate", [&] { setProperty(Property::autoRotate, rotate); });
}

std::string KLARON_PrintPage::imageGravity() const {
    return base::valueForKey(properties_, Property::gravity).textOr(kCAGravityResizeAspectFill);
}

void KLARON_PrintPage::setImageGravity(std::optional<std::string> gravity) {
    change("imageGravity", [&] { setProperty(Property::gravity, gravity); });
}

std::optional<std::string> KLARON_PrintPage::reason() const {
    return base::textForKey(properties_, Property::reason);
}

void KLARON_PrintPage::setReason(std::optional<std::string> reason) {
    setProperty(Property::reason, reason);
}

void KLARON_PrintPage::configureNamedPaper(std::string_view name) {
    setProperty(Property::paperName, name);
}

std::optional<std::size_t> KLARON_PrintPage::selectedPaperIndex() const {
    const auto modes = availableMulticutModes();
    if (!modes) return std::nullopt;
    const auto found = modes->find(multicutMode());
    if (found == modes->end()) return std::nullopt;
    return static_cast<std::size_t>(std::distance(modes->begin(), found));
}

void KLARON_PrintPage::setSelectedPaperIndex(std::size_t index) {
    const auto modes = availableMulticutModes();
    if (!modes || index >= modes->size()) return;
    const std::uint64_t mode = *std::next(modes->begin(), static_cast<std::ptrdiff_t>(index));
    if (mode != multicutMode()) setMulticutMode(mode);
}

// -- Size and words --------------------------------------------------------------------------------------------------

std::uint64_t KLARON_PrintPage::pixelsWide() const {
    return wholePixels(outputSize().width);
}

std::uint64_t KLARON_PrintPage::pixelsHigh() const {
    return wholePixels(outputSize().height);
}

std::string KLARON_PrintPage::description() const {
    const auto holder = printer();
    return base::message("%@ - %@", holder ? base::Value(holder->description()) : base::Value(),
                         inputImages_.empty() ? base::Value() : base::Value(inputImages_.front().lastPathComponent()));
}

// -- To the printer --------------------------------------------------------------------------------------------------

void KLARON_PrintPage::print() {
    if (const auto holder = printer()) holder->printPage(shared_from_this());
}

void KLARON_PrintPage::showPrintPanel(std::string_view) {
    base::log("%s", "-[KLARON_PrintPage showPrintPanel:]");
}

void KLARON_PrintPage::rasterData(const std::function<void(const RasterData&)>& callback) {
    if (!callback) return;
    const auto raster = imageRaster();
    if (!raster) return;
    constexpr std::uint32_t alphaInfoMask = 31;
    constexpr std::uint32_t alphaOnly = 7;
    RasterData data;
    data.width = static_cast<std::size_t>(raster->width);
    data.height = static_cast<std::size_t>(raster->height);
    data.bytesPerRow = raster->bytesPerRow;
    data.bitsPerComponent = static_cast<std::size_t>(raster->bitsPerComponent);
    data.alphaInfo = static_cast<std::uint32_t>(raster->alphaInfo) & alphaInfoMask;
    data.bytesPerPixel = data.alphaInfo == 0 ? 3 : data.alphaInfo == alphaOnly ? 1 : 4;
    data.data = raster->pixels->data();
    callback(data);
}
