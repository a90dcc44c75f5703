#include "internal/ByteOrder.h"
#include "internal/ColorProfile.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <vector>

namespace platform::draw {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct KnownModel {
    cmsColorSpaceSignature signature;
    ColorModel model;
    int componentCount;
};
constexpr KnownModel knownModels[] = {
    {cmsSigRgbData, ColorModel::rgb, 3},
    {cmsSigGrayData, ColorModel::monochrome, 1},
    {cmsSigCmykData, ColorModel::cmyk, 4},
};

constexpr std::size_t largestProfile = 32u << 20;

// 0 beyond the end.
std::uint64_t numberAt(const Bytes& profile, std::uint64_t position) {
    return position + 4 <= profile.size() ? integerAt(&profile[position], 4, true) : 0;
}

// Tables are read to the end of the file and no further, and take no memory that is not used. Only the list of a
// multi-process element may name one element many thousand times, each of which would work on every colour.
bool hasExcessiveElements(const Bytes& profile) {
    constexpr std::uint64_t mostElements = 64, tagTable = 128, entrySize = 12;
    const std::uint64_t count = std::min<std::uint64_t>(numberAt(profile, tagTable), profile.size() / entrySize);
    for (std::uint64_t index = 0; index < count; ++index) {
        const std::uint64_t tag = numberAt(profile, tagTable + 4 + entrySize * index + 4);
        if (numberAt(profile, tag) == cmsSigMultiProcessElementType && numberAt(profile, tag + 12) > mostElements)
            return true;
    }
    return false;
}

bool isDeviceClass(std::uint64_t profileClass) {
    return profileClass == cmsSigInputClass || profileClass == cmsSigDisplayClass ||
           profileClass == cmsSigOutputClass || profileClass == cmsSigColorSpaceClass;
}

std::string descriptionOf(cmsHPROFILE profile) {
    char text[256] = {};
    cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text, sizeof text);
    return text;
}

Bytes bytesOf(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    Bytes bytes(size);
    if (size != 0) cmsSaveProfileToMem(profile, bytes.data(), &size);
    return bytes;
}

// The date of making in the header would make each process's profile another one.
void setFixedDate(Bytes& bytes) {
    constexpr std::uint8_t date[] = {0x07, 0xD0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0}; // 2000-01-01 00:00:00
    constexpr std::size_t datePosition = 24;
    if (bytes.size() >= datePosition + sizeof date)
        std::copy(std::begin(date), std::end(date), bytes.begin() + datePosition);
}

void setDescription(cmsHPROFILE profile, const char* text) {
    cmsMLU* description = cmsMLUalloc(nullptr, 1);
    if (!description) return;
    cmsMLUsetASCII(description, "en", "US", text);
    cmsWriteTag(profile, cmsSigProfileDescriptionTag, description);
    cmsMLUfree(description);
}

// Whether the tags that a conversion to sRGB needs can be read.
bool canBeConverted(cmsHPROFILE profile, const KnownModel& model) {
    const Profile target(cmsCreate_sRGBProfile());
    const cmsUInt32Number format = COLORSPACE_SH(static_cast<cmsUInt32Number>(_cmsLCMScolorSpace(model.signature))) |
                                   CHANNELS_SH(static_cast<cmsUInt32Number>(model.componentCount)) | BYTES_SH(1);
    return Transform(cmsCreateTransform(profile, format, target.get(), TYPE_RGB_8, renderingIntentOf(profile),
                                        cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE)) != nullptr;
}

bool leadsIntoDevice(cmsHPROFILE profile) {
    const bool isGray = cmsGetColorSpace(profile) == cmsSigGrayData;
    if (!isGray && cmsGetColorSpace(profile) != cmsSigRgbData) return false;
    if (isGray ? cmsIsTag(profile, cmsSigGrayTRCTag) : cmsIsMatrixShaper(profile)) return true;
    constexpr cmsTagSignature waysIn[] = {cmsSigBToA0Tag, cmsSigBToA1Tag, cmsSigBToA2Tag,
                                          cmsSigBToD0Tag, cmsSigBToD1Tag, cmsSigBToD2Tag};
    return std::any_of(std::begin(waysIn), std::end(waysIn),
                       [&](cmsTagSignature tag) { return cmsIsTag(profile, tag) != 0; });
}

// Whether 8-bit colours come through unchanged, to one step, on their way to sRGB.
bool looksLikeSRGB(cmsHPROFILE profile) {
    if (cmsGetColorSpace(profile) != cmsSigRgbData || !cmsIsMatrixShaper(profile)) return false;
    if (renderingIntentOf(profile) == INTENT_ABSOLUTE_COLORIMETRIC) return false;
    const Profile target(cmsCreate_sRGBProfile());
    const Transform transform(cmsCreateTransform(profile, TYPE_RGB_8, target.get(), TYPE_RGB_8,
                                                 INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE));
    if (!transform) return false;
    std::vector<std::uint8_t> colors;
    constexpr int step = 17;
    for (int red = 0; red <= 255; red += step)
        for (int green = 0; green <= 255; green += step)
            for (int blue = 0; blue <= 255; blue += step)
                colors.insert(colors.end(), {std::uint8_t(red), std::uint8_t(green), std::uint8_t(blue)});
    std::vector<std::uint8_t> converted(colors.size());
    cmsDoTransform(transform.get(), colors.data(), converted.data(), static_cast<cmsUInt32Number>(colors.size() / 3));
    return std::equal(colors.begin(), colors.end(), converted.begin(),
                      [](int before, int after) { return std::abs(before - after) <= 1; });
}

// Spaces by the bytes of their profiles, so that the same profile in a thousand pictures is one space.
class Interned {
public:
    static Interned& shared() {
        static auto* interned = new Interned; // outlives every user at exit
        return *interned;
    }
    ColorSpaceRef find(const Bytes& profile) {
        const std::lock_guard lock(mutex_);
        const auto found = spaces_.find(profile);
        return found == spaces_.end() ? nullptr : found->second.lock();
    }
    // The space that is kept for these bytes: this one, or the one another thread brought first.
    ColorSpaceRef keep(ColorSpaceRef space) {
        const std::lock_guard lock(mutex_);
        std::erase_if(spaces_, [](const auto& entry) { return entry.second.expired(); });
        auto& slot = spaces_[space->iccData().bytes];
        if (ColorSpaceRef present = slot.lock()) return present;
        slot = space;
        return space;
    }

private:
    std::mutex mutex_;
    std::map<Bytes, std::weak_ptr<const ColorSpace>> spaces_;
};

} // namespace

struct ColorSpace::Parts {
    ColorModel model;
    int componentCount;
    bool isSRGB;
    bool supportsOutput;
    Bytes profile;
    std::string name;
};

ColorSpace::ColorSpace(Parts&& parts)
    : model_(parts.model), componentCount_(parts.componentCount), isSRGB_(parts.isSRGB),
      supportsOutput_(parts.supportsOutput), iccData_(std::move(parts.profile)), name_(std::move(parts.name)) {}

const ColorSpaceRef& ColorSpace::sRGB() {
    static const ColorSpaceRef space = [] {
        const Profile profile(cmsCreate_sRGBProfile());
        // Version 2 is what every printer's software reads.
        cmsSetProfileVersion(profile.get(), 2.1);
        setDescription(profile.get(), "sRGB IEC61966-2.1");
        Bytes bytes = bytesOf(profile.get());
        setFixedDate(bytes);
        return Interned::shared().keep(std::make_shared<const ColorSpace>(
            Parts{ColorModel::rgb, 3, true, true, std::move(bytes), descriptionOf(profile.get())}));
    }();
    return space;
}

const ColorSpaceRef& ColorSpace::gray() {
    static const ColorSpaceRef space = [] {
        constexpr double parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
        cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, parameters);
        const Profile profile(cmsCreateGrayProfile(cmsD50_xyY(), curve));
        cmsFreeToneCurve(curve);
        cmsSetProfileVersion(profile.get(), 2.1);
        setDescription(profile.get(), "Gray with sRGB tone curve");
        Bytes bytes = bytesOf(profile.get());
        setFixedDate(bytes);
        return Interned::shared().keep(std::make_shared<const ColorSpace>(
            Parts{ColorModel::monochrome, 1, false, true, std::move(bytes), descriptionOf(profile.get())}));
    }();
    return space;
}

const ColorSpaceRef& ColorSpace::deviceCMYK() {
    static const ColorSpaceRef space =
        std::make_shared<const ColorSpace>(Parts{ColorModel::cmyk, 4, false, false, {}, "CMYK"});
    return space;
}

base::Result<ColorSpaceRef> ColorSpace::fromICC(std::span<const std::uint8_t> data) {
    if (data.size() > largestProfile) return base::failure(base::cocoaErrorDomain, 0, "the ICC profile is too large");
    Bytes bytes(data.begin(), data.end());
    if (ColorSpaceRef known = Interned::shared().find(bytes)) return known;
    const Profile profile = openProfile(bytes);
    if (!profile) return base::failure(base::cocoaErrorDomain, 0, "not an ICC profile");
    // As numbers: a broken profile may hold what is none of the enumeration's.
    const std::uint64_t signature = numberAt(bytes, 16);
    const std::uint64_t profileClass = numberAt(bytes, 12);
    const auto* known = std::find_if(std::begin(knownModels), std::end(knownModels),
                                     [&](const KnownModel& row) { return row.signature == signature; });
    if (known == std::end(knownModels) || !isDeviceClass(profileClass))
        return base::failure(base::cocoaErrorDomain, 0, "the ICC profile is for no RGB, grey or CMYK colours");
    if (hasExcessiveElements(bytes) || !canBeConverted(profile.get(), *known))
        return base::failure(base::cocoaErrorDomain, 0, "the ICC profile is broken");
    const bool isSRGB = looksLikeSRGB(profile.get());
    const bool supportsOutput = leadsIntoDevice(profile.get());
    std::string name = descriptionOf(profile.get());
    return Interned::shared().keep(std::make_shared<const ColorSpace>(
        Parts{known->model, known->componentCount, isSRGB, supportsOutput, std::move(bytes), std::move(name)}));
}

} // namespace platform::draw
