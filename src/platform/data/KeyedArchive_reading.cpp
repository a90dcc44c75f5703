#include "base/Text.h"
#include "internal/ArchivedClasses.h"
#include "internal/PlistTree.h"
#include "platform/data/Dates.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/TextEncoding.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>

namespace platform::data {
namespace {

constexpr int corruptArchive = 4864; // NSCoderReadCorruptError

tl::unexpected<base::Error> refused(const std::string& what) {
    return base::failure(base::cocoaErrorDomain, corruptArchive, "The archive can't be read: " + what);
}

/// The classes that are expected in a place.
class Expectation {
public:
    explicit Expectation(const std::vector<std::string>& names) {
        std::set<std::string> immutable;
        for (const std::string& name : names) {
            immutable.insert(immutableName(name));
        }
        if (immutable.empty()) immutable.insert("NSNumber");
        names_ = std::make_shared<const std::set<std::string>>(std::move(immutable));
    }

    /// The same, inside of a list or dictionary.
    Expectation inside() const {
        Expectation inner = *this;
        inner.isInside_ = true;
        return inner;
    }

    bool admits(const std::vector<std::string>& ancestry) const {
        return std::any_of(ancestry.begin(), ancestry.end(), [&](const std::string& name) {
            const std::string immutable = immutableName(name);
            return names_->contains(immutable) || (isInside_ && isPropertyListClass(immutable));
        });
    }

    std::string description() const {
        std::string list;
        for (const std::string& name : *names_) {
            list += (list.empty() ? "" : ", ") + name;
        }
        return list;
    }

private:
    std::shared_ptr<const std::set<std::string>> names_;
    bool isInside_ = false;
};

plist_t entry(plist_t dictionary, const std::string& key) {
    return plist_dict_get_item(dictionary, key.c_str());
}

bool isOfType(plist_t node, plist_type type) {
    return node && plist_get_node_type(node) == type;
}

/// The class of a node that stands for itself; the empty text for a dictionary.
std::string bareClassOf(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_STRING:
        return "NSString";
    case PLIST_BOOLEAN:
    case PLIST_UINT:
    case PLIST_REAL:
        return "NSNumber";
    case PLIST_DATA:
        return "NSData";
    case PLIST_DATE:
        return "NSDate";
    default:
        return "";
    }
}

class Unarchiver {
public:
    using Outcome = base::Result<base::Value>;

    Outcome unarchive(std::string_view bytes, const Expectation& expected) {
        if (!bytes.starts_with("bplist")) return refused("it is not in the binary form");
        auto tree = readBinaryPlist(bytes);
        if (!tree) return refused(tree.error().localizedDescription);
        const plist_t archive = tree->get();
        if (!isOfType(archive, PLIST_DICT)) return refused("it is no keyed archive");
        const plist_t top = entry(archive, "$top");
        const plist_t objects = entry(archive, "$objects");
        if (!isOfType(objects, PLIST_ARRAY) || !isOfType(top, PLIST_DICT)) return refused("it is no keyed archive");
        const plist_t root = entry(top, "root");
        if (!isOfType(root, PLIST_UID)) return refused("it has no root");
        nodes_ = plistItems(objects);
        made_.resize(nodes_.size());
        return valueOf(root, expected, "root", 1);
    }

private:
    struct Made {
        bool isUnderWay = false;
        base::ObjectRef object;
    };

    /// The value of a node that stands under a key or in a list: a reference, or an inline number.
    Outcome valueOf(plist_t node, const Expectation& expected, const std::string& place, int depth) {
        if (!spend(valuesLeft_, 1)) return refused("it unfolds into too many values");
        if (depth > maximumPlistDepth) return refused("it is nested too deeply");
        if (!isOfType(node, PLIST_UID)) return bareValue(node, expected, place);
        const std::uint64_t uid = plistUID(node);
        if (uid == 0) return base::Value();
        if (uid >= nodes_.size()) return refused("a reference leads outside of it");
        if (!isOfType(nodes_[uid], PLIST_DICT)) return bareValue(nodes_[uid], expected, place);
        if (made_[uid].isUnderWay) return refused("an object contains itself");
        made_[uid].isUnderWay = true;
        Outcome value = objectValue(uid, expected, place, depth);
        made_[uid].isUnderWay = false;
        return value;
    }

    /// What is shared is written once and made each time: the work and the memory that an archive asks for have no
    /// bound by its size.
    static bool spend(std::uint64_t& left, std::uint64_t amount) {
        if (amount > left) return false;
        left -= amount;
        return true;
    }

    static base::Result<void> check(const std::vector<std::string>& ancestry, const Expectation& expected,
                                    const std::string& place) {
        if (expected.admits(ancestry)) return {};
        return refused("the value under \"" + place + "\" is of the unexpected class " + ancestry.front() +
                       "; expected: " + expected.description());
    }

    Outcome bareValue(plist_t node, const Expectation& expected, const std::string& place) {
        const std::string name = bareClassOf(node);
        if (name.empty()) return refused("the value under \"" + place + "\" is of no known form");
        if (auto checked = check({name}, expected, place); !checked) return base::failure(checked.error());
        if (isOfType(node, PLIST_STRING)) return textValue(plistText(node));
        if (isOfType(node, PLIST_DATA)) return dataValue(node);
        if (auto scalar = plistScalar(node)) return std::move(*scalar);
        return refused("a date stands without its class");
    }

    Outcome dataValue(plist_t node) {
        if (!spend(bytesLeft_, plistDataSize(node))) return refused("it unfolds into too many bytes");
        return base::Value(plistData(node));
    }

    Outcome textValue(std::string_view text) {
        if (!spend(bytesLeft_, text.size())) return refused("it unfolds into too many bytes");
        if (!isValidUTF8(text)) return refused("a text is damaged");
        return base::Value(text);
    }

    Outcome objectValue(std::uint64_t uid, const Expectation& expected, const std::string& place, int depth) {
        if (!spend(entriesLeft_, plist_dict_get_size(nodes_[uid]))) return refused("it unfolds into too many values");
        const plist_t entries = nodes_[uid];
        const std::shared_ptr<const ClassOfObjects> itsClass = classOf(entries);
        if (!itsClass) return refused("an object has no class");
        if (auto checked = check(itsClass->ancestry, expected, place); !checked) return base::failure(checked.error());
        if (itsClass->registered) return madeObject(uid, entries, *itsClass->registered, depth);
        const std::string& kind = itsClass->kind;
        if (kind == "NSArray") return arrayValue(entries, expected, place, depth);
        if (kind == "NSDictionary") return dictionaryValue(entries, expected, place, depth);
        if (kind == "NSString") return longText(entries);
        if (kind == "NSData") return longData(entries);
        if (kind == "NSDate") return dateValue(entries);
        if (kind == "NSURL") return urlValue(entries, depth);
        if (kind == "NSValue") return geometryValue(entries, depth);
        if (kind == "NSNull") return base::Value();
        return refused("the class " + itsClass->ancestry.front() + " is not known");
    }

    /// What the archive's description of a class names.
    struct ClassOfObjects {
        std::vector<std::string> ancestry;
        std::string kind; ///< Its immutable name.
        std::shared_ptr<const ArchivedClass> registered;
    };

    /// The class of an object; null when it has none. Looked up once for all its objects.
    std::shared_ptr<const ClassOfObjects> classOf(plist_t entries) {
        const plist_t reference = entry(entries, "$class");
        if (!isOfType(reference, PLIST_UID) || plistUID(reference) >= nodes_.size()) return nullptr;
        const std::uint64_t uid = plistUID(reference);
        if (const auto known = classes_.find(uid); known != classes_.end()) return known->second;
        std::shared_ptr<ClassOfObjects> found;
        const plist_t name = isOfType(nodes_[uid], PLIST_DICT) ? entry(nodes_[uid], "$classname") : nullptr;
        if (isOfType(name, PLIST_STRING)) {
            const std::string className(plistText(name));
            found = std::make_shared<ClassOfObjects>(
                ClassOfObjects{ancestryOf(className), immutableName(className), archivedClassNamed(className)});
        }
        return classes_.emplace(uid, std::move(found)).first->second;
    }

    Outcome madeObject(std::uint64_t uid, plist_t entries, const ArchivedClass& archivedClass, int depth) {
        if (made_[uid].object) return base::Value(made_[uid].object);
        base::Dictionary values;
        for (const auto& [key, classes] : archivedClass.keys) {
            const plist_t node = entry(entries, key);
            if (!node) continue;
            Outcome value = valueOf(node, Expectation(classes), key, depth + 1);
            if (!value) return value;
            if (!value->isNothing()) values.emplace(key, std::move(*value));
        }
        base::Result<base::ObjectRef> object = archivedClass.make(std::move(values));
        if (!object) return base::failure(std::move(object.error()));
        made_[uid].object = *object;
        return base::Value(std::move(*object));
    }

    Outcome arrayValue(plist_t entries, const Expectation& expected, const std::string& place, int depth) {
        const plist_t items = entry(entries, "NS.objects");
        if (!isOfType(items, PLIST_ARRAY)) return refused("a list is damaged");
        const Expectation inside = expected.inside();
        base::Array array;
        for (plist_t item : plistItems(items)) {
            Outcome value = valueOf(item, inside, place, depth + 1);
            if (!value) return value;
            array.push_back(std::move(*value));
        }
        return base::Value(std::move(array));
    }

    Outcome dictionaryValue(plist_t entries, const Expectation& expected, const std::string& place, int depth) {
        const plist_t keys = entry(entries, "NS.keys");
        const plist_t items = entry(entries, "NS.objects");
        if (!isOfType(keys, PLIST_ARRAY) || !isOfType(items, PLIST_ARRAY) ||
            plist_array_get_size(keys) != plist_array_get_size(items)) {
            return refused("a dictionary is damaged");
        }
        static const Expectation aText({"NSString"});
        const Expectation inside = expected.inside();
        const std::vector<plist_t> keyNodes = plistItems(keys);
        const std::vector<plist_t> itemNodes = plistItems(items);
        base::Dictionary dictionary;
        for (std::size_t index = 0; index < keyNodes.size(); ++index) {
            Outcome key = valueOf(keyNodes[index], aText, place, depth + 1);
            if (!key) return key;
            if (!key->isText()) return refused("a key of a dictionary is no text");
            Outcome value = valueOf(itemNodes[index], inside, *key->text(), depth + 1);
            if (!value) return value;
            dictionary.insert_or_assign(*key->text(), std::move(*value));
        }
        return base::Value(std::move(dictionary));
    }

    Outcome longText(plist_t entries) {
        if (const plist_t text = entry(entries, "NS.string"); isOfType(text, PLIST_STRING)) {
            return textValue(plistText(text));
        }
        if (const plist_t bytes = entry(entries, "NS.bytes"); isOfType(bytes, PLIST_DATA)) {
            const Outcome data = dataValue(bytes);
            return data ? textValue(data->as<base::Data>()->asText()) : data;
        }
        return refused("a text is damaged");
    }

    Outcome longData(plist_t entries) {
        const plist_t bytes = entry(entries, "NS.data");
        if (!isOfType(bytes, PLIST_DATA)) return refused("data are damaged");
        return dataValue(bytes);
    }

    static Outcome dateValue(plist_t entries) {
        const plist_t time = entry(entries, "NS.time");
        if (isOfType(time, PLIST_REAL)) return base::Value(dateFromSecondsSinceReferenceDate(plistReal(time)));
        if (isOfType(time, PLIST_UINT)) {
            return base::Value(dateFromSecondsSinceReferenceDate(static_cast<double>(plistInteger(time))));
        }
        return refused("a date is damaged");
    }

    Outcome urlValue(plist_t entries, int depth) {
        static const Expectation aText({"NSString"});
        static const Expectation aURL({"NSURL"});
        const plist_t relativeNode = entry(entries, "NS.relative");
        const plist_t baseNode = entry(entries, "NS.base");
        if (!relativeNode) return refused("a URL is damaged");
        Outcome relative = valueOf(relativeNode, aText, "NS.relative", depth + 1);
        if (!relative) return relative;
        if (!relative->isText()) return refused("a URL is damaged");
        Outcome base = baseNode ? valueOf(baseNode, aURL, "NS.base", depth + 1) : Outcome();
        if (!base) return base;
        const auto* baseURL = base->as<base::URL>();
        if (!baseURL && relative->text()->empty()) return base::Value(base::URL());
        if (!baseURL || hasScheme(*relative->text())) return base::Value(base::URL::fromString(*relative->text()));
        return base::Value(resolved(*relative->text(), *baseURL, namesFolder(baseNode)));
    }

    static bool hasScheme(std::string_view text) { return text.substr(0, text.find('/')).find(':') != text.npos; }

    /// Whether the text of an archived URL ends in a slash, which the URL that is made of it has no more.
    bool namesFolder(plist_t url) const {
        const plist_t text = entry(nodes_[plistUID(url)], "NS.relative");
        const plist_t bare = isOfType(text, PLIST_UID) ? nodes_[plistUID(text)] : text;
        return isOfType(bare, PLIST_STRING) && plistText(bare).ends_with('/');
    }

    static base::URL resolved(std::string_view relative, const base::URL& baseURL, bool isFolder) {
        if (relative.empty()) return baseURL;
        if (!baseURL.isFileURL()) {
            const std::string text = baseURL.absoluteString();
            return base::URL::fromString(text.substr(0, text.rfind('/') + 1).append(relative));
        }
        const std::string path = base::percentDecoded(relative);
        if (path.starts_with('/')) return base::URL::fileURLWithPath(path).standardized();
        const base::URL folder = isFolder ? baseURL : baseURL.deletingLastPathComponent();
        return folder.appendingPathComponent(path).standardized();
    }

    Outcome geometryValue(plist_t entries, int depth) {
        static const Expectation aText({"NSString"});
        for (const char* key : {"NS.pointval", "NS.sizeval", "NS.rectval"}) {
            const plist_t node = entry(entries, key);
            if (!node) continue;
            Outcome form = valueOf(node, aText, key, depth + 1);
            if (!form) return form;
            if (!form->isText()) break;
            const std::string text = *form->text();
            if (key == std::string_view("NS.pointval")) return base::Value(base::pointFromString(text));
            if (key == std::string_view("NS.sizeval")) return base::Value(base::sizeFromString(text));
            return base::Value(base::rectFromString(text));
        }
        return refused("a geometric value is damaged");
    }

    std::vector<plist_t> nodes_;
    std::vector<Made> made_;
    std::map<std::uint64_t, std::shared_ptr<const ClassOfObjects>> classes_;
    std::uint64_t valuesLeft_ = maximumPlistValues;
    std::uint64_t entriesLeft_ = 4 * maximumPlistValues; // of the dictionaries that objects are written as
    std::uint64_t bytesLeft_ = maximumPlistSize;
};

} // namespace

base::Result<base::Value> unarchived(std::string_view bytes, const std::vector<std::string>& allowedClasses) {
    return Unarchiver().unarchive(bytes, Expectation(allowedClasses));
}

} // namespace platform::data
