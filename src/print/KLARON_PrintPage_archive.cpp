// The archived form of pages.
#include "KLARON_PrintPage.h"

#include "ArchivedFilters.h"
#include "KLARON_PrintPageMitsu1.h"
#include "KLARON_PrintPage_DNP.h"
#include "platform/data/KeyedArchive.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <utility>

using platform::data::ArchivedClass;
using platform::filter::Filter;
using platform::filter::Filters;

namespace {

constexpr std::string_view key_inputImages = "self.inputImages";
constexpr std::string_view key_fileURLs = "self.fileURLs";
constexpr std::string_view key_imageFilters = "self.imageFilters";
constexpr std::string_view key_properties = "self.properties";
constexpr std::string_view key_printerProfileICC = "self.printerProfileICC";
constexpr std::string_view key_requiredModel = "self.requiredModel";
constexpr std::string_view key_destinationLabel = "self.destinationLabel";
constexpr std::string_view key_colorManagement = "self.colorManagement";
constexpr std::string_view key_printerModel = "self.printerModel";

/// A key with the classes that are read under it, none for numbers; in the order of writing.
struct ArchivedKey {
    std::string_view name;
    std::vector<std::string> classes;
};

const std::vector<ArchivedKey>& commonKeys() {
    static const std::vector<ArchivedKey> keys{{key_inputImages, {"NSArray", "NSURL"}},
                                               {key_fileURLs, {"NSArray", "NSURL"}},
                                               {key_imageFilters, {"NSArray", "CIFilter"}},
                                               {key_properties, {"NSMutableDictionary"}},
                                               {key_printerProfileICC, {"NSURL"}},
                                               {key_requiredModel, {"NSString"}},
                                               {key_destinationLabel, {"NSString"}},
                                               {key_colorManagement, {}},
                                               {key_printerModel, {}}};
    return keys;
}

tl::unexpected<base::Error> refused(const std::string& what) {
    return base::failure(base::cocoaErrorDomain, 4864, "The archive can't be read: " + what);
}

std::string under(std::string_view key) {
    return "the list under \"" + std::string(key) + "\"";
}

/// Lists admit texts, numbers and their like besides the classes that are named for them.
base::Result<void> checkURLs(const base::Dictionary& values, std::string_view key) {
    const base::Value& value = base::valueForKey(values, key);
    if (!value) return {};
    const auto* urls = value.as<base::Array>();
    const auto isURL = [](const base::Value& each) { return each.as<base::URL>() != nullptr; };
    if (!urls || !std::all_of(urls->begin(), urls->end(), isURL))
        return refused(under(key) + " holds something that is no URL");
    return {};
}

base::Result<void> checkFilters(const base::Dictionary& values) {
    const base::Value& value = base::valueForKey(values, key_imageFilters);
    if (!value) return {};
    const auto* lists = value.as<base::Array>();
    const auto isFilter = [](const base::Value& each) { return each.object<Filter>() != nullptr; };
    const auto isFilters = [&](const base::Value& each) {
        const auto* filters = each.as<base::Array>();
        return filters && std::all_of(filters->begin(), filters->end(), isFilter);
    };
    if (!lists || !std::all_of(lists->begin(), lists->end(), isFilters))
        return refused(under(key_imageFilters) + " holds something that is no list of filters");
    return {};
}

base::Result<void> check(const base::Dictionary& values) {
    for (const std::string_view key : {key_inputImages, key_fileURLs})
        if (auto checked = checkURLs(values, key); !checked) return checked;
    return checkFilters(values);
}

void registerPage(std::string name, std::vector<std::string> ancestors, const std::vector<std::string>& ownNumbers,
                  base::Result<base::ObjectRef> (*initWithCoder)(const base::Dictionary&)) {
    ArchivedClass page;
    page.name = std::move(name);
    page.ancestors = std::move(ancestors);
    for (const ArchivedKey& key : commonKeys()) {
        page.keys.emplace(key.name, key.classes);
        page.order.emplace_back(key.name);
    }
    for (const std::string& key : ownNumbers)
        page.keys.emplace(key, std::vector<std::string>());
    page.make = [initWithCoder](const base::Dictionary& values) -> base::Result<base::ObjectRef> {
        if (auto checked = check(values); !checked) return base::failure(std::move(checked.error()));
        return initWithCoder(values);
    };
    registerArchivedClass(std::move(page));
}

/// A list without anything in it is written as none.
template <class List>
base::Value archived(const List& list) {
    return list.empty() ? base::Value() : base::Value(base::Array(list.begin(), list.end()));
}

std::vector<base::URL> urlsForKey(const base::Dictionary& values, std::string_view key) {
    std::vector<base::URL> urls;
    if (const auto* list = base::valueForKey(values, key).as<base::Array>())
        for (const base::Value& each : *list)
            urls.push_back(*each.as<base::URL>());
    return urls;
}

} // namespace

void registerPrintPageClasses() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        registerArchivedFilters();
        registerPage("KLARON_PrintPage", {"NSObject"}, {}, &KLARON_PrintPage::initWithCoder);
        registerPage("KLARON_PrintPage_DNP", {"KLARON_PrintPage", "NSObject"},
                     {"self.mediaSize", "self.multicut", "self.overcoat", "self.cutmode", "self.quality",
                      "self.sheetFed", "self.overcoatBackside"},
                     &KLARON_PrintPage_DNP::initWithCoder);
        registerPage("KLARON_PrintPageMitsu1", {"KLARON_PrintPage", "NSObject"},
                     {"self.mediaSize", "self.multicut", "self.overcoat", "self.quality"},
                     &KLARON_PrintPageMitsu1::initWithCoder);
    });
}

std::optional<base::Dictionary> KLARON_PrintPage::encoded() {
    registerPrintPageClasses();
    std::vector<base::Array> filters;
    for (const Filters& each : imageFilters_)
        filters.emplace_back(each.begin(), each.end());
    const auto set = [](std::string_view key, base::Value value) {
        return std::pair(std::string(key), std::move(value));
    };
    return base::Dictionary{set(key_inputImages, archived(inputImages_)),
                            set(key_fileURLs, archived(fileURLs_)),
                            set(key_imageFilters, archived(filters)),
                            set(key_properties, properties_),
                            set(key_printerProfileICC, printerProfileICC_),
                            set(key_requiredModel, requiredModel_),
                            set(key_destinationLabel, destinationLabel_),
                            set(key_colorManagement, colorManagement_),
                            set(key_printerModel, printerModel_)};
}

base::Result<base::ObjectRef> KLARON_PrintPage::initWithCoder(const base::Dictionary& values) {
    auto page = std::make_shared<KLARON_PrintPage>();
    page->decode(values);
    return page;
}

void KLARON_PrintPage::decode(const base::Dictionary& values) {
    inputImages_ = urlsForKey(values, key_inputImages);
    fileURLs_ = urlsForKey(values, key_fileURLs);
    imageFilters_.clear();
    if (const auto* lists = base::valueForKey(values, key_imageFilters).as<base::Array>())
        for (const base::Value& list : *lists) {
            Filters& filters = imageFilters_.emplace_back();
            for (const base::Value& filter : *list.as<base::Array>())
                filters.push_back(filter.object<Filter>());
        }
    const auto* properties = base::valueForKey(values, key_properties).as<base::Dictionary>();
    properties_ = properties ? *properties : base::Dictionary();
    const auto* profile = base::valueForKey(values, key_printerProfileICC).as<base::URL>();
    printerProfileICC_ = profile ? std::optional(*profile) : std::nullopt;
    requiredModel_ = base::textForKey(values, key_requiredModel);
    destinationLabel_ = base::textForKey(values, key_destinationLabel);
    using Limits = std::numeric_limits<std::int32_t>;
    const std::int64_t mode = base::valueForKey(values, key_colorManagement).integerValue();
    colorManagement_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(mode, Limits::min(), Limits::max()));
    printerModel_ = static_cast<std::uint64_t>(base::valueForKey(values, key_printerModel).integerValue());
}

base::Result<base::Data> archiveOfPage(const KLARON_PrintPageRef& page) {
    return platform::data::archivedData(base::Value(page));
}

base::Result<KLARON_PrintPageRef> pageFromArchive(std::string_view bytes) {
    registerPrintPageClasses();
    const auto root = platform::data::unarchived(bytes, {"KLARON_PrintPage"});
    if (!root) return base::failure(root.error());
    if (auto page = root->object<KLARON_PrintPage>()) return page;
    return refused("it holds no page");
}
