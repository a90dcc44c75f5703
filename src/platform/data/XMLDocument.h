// XML documents as trees of nodes that keep everything: elements, attributes, namespaces, text, CDATA, comments,
// processing instructions (of a document type only its name and identifiers). Names compare ignoring case, as all files
// of this system are read.
//
// Nodes are shared: an element owns its children and attributes, and a child knows its parent only while that lives.
// So whoever works on a tree keeps the document (or the topmost element). Not synchronized: a tree belongs to one
// thread at a time. Nothing here touches the network or expands entities.
//
// White space that only lays a document out is no node: a text of nothing but blanks stays when it is the element's
// only child or when the element holds other text, and is dropped beside elements, comments and instructions.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "platform/data/TextEncoding.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::data {

/// The numbers are those that messages print.
enum class XMLNodeKind : unsigned long {
    invalid = 0,
    document = 1,
    element = 2,
    attribute = 3,
    nameSpace = 4,
    processingInstruction = 5,
    comment = 6,
    text = 7,
    documentType = 8,
};

enum class XMLFormat { plain, prettyPrinted };

class XMLNode;
using XMLNodeRef = std::shared_ptr<XMLNode>;
class XMLDocument;
using XMLDocumentRef = std::shared_ptr<XMLDocument>;

/// A node. It is an Object so that a message prints it as its XML text.
class XMLNode : public base::Object, public std::enable_shared_from_this<XMLNode> {
protected:
    struct Key {};

public:
    static XMLNodeRef element(std::string_view name);
    /// An element that holds a text node; none for an empty text.
    static XMLNodeRef element(std::string_view name, std::string_view text);
    static XMLNodeRef text(std::string_view text);
    static XMLNodeRef cdata(std::string_view text);
    static XMLNodeRef comment(std::string_view text);
    static XMLNodeRef attribute(std::string_view name, std::string_view value);

    XMLNodeKind kind() const { return kind_; }
    unsigned long kindNumber() const { return static_cast<unsigned long>(kind_); }
    bool isElement() const { return kind_ == XMLNodeKind::element; }
    bool isComment() const { return kind_ == XMLNodeKind::comment; }
    bool isCDATA() const { return isCDATA_; }

    /// With its prefix ("ns:name"). Empty for texts, comments and documents; the target of an instruction.
    const std::string& name() const { return name_; }
    void setName(std::string_view name) { name_ = name; }
    /// Equal ignoring case.
    bool nameIs(std::string_view name) const;

    /// Of an element or document: the text of all its text nodes, in depth, one behind the other. Of others: their
    /// content.
    std::string stringValue() const;
    /// Of an element: replaces its children by one text node (by none for an empty text).
    void setStringValue(std::string_view text);

    /// In document order.
    const std::vector<XMLNodeRef>& children() const { return children_; }
    const std::vector<XMLNodeRef>& attributes() const { return attributes_; }
    /// Declarations of namespaces, which are not among the attributes.
    const std::vector<XMLNodeRef>& namespaces() const { return namespaces_; }
    XMLNodeRef attributeForName(std::string_view name) const;
    /// The attribute's text when there is such an attribute.
    std::optional<std::string> attributeValue(std::string_view name) const;
    /// The first child element of that name, or null.
    XMLNodeRef childNamed(std::string_view name) const;

    /// Takes the node out of its present parent.
    void addChild(XMLNodeRef child);
    void addChildren(const std::vector<XMLNodeRef>& children);
    /// Replaces the value of an attribute of that name, or adds it behind the others.
    void setAttribute(std::string_view name, std::string_view value);
    /// An attribute node of another element is taken out of it. Replaces one of the same name.
    void addAttribute(XMLNodeRef attribute);
    void removeAttribute(std::string_view name);
    /// Takes this node out of its parent.
    void detach();

    XMLNodeRef parent() const { return parent_.lock(); }
    /// Where it begins in the parsed text, counting from 1; an attribute answers its element's line. 0 for a node that
    /// was not parsed.
    unsigned line() const { return line_; }
    /// The number of its ancestors: 1 for the root of a document.
    unsigned long level() const;
    /// Its place among its parent's children, or attributes; 0 without a parent.
    unsigned long index() const;

    /// The XML text of this node and what is below it. Characters that XML can't hold become U+FFFD.
    std::string xmlString(XMLFormat format = XMLFormat::plain) const;

    std::string className() const override;
    std::string description() const override { return xmlString(); }

    XMLNode(Key, XMLNodeKind kind, std::string_view name, std::string_view value)
        : kind_(kind), name_(name), value_(value) {}

private:
    friend class XMLTreeBuilder;
    friend class XMLWriter;
    friend class XMLDocument;

    XMLNodeKind kind_;
    bool isCDATA_ = false;
    unsigned line_ = 0;
    std::string name_;
    std::string value_;
    std::vector<XMLNodeRef> children_;
    std::vector<XMLNodeRef> attributes_;
    std::vector<XMLNodeRef> namespaces_;
    std::weak_ptr<XMLNode> parent_;
};

/// The limits of what is read. Beyond them parsing fails with a message that names the limit.
inline constexpr std::size_t maximumXMLSize = maximumTextFileSize; ///< bytes
inline constexpr std::size_t maximumXMLNodes = 500'000;
inline constexpr std::size_t maximumXMLDepth = 200;
inline constexpr std::size_t maximumXMLAttributes = 1'000; ///< of one element; 20 that a document type adds

class XMLDocument final : public XMLNode {
public:
    /// A document around a root element (or none): version "1.0", encoding "UTF-8", standalone.
    static XMLDocumentRef withRoot(XMLNodeRef root);

    /// Parses UTF-8 text, whatever encoding its declaration names (readTextDetectingEncoding has changed it by then).
    /// Errors are in "NSXMLParserErrorDomain" and name the line.
    static base::Result<XMLDocumentRef> parse(std::string_view text);
    /// The recovering parse: makes what sense it can of damaged text. An error when not even a root element is found,
    /// and beyond the limits.
    static base::Result<XMLDocumentRef> parseTidy(std::string_view text);
    /// The cheap look: the root element with its attributes and nothing else. What follows its start tag is not looked
    /// at, so it may be damaged.
    static base::Result<XMLNodeRef> parseRootStartTag(std::string_view text);

    XMLNodeRef rootElement() const;
    const std::string& version() const { return version_; }
    const std::string& encoding() const { return encoding_; }
    bool isStandalone() const { return isStandalone_; }
    /// The first fault that the recovering parse met; none for a sound document.
    const std::optional<base::Error>& recoveredFrom() const { return recoveredFrom_; }

    /// The document as it stands in a file: declaration, nodes, a line feed at the end.
    base::Data xmlData(XMLFormat format = XMLFormat::plain) const;

    explicit XMLDocument(Key key) : XMLNode(key, XMLNodeKind::document, {}, {}) {}

private:
    friend class XMLTreeBuilder;
    friend class XMLWriter;

    std::string version_ = "1.0";
    std::string encoding_ = "UTF-8";
    bool isStandalone_ = false;
    std::optional<base::Error> recoveredFrom_;
};

} // namespace platform::data
