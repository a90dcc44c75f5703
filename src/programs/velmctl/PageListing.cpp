#include "PageListing.h"

#include "TextForms.h"
#include "base/Path.h"
#include "platform/filter/FilterImage.h"
#include "print/KLARON_PrintPageMitsu1.h"
#include "print/KLARON_PrintPage_DNP.h"
#include "print/dnp_photo.h"
#include "print/mitsu_tables.h"

#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace velmctl {

namespace {

using platform::filter::FilterRef;
using platform::filter::Filters;

base::Array pair(base::Size size) {
    return {size.width, size.height};
}

/// Entries whose form differs between people and programs.
class Listing {
public:
    explicit Listing(bool forPeople) : forPeople_(forPeople) {}

    void add(std::string key, base::Value value) {
        if (value) entries_.emplace_back(std::move(key), std::move(value));
    }
    /// A number with what it is called: two values for programs, "128 (6 x 4)" for people.
    void addCode(const std::string& key, std::int64_t code, const std::optional<std::string>& name) {
        if (forPeople_) return add(key, std::to_string(code) + (name && !name->empty() ? " (" + *name + ")" : ""));
        add(key, code);
        add(key + "Name", name);
    }
    void addSize(const std::string& key, base::Size size) {
        forPeople_ ? add(key, sizeText(size)) : add(key, pair(size));
    }
    /// A list of which people see one a line.
    void addList(const std::string& key, const base::Array& values, std::string (*text)(const base::Value&)) {
        if (!forPeople_) return add(key, values);
        for (std::size_t i = 0; i < values.size(); ++i)
            add(key + " " + std::to_string(i + 1), text(values[i]));
    }
    const Entries& entries() const { return entries_; }

private:
    bool forPeople_;
    Entries entries_;
};

// -- Files and filters -----------------------------------------------------------------------------------------------

base::Value pathOf(const base::URL& url) {
    return url.isFileURL() ? url.path() : url.absoluteString();
}

base::Dictionary imageValue(const base::URL& url) {
    base::Dictionary value{{"path", pathOf(url)}};
    if (const auto image = platform::filter::FilterImage::imageWithContentsOfURL(url, true))
        value.emplace("size", pair((*image)->extent().size()));
    else
        value.emplace("problem", image.error().localizedDescription);
    return value;
}

std::string imageText(const base::Value& value) {
    const auto& image = *value.as<base::Dictionary>();
    const std::string path = base::valueForKey(image, "path").textOr("");
    if (const auto problem = base::textForKey(image, "problem"))
        return problem->find(path) == std::string::npos ? path + ": " + *problem : *problem;
    const auto& size = *base::valueForKey(image, "size").as<base::Array>();
    return path + ", " + sizeText({size[0].doubleValue(), size[1].doubleValue()});
}

base::Array filterValues(const Filters& filters) {
    base::Array values;
    for (const FilterRef& filter : filters)
        values.push_back(base::Dictionary{{"name", filter->name()}, {"inputs", filter->inputs()}});
    return values;
}

std::string filterText(const base::Value& value) {
    std::string text;
    for (const base::Value& filter : *value.as<base::Array>()) {
        const auto& entries = *filter.as<base::Dictionary>();
        const std::string name = base::valueForKey(entries, "name").textOr("");
        const FilterRef unset = platform::filter::Filter::filterWithName(name);
        text += (text.empty() ? "" : "; ") + name;
        for (const auto& [key, input] : *base::valueForKey(entries, "inputs").as<base::Dictionary>()) {
            // What was never set would hide what was.
            if (unset && base::valueForKey(unset->inputs(), key) == input) continue;
            text += " " + key + "=";
            const auto* vector = input.as<base::Array>();
            if (!vector) text += input.stringValue().value_or(input.description());
            for (std::size_t i = 0; vector && i < vector->size(); ++i)
                text += (i == 0 ? "" : ",") + (*vector)[i].stringValue().value_or("?");
        }
    }
    return text.empty() ? "none" : text;
}

base::Value fileValue(const std::optional<base::URL>& url) {
    if (!url) return {};
    std::error_code ignored;
    const std::string path = pathOf(*url).textOr("");
    return path + (std::filesystem::exists(path, ignored) ? "" : " (missing)");
}

std::string plainText(const base::Value& value) {
    return value.textOr("");
}

// -- The kinds of pages ----------------------------------------------------------------------------------------------

void addMembers(Listing& listing, const KLARON_PrintPage_DNP& page) {
    listing.addCode("mediaSize", page.mediaSize(), dnp_mediaNameForSize(page.mediaSize()));
    listing.addCode("multicut", page.multicut(), dnp_paperNameForMulticut(page.multicut()));
    listing.addCode("quality", page.quality(), dnp_nameForQuality(page.quality()));
    listing.addCode("overcoat", page.overcoat(), dnp_nameForOvercoat(page.overcoat()));
    listing.add("cutMode", page.cutMode());
    listing.add("sheetFed", page.sheetFed());
    listing.add("overcoatBackside", page.overcoatBackside());
    listing.add("headWidth", page.headWidth());
    base::Array frames;
    for (const std::string& text : dnp_framesForMulticut(page.multicut(), page.hiRes())) {
        const base::Rect frame = base::rectFromString(text);
        frames.push_back(base::Array{frame.x, frame.y, frame.width, frame.height});
    }
    if (page.multicut() == 0) frames.clear();
    listing.addList("frames", frames, [](const base::Value& value) {
        const auto& sides = *value.as<base::Array>();
        return rectText(
            {sides[0].doubleValue(), sides[1].doubleValue(), sides[2].doubleValue(), sides[3].doubleValue()});
    });
}

void addMembers(Listing& listing, const KLARON_PrintPageMitsu1& page) {
    listing.addCode("mediaSize", page.mediaSize(), mitsu_mediaNameForCode(page.mediaSize()));
    listing.addCode("multicut", static_cast<std::int64_t>(page.multicut()),
                    mitsu_printNameForMulticut(page.multicut()));
    listing.addCode("quality", page.quality(), mitsu_nameForQuality(page.quality()));
    listing.addCode("overcoat", page.overcoat(), mitsu_nameForOvercoat(page.overcoat()));
}

Listing listingOf(const KLARON_PrintPage& page, bool forPeople) {
    Listing listing(forPeople);
    listing.add("class", page.className());
    listing.add("requiredModel", page.requiredModel());
    listing.add("printerModel", page.printerModel());
    listing.add("destinationLabel", page.destinationLabel());
    listing.addSize("outputSize", page.outputSize());
    listing.addSize("outputResolution", page.outputResolution());
    if (const auto* dnp = dynamic_cast<const KLARON_PrintPage_DNP*>(&page)) addMembers(listing, *dnp);
    if (const auto* mitsu = dynamic_cast<const KLARON_PrintPageMitsu1*>(&page)) addMembers(listing, *mitsu);
    listing.add("gravity", page.imageGravity());
    listing.add("autoRotate", page.autoRotate());
    listing.add("applyImageFilters", page.applyImageFilters());
    listing.add("requiresIdealMedia", page.requiresIdealMedia());
    listing.add("colorManagement", page.colorManagement());
    listing.add("printerProfileICC", fileValue(page.printerProfileICC()));
    listing.add("reason", page.reason());
    // An archive holds no copies; the old form does.
    if (page.copies() != 0) listing.add("copies", page.copies());
    base::Array images, filters, files;
    for (const base::URL& url : page.inputImages())
        images.push_back(imageValue(url));
    for (const Filters& list : page.imageFilters())
        filters.push_back(filterValues(list));
    for (const base::URL& url : page.fileURLs())
        files.push_back(fileValue(url));
    listing.addList("images", images, imageText);
    listing.addList("filters", filters, filterText);
    listing.addList("fileURLs", files, plainText);
    listing.add("properties", page.properties());
    return listing;
}

} // namespace

std::vector<std::string> pageLines(const KLARON_PrintPage& page) {
    return treeLines(listingOf(page, true).entries());
}

base::Dictionary pageValue(const KLARON_PrintPage& page) {
    const Listing listing = listingOf(page, false);
    return {listing.entries().begin(), listing.entries().end()};
}

} // namespace velmctl
