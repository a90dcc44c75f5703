#include "internal/ArchivedClasses.h"
#include "internal/PlistTree.h"
#include "platform/data/Dates.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/TextEncoding.h"

#include <algorithm>
#include <utility>

namespace platform::data {
namespace {

constexpr int invalidValue = 4866; // NSCoderInvalidValueError

/// What the geometry class writes: a number for the kind, and a text under a key of its own.
struct GeometryForm {
    std::uint64_t special;
    const char* key;
};
constexpr GeometryForm pointForm{1, "NS.pointval"};
constexpr GeometryForm sizeForm{2, "NS.sizeval"};
constexpr GeometryForm rectForm{3, "NS.rectval"};

void set(const PlistTree& dictionary, const char* key, PlistTree value) {
    plist_dict_set_item(dictionary.get(), key, value.release());
}

PlistTree reference(std::uint64_t uid) {
    return PlistTree(plist_new_uid(uid));
}

class Archiver {
public:
    base::Result<base::Data> archive(const base::Value& root) {
        add(PlistTree(plist_new_string("$null")));
        const UID uid = root.isNothing() ? UID(0) : uidOf(root, 1); // nothing at the root is no NSNull
        if (!uid) return base::failure(uid.error());

        PlistTree objects(plist_new_array());
        for (PlistTree& object : objects_) {
            plist_array_append_item(objects.get(), object.release());
        }
        PlistTree top(plist_new_dict());
        set(top, "root", reference(*uid));
        PlistTree archive(plist_new_dict());
        set(archive, "$version", PlistTree(plist_new_uint(100000)));
        set(archive, "$archiver", PlistTree(plist_new_string("NSKeyedArchiver")));
        set(archive, "$top", std::move(top));
        set(archive, "$objects", std::move(objects));
        return binaryPlistData(archive.get());
    }

private:
    using UID = base::Result<std::uint64_t>;

    static tl::unexpected<base::Error> refused(const std::string& what) {
        return base::failure(base::cocoaErrorDomain, invalidValue, "The archive can't be made: " + what);
    }

    std::uint64_t add(PlistTree object) {
        objects_.push_back(std::move(object));
        return objects_.size() - 1;
    }

    UID uidOf(const base::Value& value, int depth) {
        if (depth > maximumPlistDepth) return refused("the values are nested too deeply");
        if (value.isNothing()) return add(dictionaryOfClass("NSNull"));
        if (const auto* text = value.as<std::string>()) return uidOfText(*text);
        if (value.isNumber()) return add(numberNode(value));
        if (const auto* data = value.as<base::Data>()) return uidOfData(*data);
        if (const auto* date = value.as<base::Date>()) return uidOfDate(*date);
        if (const auto* url = value.as<base::URL>()) return uidOfURL(*url);
        if (const auto* point = value.as<base::Point>()) return uidOfGeometry(pointForm, base::stringFromPoint(*point));
        if (const auto* size = value.as<base::Size>()) return uidOfGeometry(sizeForm, base::stringFromSize(*size));
        if (const auto* rect = value.as<base::Rect>()) return uidOfGeometry(rectForm, base::stringFromRect(*rect));
        if (const auto* array = value.as<base::Array>()) return uidOfArray(*array, depth);
        if (const auto* dictionary = value.as<base::Dictionary>()) return uidOfDictionary(*dictionary, depth);
        return uidOfObject(*value.as<base::ObjectRef>(), depth);
    }

    static PlistTree numberNode(const base::Value& number) {
        if (const auto* truth = number.as<bool>()) return PlistTree(plist_new_bool(*truth));
        if (const auto* real = number.as<double>()) return PlistTree(plist_new_real(*real));
        return PlistTree(plist_new_uint(static_cast<std::uint64_t>(number.integerValue())));
    }

    UID uidOfText(const std::string& text) {
        if (const auto known = texts_.find(text); known != texts_.end()) return known->second;
        if (!isValidUTF8(text)) return refused("a text is not UTF-8");
        // "$null" as a text would read as nothing, and a zero character would end it: both have a longer form.
        const bool needsLongForm = text == "$null" || text.find('\0') != std::string::npos;
        std::uint64_t uid;
        if (needsLongForm) {
            PlistTree node = dictionaryOfClass("NSMutableString");
            set(node, "NS.bytes", newPlistData(base::Data(text)));
            uid = add(std::move(node));
        } else {
            uid = add(newPlistText(text));
        }
        texts_.emplace(text, uid);
        return uid;
    }

    /// Equal data once: the library would share some of them, by where they happen to lie in memory.
    std::uint64_t uidOfData(const base::Data& data) {
        const auto known = data_.find(data.asText());
        if (known != data_.end()) return known->second;
        return data_.emplace(data.asText(), add(newPlistData(data))).first->second;
    }

    UID uidOfDate(base::Date date) {
        PlistTree node = dictionaryOfClass("NSDate");
        set(node, "NS.time", PlistTree(plist_new_real(secondsSinceReferenceDate(date))));
        return add(std::move(node));
    }

    UID uidOfURL(const base::URL& url) {
        const UID relative = uidOfText(url.absoluteString());
        if (!relative) return relative;
        PlistTree node = dictionaryOfClass("NSURL");
        set(node, "NS.base", reference(0));
        set(node, "NS.relative", reference(*relative));
        return add(std::move(node));
    }

    UID uidOfGeometry(const GeometryForm& form, const std::string& text) {
        const UID uid = uidOfText(text);
        PlistTree node = dictionaryOfClass("NSValue");
        set(node, "NS.special", PlistTree(plist_new_uint(form.special)));
        set(node, form.key, reference(*uid));
        return add(std::move(node));
    }

    UID uidOfArray(const base::Array& array, int depth) {
        const std::uint64_t uid = add(nullptr); // takes its number before what it holds
        PlistTree items(plist_new_array());
        for (const base::Value& item : array) {
            const UID itemUID = uidOf(item, depth + 1);
            if (!itemUID) return itemUID;
            plist_array_append_item(items.get(), reference(*itemUID).release());
        }
        objects_[uid] = dictionaryOfClass("NSMutableArray");
        set(objects_[uid], "NS.objects", std::move(items));
        return uid;
    }

    UID uidOfDictionary(const base::Dictionary& dictionary, int depth) {
        const std::uint64_t uid = add(nullptr);
        PlistTree keys(plist_new_array());
        PlistTree items(plist_new_array());
        for (const auto& [key, item] : dictionary) {
            const UID keyUID = uidOfText(key);
            if (!keyUID) return keyUID;
            const UID itemUID = uidOf(item, depth + 1);
            if (!itemUID) return itemUID;
            plist_array_append_item(keys.get(), reference(*keyUID).release());
            plist_array_append_item(items.get(), reference(*itemUID).release());
        }
        objects_[uid] = dictionaryOfClass("NSMutableDictionary");
        set(objects_[uid], "NS.keys", std::move(keys));
        set(objects_[uid], "NS.objects", std::move(items));
        return uid;
    }

    UID uidOfObject(const base::ObjectRef& object, int depth) {
        if (const auto known = seen_.find(object.get()); known != seen_.end()) return known->second;
        std::optional<base::Dictionary> content = object->encoded();
        if (!content) return refused(object->className() + " does not offer coding");
        const std::uint64_t uid = add(nullptr);
        seen_.emplace(object.get(), uid);
        const auto archivedClass = archivedClassNamed(object->className());
        const bool numbersAreObjects = archivedClass && archivedClass->numbersAreObjects;
        PlistTree node = dictionaryOfClass(object->className());
        for (const auto& [key, value] : inOrder(*content, archivedClass.get())) {
            if (value->isNothing()) {
                set(node, key->c_str(), reference(0));
            } else if (value->isNumber() && !numbersAreObjects) {
                set(node, key->c_str(), numberNode(*value));
            } else {
                const UID valueUID = uidOf(*value, depth + 1);
                if (!valueUID) return valueUID;
                set(node, key->c_str(), reference(*valueUID));
            }
        }
        kept_.push_back(std::move(*content)); // an object made while encoding must not free its address for another
        objects_[uid] = std::move(node);
        return uid;
    }

    using Entries = std::vector<std::pair<const std::string*, const base::Value*>>;

    static Entries inOrder(const base::Dictionary& content, const ArchivedClass* archivedClass) {
        static const std::vector<std::string> none;
        const std::vector<std::string>& order = archivedClass ? archivedClass->order : none;
        Entries entries;
        for (const std::string& key : order)
            if (const auto entry = content.find(key); entry != content.end())
                entries.emplace_back(&entry->first, &entry->second);
        for (const auto& [key, value] : content)
            if (std::find(order.begin(), order.end(), key) == order.end()) entries.emplace_back(&key, &value);
        return entries;
    }

    /// A dictionary with its "$class"; the class is described once.
    PlistTree dictionaryOfClass(const std::string& name) {
        auto known = classes_.find(name);
        if (known == classes_.end()) {
            PlistTree ancestry(plist_new_array());
            for (const std::string& ancestor : ancestryOf(name)) {
                plist_array_append_item(ancestry.get(), newPlistText(ancestor).release());
            }
            PlistTree description(plist_new_dict());
            set(description, "$classname", newPlistText(name));
            set(description, "$classes", std::move(ancestry));
            known = classes_.emplace(name, add(std::move(description))).first;
        }
        PlistTree node(plist_new_dict());
        set(node, "$class", reference(known->second));
        return node;
    }

    std::vector<PlistTree> objects_;
    std::map<std::string, std::uint64_t> texts_;
    std::map<std::string, std::uint64_t, std::less<>> data_;
    std::map<std::string, std::uint64_t> classes_;
    std::map<const base::Object*, std::uint64_t> seen_;
    std::vector<base::Dictionary> kept_;
};

} // namespace

base::Result<base::Data> archivedData(const base::Value& root) {
    return Archiver().archive(root);
}

} // namespace platform::data
