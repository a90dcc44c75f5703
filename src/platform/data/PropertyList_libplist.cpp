#include "platform/data/PropertyList.h"

#include "internal/PlistTree.h"
#include "platform/data/Dates.h"
#include "platform/data/TextEncoding.h"
#include "platform/data/XMLDocument.h"

#include <cmath>
#include <cstdlib>

namespace platform::data {
namespace {

base::Result<base::Value> valueOf(plist_t node);

base::Result<base::Value> textOf(plist_t node) {
    const std::string_view text = plistText(node);
    if (!isValidUTF8(text)) return plistFailure("a text is damaged");
    return base::Value(text);
}

base::Result<base::Value> arrayOf(plist_t node) {
    base::Array array;
    for (plist_t item : plistItems(node)) {
        auto value = valueOf(item);
        if (!value) return value;
        array.push_back(std::move(*value));
    }
    return base::Value(std::move(array));
}

base::Result<base::Value> dictionaryOf(plist_t node) {
    base::Dictionary dictionary;
    for (auto& [key, item] : plistEntries(node)) {
        if (!isValidUTF8(key)) return plistFailure("a key is damaged");
        auto value = valueOf(item);
        if (!value) return value;
        dictionary.insert_or_assign(std::move(key), std::move(*value));
    }
    return base::Value(std::move(dictionary));
}

base::Value dateOf(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    // The library cuts both off towards 2001 and drops the sign of the second, so that a date would change a little
    // each time that it is read and written.
    constexpr std::int32_t step = 10;
    const std::chrono::microseconds fraction((microseconds + step / 2) / step * step);
    return dateFromSecondsSinceReferenceDate(seconds) + (seconds < 0 ? -fraction : fraction);
}

base::Result<base::Value> valueOf(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_STRING:
        return textOf(node);
    case PLIST_DATE:
        return dateOf(node);
    case PLIST_ARRAY:
        return arrayOf(node);
    case PLIST_DICT:
        return dictionaryOf(node);
    // The way in which the XML form writes a reference of an archive.
    case PLIST_UID:
        return base::Value(base::Dictionary{{"CF$UID", plistUID(node)}});
    default:
        if (auto scalar = plistScalar(node)) return std::move(*scalar);
        return plistFailure("it holds an unknown kind of value");
    }
}

/// The library's XML reader is lenient and says nothing of what went wrong, so the text is parsed as XML before it.
base::Result<PlistTree> readXMLPlist(std::string_view bytes) {
    if (bytes.size() > maximumPlistSize) return plistFailure("it is too large");
    auto text = textDetectingEncoding(std::string(bytes), "The property list");
    if (!text) return base::failure(std::move(text.error()));
    const auto document = XMLDocument::parse(*text);
    if (!document) return plistFailure(document.error().localizedDescription);
    if ((*document)->rootElement()->name() != "plist") return plistFailure("its root element is not \"plist\"");
    plist_t tree = nullptr;
    plist_from_xml(text->data(), static_cast<std::uint32_t>(text->size()), &tree);
    if (!tree) return plistFailure("it is no well-formed property list");
    return PlistTree(tree);
}

/// Builds the library's tree out of a value.
class TreeMaker {
public:
    explicit TreeMaker(PropertyListFormat format) : format_(format) {}

    base::Result<PlistTree> tree(const base::Value& value, const std::string& place, int depth) {
        if (depth > maximumPlistDepth) return refused(place, "is nested too deeply");
        if (const auto* truth = value.as<bool>()) return PlistTree(plist_new_bool(*truth));
        if (const auto* number = value.as<std::int64_t>()) {
            return PlistTree(plist_new_uint(static_cast<std::uint64_t>(*number)));
        }
        if (const auto* number = value.as<double>()) return real(*number, place);
        if (const auto* text = value.as<std::string>()) return this->text(*text, place);
        if (const auto* data = value.as<base::Data>()) return newPlistData(*data);
        if (const auto* date = value.as<base::Date>()) return this->date(*date, place);
        if (const auto* array = value.as<base::Array>()) return this->array(*array, place, depth);
        if (const auto* dictionary = value.as<base::Dictionary>()) return this->dictionary(*dictionary, place, depth);
        return refused(place, "is of a kind that property lists don't hold: " + value.description());
    }

private:
    static tl::unexpected<base::Error> refused(const std::string& place, const std::string& what) {
        return base::failure(base::cocoaErrorDomain, 3851,
                             "The value" + (place.empty() ? "" : " at " + place) + " " + what);
    }

    base::Result<PlistTree> real(double number, const std::string& place) {
        if (format_ == PropertyListFormat::xml && !std::isfinite(number)) return refused(place, "is not finite");
        return PlistTree(plist_new_real(number));
    }

    base::Result<PlistTree> text(const std::string& text, const std::string& place) {
        if (const char* problem = problemWith(text)) return refused(place, problem);
        return newPlistText(text);
    }

    const char* problemWith(std::string_view text) const {
        if (!isValidUTF8(text)) return "is not UTF-8 text";
        if (text.find('\0') != std::string_view::npos) return "holds a zero character";
        if (format_ == PropertyListFormat::binary) return nullptr;
        for (const char character : text) {
            const auto code = static_cast<unsigned char>(character);
            if (code < 0x20 && code != '\t' && code != '\n') return "holds a control character";
        }
        const bool holdsNoncharacter =
            text.find("\xEF\xBF\xBE") != std::string_view::npos || text.find("\xEF\xBF\xBF") != std::string_view::npos;
        return holdsNoncharacter ? "holds a character that XML does not know" : nullptr;
    }

    base::Result<PlistTree> date(base::Date date, const std::string& place) {
        const double seconds = secondsSinceReferenceDate(date);
        if (std::abs(seconds) >= 2147483647.0) return refused(place, "is a date out of range");
        const double whole = std::floor(seconds);
        return PlistTree(
            plist_new_date(static_cast<std::int32_t>(whole), static_cast<std::int32_t>((seconds - whole) * 1e6)));
    }

    base::Result<PlistTree> array(const base::Array& array, const std::string& place, int depth) {
        PlistTree node(plist_new_array());
        for (std::size_t index = 0; index < array.size(); ++index) {
            auto item = tree(array[index], place + "[" + std::to_string(index) + "]", depth + 1);
            if (!item) return item;
            plist_array_append_item(node.get(), item->release());
        }
        return node;
    }

    base::Result<PlistTree> dictionary(const base::Dictionary& dictionary, const std::string& place, int depth) {
        PlistTree node(plist_new_dict());
        for (const auto& [key, value] : dictionary) {
            if (const char* problem = problemWith(key)) return refused(place, std::string("has a key that ") + problem);
            auto item = tree(value, place.empty() ? "\"" + key + "\"" : place + ".\"" + key + "\"", depth + 1);
            if (!item) return item;
            plist_dict_set_item(node.get(), key.c_str(), item->release());
        }
        return node;
    }

    const PropertyListFormat format_;
};

} // namespace

base::Result<base::Value> parsePropertyList(std::string_view bytes) {
    auto tree = bytes.starts_with("bplist") ? readBinaryPlist(bytes) : readXMLPlist(bytes);
    if (!tree) return base::failure(std::move(tree.error()));
    return valueOf(tree->get());
}

base::Result<base::Data> propertyListData(const base::Value& value, PropertyListFormat format) {
    auto tree = TreeMaker(format).tree(value, {}, 1);
    if (!tree) return base::failure(std::move(tree.error()));
    if (format == PropertyListFormat::binary) return binaryPlistData(tree->get());
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(tree->get(), &text, &length);
    base::Data data(std::string_view(text, text ? length : 0));
    plist_to_xml_free(text);
    return data;
}

} // namespace platform::data
