#include "PlistTree.h"

#include <cstdlib>

namespace platform::data {

tl::unexpected<base::Error> plistFailure(std::string_view what) {
    return base::failure(base::cocoaErrorDomain, 3840, "The property list can't be read: " + std::string(what));
}

base::Result<PlistTree> readBinaryPlist(std::string_view bytes) {
    if (auto checked = checkBinaryPlist(bytes); !checked) return base::failure(std::move(checked.error()));
    plist_t tree = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &tree);
    if (!tree) return plistFailure("it is damaged");
    return PlistTree(tree);
}

base::Data binaryPlistData(plist_t tree) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(tree, &bytes, &length);
    base::Data data(std::string_view(bytes, bytes ? length : 0));
    plist_to_bin_free(bytes);
    return data;
}

std::string_view plistText(plist_t node) {
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return text ? std::string_view(text, length) : std::string_view();
}

std::int64_t plistInteger(plist_t node) {
    std::uint64_t number = 0;
    plist_get_uint_val(node, &number);
    return static_cast<std::int64_t>(number);
}

double plistReal(plist_t node) {
    double number = 0;
    plist_get_real_val(node, &number);
    return number;
}

std::uint64_t plistUID(plist_t node) {
    std::uint64_t number = 0;
    plist_get_uid_val(node, &number);
    return number;
}

base::Data plistData(plist_t node) {
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return base::Data(bytes ? std::string_view(bytes, length) : std::string_view());
}

std::uint64_t plistDataSize(plist_t node) {
    std::uint64_t length = 0;
    plist_get_data_ptr(node, &length);
    return length;
}

std::optional<base::Value> plistScalar(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t truth = 0;
        plist_get_bool_val(node, &truth);
        return base::Value(truth != 0);
    }
    case PLIST_UINT:
        return base::Value(plistInteger(node));
    case PLIST_REAL:
        return base::Value(plistReal(node));
    case PLIST_DATA:
        return base::Value(plistData(node));
    default:
        return std::nullopt;
    }
}

std::vector<plist_t> plistItems(plist_t array) {
    // By position the library counts from the start each time.
    std::vector<plist_t> items;
    items.reserve(plist_array_get_size(array));
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(array, &iterator);
    for (;;) {
        plist_t item = nullptr;
        plist_array_next_item(array, iterator, &item);
        if (!item) break;
        items.push_back(item);
    }
    std::free(iterator);
    return items;
}

std::vector<std::pair<std::string, plist_t>> plistEntries(plist_t dictionary) {
    std::vector<std::pair<std::string, plist_t>> entries;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(dictionary, &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, iterator, &key, &value);
        if (!value) break;
        entries.emplace_back(key ? key : "", value);
        std::free(key);
    }
    std::free(iterator);
    return entries;
}

PlistTree newPlistText(const std::string& text) {
    return PlistTree(plist_new_string(text.c_str()));
}

PlistTree newPlistData(const base::Data& data) {
    return PlistTree(plist_new_data(reinterpret_cast<const char*>(data.bytes.data()), data.size()));
}

} // namespace platform::data
