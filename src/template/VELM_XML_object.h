// The base of every document that is backed by XML: where it came from, its text, its parsed tree (made when first
// asked for) and the one dictionary that holds all its attributes. Owned by whoever made it; used by one thread at a
// time.
#pragma once

#include "base/Path.h"
#include "base/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform::data {
class XMLDocument;
}

inline constexpr std::string_view VELM_XML_Key_name = "name";
inline constexpr std::string_view VELM_XML_Key_type = "type";
inline constexpr std::string_view VELM_XML_Key_version = "version";

class VELM_XML_object : public base::Object {
public:
    static constexpr double versionMaximum = 1.99;
    static constexpr double versionMinimum = 1.0;

    /// An empty `valuesDict`.
    VELM_XML_object() = default;
    /// Takes in a text (the XML itself), a URL (read with detection of its encoding; a failure is logged) or data
    /// (UTF-8). False when no text came of it; the object is of no use then.
    bool initWithObject(const base::Value& object);
    /// A new object of class T out of a path text, a URL or data; null when it can't be read.
    template <class T>
    static std::shared_ptr<T> instanceWithXMLObject(const base::Value& object) {
        auto instance = std::make_shared<T>();
        return instance->initWithObject(pathAsURL(object)) ? instance : nullptr;
    }

    const std::optional<base::URL>& documentURL() const { return documentURL_; }
    virtual void setDocumentURL(std::optional<base::URL> url) { documentURL_ = std::move(url); }
    base::Dictionary& valuesDict() { return valuesDict_; }
    const base::Dictionary& valuesDict() const { return valuesDict_; }
    /// The raw text; none for an object that was not read.
    const std::optional<std::string>& xmlString() const { return xmlString_; }

    /// The parsed tree, null when the text can't be parsed at all. The first call reads the text if need be, parses
    /// it, and on an error logs that and parses again, recovering what it can. The result is kept, null included.
    const std::shared_ptr<const platform::data::XMLDocument>& xmlDoc();

    virtual std::optional<std::string> name() const;
    std::optional<std::string> type() const;
    std::optional<std::string> versionXML() const;
    /// Of the path of `documentURL`; none without one.
    std::optional<std::string> lastPathComponent() const;

    /// The entry of `valuesDict`, or nothing.
    const base::Value& value(std::string_view key) const { return base::valueForKey(valuesDict_, key); }
    /// Stores the entry; nothing removes it.
    void setValue(std::string_view key, base::Value value);

    std::string className() const override { return "VELM_XML_object"; }
    /// Drops from the live dictionary, with a log line each, the objects that can't be coded.
    std::optional<base::Dictionary> encoded() override;
    /// Fills an empty object from its archived form. False when an entry is of the wrong kind.
    bool takeArchived(const base::Dictionary& archived);

protected:
    /// Removes, with a log line each, the objects among the values that offer no coding.
    void dropUncodedValues();
    void setXMLString(std::optional<std::string> text) { xmlString_ = std::move(text); }

private:
    static base::Value pathAsURL(const base::Value& object);

    std::optional<base::URL> documentURL_;
    base::Dictionary valuesDict_;
    std::shared_ptr<const platform::data::XMLDocument> xmlDoc_;
    bool xmlDocIsMade_ = false;
    std::optional<std::string> xmlString_;
};
