#include "print/KLARON_PrintPage_DNP.h"

#include "base/Log.h"
#include "base/MessageTemplate.h"
#include "print/DNPPlanes.h"
#include "print/ImageProcessingKeys.h"
#include "print/OldPage.h"
#include "print/dnp_photo.h"

#include <algorithm>
#include <span>
#include <utility>

using platform::filter::FilterImage;
using platform::filter::FilterImageRef;

// -- Making ----------------------------------------------------------------------------------------------------------

std::shared_ptr<KLARON_PrintPage_DNP> KLARON_PrintPage_DNP::initWithOLDVELM(const base::Value& urlOrDictionary) {
    auto page = std::make_shared<KLARON_PrintPage_DNP>();
    return page->readOldVelm(urlOrDictionary) ? page : nullptr;
}

base::Result<base::ObjectRef> KLARON_PrintPage_DNP::initWithCoder(const base::Dictionary& values) {
    auto page = std::make_shared<KLARON_PrintPage_DNP>();
    page->decode(values);
    return page;
}

KLARON_PrintPageRef KLARON_PrintPage_DNP::copy() const {
    auto page = std::make_shared<KLARON_PrintPage_DNP>();
    copyTo(*page);
    return page;
}

void KLARON_PrintPage_DNP::copyTo(KLARON_PrintPage& page) const {
    KLARON_PrintPage::copyTo(page);
    auto& other = dynamic_cast<KLARON_PrintPage_DNP&>(page);
    other.sheetFed_ = sheetFed_;
    other.overcoatBackside_ = overcoatBackside_;
    other.mediaSize_ = mediaSize_;
    other.multicut_ = multicut_;
    other.overcoat_ = overcoat_;
    other.quality_ = quality_;
    other.cutMode_ = cutMode_;
}

std::optional<base::Dictionary> KLARON_PrintPage_DNP::encoded() {
    auto values = KLARON_PrintPage::encoded();
    if (!values) return values;
    values->insert_or_assign("self.mediaSize", mediaSize_);
    values->insert_or_assign("self.multicut", multicut_);
    values->insert_or_assign("self.overcoat", overcoat_);
    values->insert_or_assign("self.cutMode", cutMode_);
    values->insert_or_assign("self.quality", quality_);
    values->insert_or_assign("self.sheetFed", sheetFed_);
    values->insert_or_assign("self.overcoatBackside", overcoatBackside_);
    return values;
}

void KLARON_PrintPage_DNP::decode(const base::Dictionary& values) {
    KLARON_PrintPage::decode(values);
    const auto code = [&](std::string_view key) {
        return static_cast<std::int32_t>(base::valueForKey(values, key).integerValue());
    };
    mediaSize_ = code("self.mediaSize");
    multicut_ = code("self.multicut");
    overcoat_ = code("self.overcoat");
    cutMode_ = code("self.cutmode"); // so spelled by whoever reads archives, though nobody writes it
    quality_ = code("self.quality");
    sheetFed_ = base::valueForKey(values, "self.sheetFed").boolValue();
    overcoatBackside_ = base::valueForKey(values, "self.overcoatBackside").boolValue();
}

// -- Old pages -------------------------------------------------------------------------------------------------------

namespace {

// The codes for the choices from `first` on, and the one for all others.
struct Choices {
    std::int32_t key;
    std::int64_t first;
    std::vector<std::int32_t> codes;
    std::int32_t otherwise;
};

std::int32_t chosen(std::span<const Choices> table, std::int64_t key, std::int64_t choice) {
    for (const Choices& row : table) {
        if (row.key != key) continue;
        const bool isListed = choice >= row.first && choice - row.first < std::ssize(row.codes);
        return isListed ? row.codes[static_cast<std::size_t>(choice - row.first)] : row.otherwise;
    }
    return 0;
}

const std::vector<std::int32_t> smallRolls{20, 30, 21, 31, 40};
const std::vector<std::int32_t> largeRolls{50, 51};

// By the printer, of the type of the medium.
const std::vector<Choices> oldMedia{{45, 1, smallRolls, 0},
                                    {48, 1, smallRolls, 0},
                                    {54, 1, smallRolls, 0},
                                    {46, 1, largeRolls, 0},
                                    {55, 1, largeRolls, 0}};

// By the medium, of "cutInHalf".
const std::vector<Choices> oldMulticuts{{20, 0, {}, 1},
                                        {21, 2, {1}, 3},
                                        {30, 0, {}, 2},
                                        {31, 2, {12}, 4},
                                        {40, 2, {12, 4, 2}, 5},
                                        {50, 2, {14, 13, 17, 16, 11}, 6},
                                        {51, 2, {6, 15, 14, 20, 13, 18, 17, 16, 19, 11, 21}, 7}};

const std::vector<Choices> oldCutModes{{31, 3, {120}, 0}, {30, 2, {120}, 0}};

} // namespace

std::int32_t KLARON_PrintPage_DNP::oldVelm_media(std::int64_t printer, std::int64_t mediaType) {
    return chosen(oldMedia, printer, mediaType);
}

std::int32_t KLARON_PrintPage_DNP::oldVelm_multicut(std::int32_t media, std::int64_t cutInHalf) {
    return chosen(oldMulticuts, media, cutInHalf);
}

std::int32_t KLARON_PrintPage_DNP::oldVelm_cutmode(std::int32_t media, std::int64_t cutInHalf) {
    return chosen(oldCutModes, media, cutInHalf);
}

bool KLARON_PrintPage_DNP::readOldVelm(const base::Value& urlOrDictionary) {
    if (!KLARON_PrintPage::readOldVelm(urlOrDictionary)) return false;
    const auto settings = oldPageSettings(urlOrDictionary);
    if (!settings) return false;
    setRequiredModel(modelNameForOldVelmPrinterIndex(settings->printer));
    setMediaSize(oldVelm_media(settings->printer, settings->mediaType));
    if (mediaSize_ == 0) {
        setReason("Unsupported Printer/Media");
        return true;
    }
    setMulticut(oldVelm_multicut(mediaSize_, settings->cutInHalf));
    setCutMode(oldVelm_cutmode(mediaSize_, settings->cutInHalf));
    setOvercoat(settings->lamination == 2 ? 1 : 0);
    setQuality(settings->printingMode == 2 ? 10 : 0);
    return true;
}

// -- Paper and words -------------------------------------------------------------------------------------------------

void KLARON_PrintPage_DNP::setMulticut(std::int32_t multicut) {
    change("multicut", [&] { multicut_ = multicut; });
}

void KLARON_PrintPage_DNP::setQuality(std::int32_t quality) {
    change("quality", [&] { quality_ = quality; });
}

base::Size KLARON_PrintPage_DNP::outputSize() const {
    if (multicut_ == 0) return {};
    return hiRes() ? dnp_pixelsForMulticutHiRes(multicut_) : dnp_pixelsForMulticut(multicut_);
}

base::Size KLARON_PrintPage_DNP::outputResolution() const {
    return {300, hiRes() ? 600.0 : 300.0};
}

int KLARON_PrintPage_DNP::headWidth() const {
    return outputSize().width < 1920 ? 1920 : 2560;
}

std::vector<std::string> KLARON_PrintPage_DNP::paperNames() const {
    const auto modes = availableMulticutModes();
    return modes ? dnp_paperNamesForMulticutModes(*modes) : std::vector<std::string>();
}

void KLARON_PrintPage_DNP::configureNamedPaper(std::string_view name) {
    KLARON_PrintPage::configureNamedPaper(name);
    setMulticut(dnp_multicutForNamedPaperSize(name));
    setMediaSize(dnp_mediaCodeForMultiCut(multicut_));
    setReason(std::nullopt);
}

std::optional<std::string> KLARON_PrintPage_DNP::mediaName() const {
    return base::message("( %@ media )", dnp_mediaNameForSize(mediaSize_));
}

std::optional<std::string> KLARON_PrintPage_DNP::reason() const {
    if (auto stored = KLARON_PrintPage::reason()) return stored;
    return base::message("No %@ with %@ media%@", requiredModel().value_or("printer"), dnp_mediaNameForSize(mediaSize_),
                         "");
}

std::string KLARON_PrintPage_DNP::description() const {
    return base::message("%@ %@, %@, %@\n( %@ media )", requiredModel(), dnp_paperNameForMulticut(multicut_),
                         dnp_nameForQuality(quality_), dnp_nameForOvercoat(overcoat_),
                         dnp_mediaNameForSize(mediaSize_));
}

// -- The page's image ------------------------------------------------------------------------------------------------

FilterImageRef KLARON_PrintPage_DNP::imagePreProcessWithOptions(const base::Dictionary& options) {
    if (multicut_ == 0) {
        const bool isPreview = base::valueForKey(options, PreProcessOption::isPreviewImage).boolValue();
        return isPreview ? KLARON_PrintPage::imagePreProcessWithOptions(options) : nullptr;
    }
    if (inputImages().size() == 1) return KLARON_PrintPage::imagePreProcessWithOptions(options);
    return imagePreProcessMultiWithOptions(options);
}

FilterImageRef KLARON_PrintPage_DNP::imagePreProcessMultiWithOptions(const base::Dictionary& options) {
    if (multicut_ == 0) return nullptr;
    const base::Size sheet = outputSize();
    FilterImageRef canvas =
        FilterImage::imageWithColor(1, 1, 1)->imageByCroppingToRect({0, 0, sheet.width, sheet.height});
    const std::vector<std::string> frames = dnp_framesForMulticut(multicut_, hiRes());
    base::Dictionary frameOptions = options;
    frameOptions[std::string(PreProcessOption::drawsCanvas)] = false;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const base::Rect frame = base::rectFromString(frames[i]);
        base::Array filters;
        if (i < imageFilters().size()) filters.assign(imageFilters()[i].begin(), imageFilters()[i].end());
        frameOptions[std::string(PreProcessOption::urlImage)] =
            inputImages().empty() ? base::URL() : inputImages()[std::min(i, inputImages().size() - 1)];
        frameOptions[std::string(PreProcessOption::imageFilters)] = std::move(filters);
        frameOptions[std::string(PreProcessOption::outputSize)] = base::stringFromSize(frame.size());
        FilterImageRef picture = KLARON_PrintPage::imagePreProcessWithOptions(frameOptions);
        // A sheet that lacks a picture would be wasted.
        if (!picture) return nullptr;
        if (frame.origin() != base::Point())
            picture = picture->imageByApplyingTransform(base::AffineTransform::translation(frame.x, frame.y));
        canvas = picture->imageByCompositingOverImage(canvas);
    }
    return canvas;
}

// -- Planes ----------------------------------------------------------------------------------------------------------

std::optional<std::vector<base::Data>> KLARON_PrintPage_DNP::YMCDataPlanes() {
    std::vector<base::Data> planes;
    bool isCopied = false;
    rasterData([&](const RasterData& raster) {
        const base::Size size = outputSize();
        const std::size_t count = isDuplex() || overcoatBackside_ ? 6 : 3;
        for (std::size_t i = 0; i < count; ++i)
            planes.push_back(dnpBlankPlane(headWidth(), static_cast<int>(size.height), outputResolution()));
        isCopied = dnpCopyRaster(raster, static_cast<std::size_t>(size.width), planes[0], planes[1], planes[2]);
    });
    if (!isCopied) {
        base::log("FAILED to raster data");
        return std::nullopt;
    }
    return planes;
}
