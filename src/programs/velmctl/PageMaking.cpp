#include "PageMaking.h"

#include "Console.h"
#include "TextForms.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/data/AtomicFile.h"
#include "platform/draw/ColorSpace.h"
#include "platform/filter/FilterImage.h"
#include "print/KLARON_PrintPageMitsu1.h"
#include "print/KLARON_PrintPage_DNP.h"
#include "print/dnp_photo.h"
#include "print/mitsu_tables.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <string_view>

namespace velmctl {

namespace {

tl::unexpected<base::Error> fault(const std::string& text) {
    return base::failure(base::cocoaErrorDomain, 0, text);
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failed == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// -- What a kind of printer knows ------------------------------------------------------------------------------------

struct Code {
    std::int64_t number;
    std::string name;
};
using Codes = std::vector<Code>;

std::string list(const Codes& codes) {
    std::vector<std::string> names;
    for (const Code& code : codes)
        names.push_back(std::to_string(code.number) + (code.name.empty() ? "" : " (" + code.name + ")"));
    return joined(names);
}

/// The number of a name or of a number's text, which must be among the codes.
base::Result<std::int64_t> number(const std::string& what, const std::string& text, const Codes& codes) {
    const auto number = wholeNumber(text);
    for (const Code& code : codes)
        if (number == code.number || (!code.name.empty() && base::equalIgnoringCase(text, code.name)))
            return code.number;
    return fault("the printer knows no " + what + " " + text + "; it knows " + list(codes));
}

template <class Name>
Codes codesOf(std::initializer_list<int> numbers, Name name) {
    Codes codes;
    for (const int number : numbers)
        codes.push_back({number, name(number)});
    return codes;
}

struct PrinterKind {
    std::vector<std::string> models; ///< In full.
    Codes media;
    Codes multicuts;
    Codes qualities;
    Codes overcoats;
    std::vector<std::string> papers; ///< Those that velmctl offers; Mitsubishi's rules know more spellings.
};

const PrinterKind& dnpKind() {
    static const PrinterKind kind = [] {
        PrinterKind result;
        for (const std::int64_t index : {45, 46, 48, 54, 55, 56})
            result.models.push_back(modelNameForOldVelmPrinterIndex(index).value_or(""));
        for (const std::int32_t media : dnp_mediaSizes())
            result.media.push_back({media, dnp_mediaNameForSize(media)});
        for (const std::int32_t multicut : dnp_multicuts())
            result.multicuts.push_back({multicut, dnp_paperNameForMulticut(multicut)});
        result.qualities = codesOf({0, 10, 20, 30}, dnp_nameForQuality);
        result.overcoats = codesOf({0, 1, 21, 22, 101, 121, 122}, dnp_nameForOvercoat);
        result.papers = {"5x3.5", "5x5", "5x7", "6x4", "6x4.5", "6x6",  "6x8",
                         "6x9",   "8x4", "8x5", "8x6", "8x8",   "8x10", "8x12"};
        return result;
    }();
    return kind;
}

const PrinterKind& mitsuKind() {
    static const PrinterKind kind = [] {
        PrinterKind result;
        result.models = {"Mitsubishi CP-D70DW", "Mitsubishi CP-D80DW", "Mitsubishi CP-D90DW"};
        result.media = codesOf({1, 2, 4, 5, 15}, [](int media) {
            return mitsu_mediaNameForCode(static_cast<std::uint8_t>(media)).value_or("");
        });
        result.multicuts = codesOf({1, 5, 16, 32, 64, 128, 256, 512, 1024, 2048, 4232, 6036}, [](int multicut) {
            return mitsu_printNameForMulticut(static_cast<std::uint64_t>(multicut)).value_or("");
        });
        result.qualities = codesOf(
            {0, 3, 4, 10}, [](int quality) { return mitsu_nameForQuality(static_cast<std::uint8_t>(quality)); });
        result.overcoats = codesOf({0, 2}, [](int overcoat) {
            return mitsu_nameForOvercoat(static_cast<std::uint8_t>(overcoat)).value_or("");
        });
        result.papers = {"Media4x6Cut4x6",  "Media4x6Cut2-2x6", "Media5x7Cut5x5",   "Media5x7Cut5x7",
                         "Media6x8Cut4x6",  "Media6x8Cut6x6",   "Media6x8Cut6x8",   "Media6x8Cut6x14",
                         "Media6x8Cut6x20", "Media6x9Cut6x6",   "Media6x9Cut6x8.5", "Media6x9Cut6x9"};
        return result;
    }();
    return kind;
}

// -- Steps of making -------------------------------------------------------------------------------------------------

void warn(const std::string& words) {
    Console::shared().diagnostic(oneLine(words));
}

/// A model that no printer has is possible: the page then waits for a printer of that name.
void warnOfUnknownModel(const std::string& model, const PrinterKind& kind) {
    const auto isModel = [&](const std::string& known) { return base::equalIgnoringCase(known, model); };
    if (std::ranges::none_of(kind.models, isModel))
        warn("no printer of the model " + model + " is known; known models of this kind are " + joined(kind.models));
}

/// Whichever of the two kinds the page is, through the same names of members.
template <class Page>
base::Result<void> choosePaper(Page& page, const PageRequest& request, const PrinterKind& kind) {
    if (request.paper) page.configureNamedPaper(*request.paper);
    if (request.paper && page.multicut() == 0 && !request.multicut)
        return fault("the printer knows no paper " + *request.paper + "; it knows " + joined(kind.papers));
    if (request.multicut) {
        const auto multicut = number("multicut", std::to_string(*request.multicut), kind.multicuts);
        if (!multicut) return base::failure(multicut.error());
        page.setMulticut(static_cast<decltype(page.multicut())>(*multicut));
        page.setReason(std::nullopt);
    }
    if (!request.media) return {};
    const auto media = number("medium", std::to_string(*request.media), kind.media);
    if (!media) return base::failure(media.error());
    page.setMediaSize(static_cast<decltype(page.mediaSize())>(*media));
    return {};
}

template <class Page>
base::Result<void> configure(Page& page, const PageRequest& request, const PrinterKind& kind) {
    warnOfUnknownModel(request.model, kind);
    if (auto chosen = choosePaper(page, request, kind); !chosen) return chosen;
    if (request.quality) {
        const auto quality = number("quality", *request.quality, kind.qualities);
        if (!quality) return base::failure(quality.error());
        page.setQuality(static_cast<decltype(page.quality())>(*quality));
    }
    if (request.overcoat) {
        const auto overcoat = number("overcoat", *request.overcoat, kind.overcoats);
        if (!overcoat) return base::failure(overcoat.error());
        page.setOvercoat(static_cast<decltype(page.overcoat())>(*overcoat));
    }
    return {};
}

base::Result<void> configureKind(KLARON_PrintPage& page, const PageRequest& request) {
    if (auto* mitsu = dynamic_cast<KLARON_PrintPageMitsu1*>(&page)) return configure(*mitsu, request, mitsuKind());
    auto& dnp = dynamic_cast<KLARON_PrintPage_DNP&>(page);
    if (request.multicut && !request.media)
        dnp.setMediaSize(dnp_mediaCodeForMultiCut(static_cast<std::int32_t>(*request.multicut)));
    return configure(dnp, request, dnpKind());
}

base::Result<void> takeImages(KLARON_PrintPage& page, const PageRequest& request) {
    std::vector<base::URL> urls;
    for (const std::string& path : request.images) {
        urls.push_back(base::URL::fileURLWithPath(path).standardized());
        const auto image = platform::filter::FilterImage::imageWithContentsOfURL(urls.back(), true);
        if (!image) return fault(oneLine(path, image.error()));
    }
    if (urls.size() > 1 && dynamic_cast<KLARON_PrintPageMitsu1*>(&page))
        warn("a page of this printer takes one picture: only " + request.images.front() + " is printed");
    page.setInputImages(std::move(urls));
    return {};
}

base::Result<void> takeColors(KLARON_PrintPage& page, const PageRequest& request) {
    if (!request.adjustments.empty()) {
        base::Dictionary settings;
        for (const std::string& text : request.adjustments) {
            const std::size_t equals = text.find('=');
            settings.insert_or_assign(text.substr(0, equals), base::doubleValue(text.substr(equals + 1)));
        }
        std::vector<platform::filter::Filters> filters;
        for (std::size_t i = 0; i < page.inputImages().size(); ++i)
            filters.push_back(KLARON_PrintPage::filtersForOLDVELMColorAdjustments(settings).front());
        page.setImageFilters(std::move(filters));
    }
    if (request.colorManagement) page.setColorManagement(static_cast<std::int32_t>(*request.colorManagement));
    if (!request.profile) return {};
    const auto url = base::URL::fileURLWithPath(*request.profile).standardized();
    const auto bytes = platform::data::readFile(url.path());
    if (!bytes) return fault(oneLine(*request.profile, bytes.error()));
    const auto space = platform::draw::ColorSpace::fromICC(bytes->bytes);
    if (!space) return fault(oneLine(*request.profile, space.error()));
    page.setPrinterProfileICC(url);
    if (dynamic_cast<KLARON_PrintPageMitsu1*>(&page)) {
        warn("a page of this printer is always printed in the printer's own colours: the profile plays no part");
        return {};
    }
    page.outputColorSpace(); // takes a profile off that can't be printed to
    if (!page.printerProfileICC()) return fault(*request.profile + ": this profile can't be printed to");
    return {};
}

} // namespace

const std::vector<std::string>& pageGravities() {
    static const std::vector<std::string> names{"resizeAspectFill", "resizeAspect", "resize", "center",  "top",
                                                "bottom",           "left",         "right",  "topLeft", "topRight",
                                                "bottomLeft",       "bottomRight"};
    return names;
}

const std::vector<std::string>& pageAdjustments() {
    static const std::vector<std::string> names{"Brightness", "Contrast",  "Saturation", "Exposure", "Hue",
                                                "Gamma",      "Sharpness", "Red",        "Green",    "Blue"};
    return names;
}

std::string whyNoAdjustment(const std::string& text) {
    const std::size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    if (equals == std::string::npos || std::ranges::find(pageAdjustments(), name) == pageAdjustments().end())
        return text + " is not one of " + joined(pageAdjustments()) + ", an equals sign and a number";
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, failed] = std::from_chars(text.data() + equals + 1, end, value);
    return failed == std::errc() && stop == end && std::isfinite(value)
               ? std::string()
               : text + " has no number behind the equals sign";
}

base::Result<void> makePage(const PageRequest& request) {
    const KLARON_PrintPageRef page = KLARON_PrintPage::printPageForModel(request.model);
    if (auto configured = configureKind(*page, request); !configured) return configured;
    if (auto taken = takeImages(*page, request); !taken) return taken;
    if (auto taken = takeColors(*page, request); !taken) return taken;
    if (request.gravity) page->setImageGravity(*request.gravity);
    if (request.keepsUpright) page->setAutoRotate(false);
    if (request.copies) {
        page->setCopies(*request.copies);
        warn("the file of a page does not hold the number of copies: say it where the page is printed");
    }
    const std::string path = base::pathExtension(request.output).empty()
                                 ? base::appendingPathExtension(request.output, "printpage")
                                 : request.output;
    const auto archive = archiveOfPage(page);
    if (!archive) return base::failure(archive.error());
    if (const auto written = platform::data::writeFileAtomically(path, *archive); !written)
        return fault(oneLine(path, written.error()));
    Console::shared().result(path);
    return {};
}

} // namespace velmctl
