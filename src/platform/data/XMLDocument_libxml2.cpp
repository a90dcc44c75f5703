// Parsing: libxml2 reads and reports events, and our own tree is built from them directly. Its own tree, its entity
// store and its loader of external files are never used.
#include "platform/data/XMLDocument.h"

#include "base/Text.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>
#include <memory>
#include <optional>
#include <vector>

namespace platform::data {
namespace {

constexpr std::string_view xmlErrorDomain = "NSXMLParserErrorDomain";

enum class Reading { strict, tidy, rootStartTag };

std::string_view view(const xmlChar* text) {
    return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

std::string qualifiedName(const xmlChar* prefix, const xmlChar* name) {
    return prefix ? std::string(view(prefix)) + ":" + std::string(view(name)) : std::string(view(name));
}

bool isBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

struct FreeParser {
    void operator()(xmlParserCtxtPtr parser) const {
        if (parser->myDoc) xmlFreeDoc(parser->myDoc); // holds entity declarations at most
        xmlFreeParserCtxt(parser);
    }
};
using Parser = std::unique_ptr<xmlParserCtxt, FreeParser>;

/// The memory of one document's nodes, in few large pieces. It lives as long as any node does, for a subtree may
/// outlive its document; nodes may end on any thread, but are made by the parser alone.
class NodeMemory {
public:
    static NodeMemory* create() { return new NodeMemory; }
    /// For a node or less, of the usual alignment.
    void* allocate(std::size_t size) {
        constexpr std::size_t alignment = alignof(std::max_align_t);
        size = (size + alignment - 1) / alignment * alignment;
        if (size > left_) {
            pieces_.push_back(std::make_unique_for_overwrite<std::byte[]>(pieceSize));
            left_ = pieceSize;
        }
        users_.fetch_add(1, std::memory_order_relaxed);
        left_ -= size;
        return pieces_.back().get() + left_;
    }
    void release() {
        if (users_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

private:
    NodeMemory() = default;
    ~NodeMemory() = default;

    // Small enough to come from the heap: mapped anew for each document, each page of it would be a fault.
    static constexpr std::size_t pieceSize = 32 * 1024;

    std::vector<std::unique_ptr<std::byte[]>> pieces_;
    std::size_t left_ = 0;               // of the last one
    std::atomic<std::size_t> users_ = 1; // the creator
};

template <class T>
struct NodeAllocator {
    using value_type = T;

    explicit NodeAllocator(NodeMemory* nodeMemory) : memory(nodeMemory) {}
    template <class Other>
    NodeAllocator(const NodeAllocator<Other>& other) : memory(other.memory) {}
    T* allocate(std::size_t count) {
        static_assert(sizeof(T) <= 1024 && alignof(T) <= alignof(std::max_align_t));
        return static_cast<T*>(memory->allocate(count * sizeof(T)));
    }
    void deallocate(T*, std::size_t) { memory->release(); }
    template <class Other>
    bool operator==(const NodeAllocator<Other>& other) const {
        return memory == other.memory;
    }

    NodeMemory* memory;
};

struct ReleaseNodeMemory {
    void operator()(NodeMemory* memory) const { memory->release(); }
};

} // namespace

/// Receives the parser's events. The static functions are what libxml2 calls; `context` is the builder.
class XMLTreeBuilder {
public:
    explicit XMLTreeBuilder(Reading reading, unsigned firstLine = 1) : reading_(reading), firstLine_(firstLine) {}

    base::Result<XMLDocumentRef> build(std::string_view text) {
        static const bool isReady = (xmlInitParser(), true); // must happen once, before several threads parse
        static_cast<void>(isReady);
        if (auto error = refusal(text)) return base::failure(std::move(*error));
        parser_.reset(xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
        if (!parser_) return base::failure(xmlErrorDomain, XML_ERR_NO_MEMORY, "no memory to parse XML");
        configure();
        xmlParseDocument(parser_.get());
        return result();
    }

private:
    std::optional<base::Error> refusal(std::string_view text) const {
        if (text.size() > maximumXMLSize) {
            return error(XML_ERR_INTERNAL_ERROR,
                         "the document is larger than " + std::to_string(maximumXMLSize) + " bytes");
        }
        if (isBlank(text)) return error(XML_ERR_DOCUMENT_EMPTY, "the document is empty");
        if (!isValidUTF8(text)) return error(XML_ERR_INVALID_ENCODING, "the document is not UTF-8 text");
        if (auto attributes = attributesRefusal(text)) return attributes;
        return dashesRefusal(text);
    }

    /// At each "--" inside a comment the parser makes an error and copies into it all of the comment so far.
    static std::optional<base::Error> dashesRefusal(std::string_view text) {
        constexpr std::size_t maximumCopied = std::size_t{1} << 30;
        std::size_t copied = 0;
        for (std::size_t start = text.find("<!--"); start != std::string_view::npos; start = text.find("<!--", start)) {
            start += 4;
            const std::size_t end = std::min(text.find("-->", start), text.size());
            for (std::size_t at = text.find("--", start); at < end; at = text.find("--", at + 1))
                if ((copied += at - start) > maximumCopied)
                    return error(XML_ERR_INTERNAL_ERROR, "a comment has far too many \"--\" in it");
            start = end;
        }
        return std::nullopt;
    }

    /// The parser compares all attributes of an element with each other, those that the document type adds too: very
    /// many would take it hours. They are counted by their quoted values; no value holds a "<".
    std::optional<base::Error> attributesRefusal(std::string_view text) const {
        constexpr int maximumEndless = 20;
        int endless = 0;
        std::size_t defaulted = 0;
        // Where the next one ends. Looked for once: a text may be full of comments that begin and don't end.
        std::size_t commentEnd = 0;
        std::size_t cdataEnd = 0;
        const auto endBehind = [&](std::size_t start, std::string_view mark, std::size_t& known) {
            if (known < start) known = text.find(mark, start);
            return known;
        };
        std::size_t at = 0;
        while ((at = text.find('<', at)) != std::string_view::npos) {
            const std::size_t tag = at;
            const std::string_view rest = text.substr(tag);
            const bool isComment = rest.starts_with("<!--");
            if (isComment || rest.starts_with("<![CDATA[")) {
                const std::size_t end =
                    isComment ? endBehind(tag + 4, "-->", commentEnd) : endBehind(tag + 9, "]]>", cdataEnd);
                // Recovering, the parser reads on in the middle of one that it finds too long.
                if (end - tag < XML_MAX_TEXT_LENGTH) {
                    at = end;
                    continue;
                }
                // At each it looks for the end anew.
                if (++endless > maximumEndless)
                    return error(XML_ERR_INTERNAL_ERROR, "the document has more than " +
                                                             std::to_string(maximumEndless) +
                                                             " comments or sections that don't end");
            }
            std::size_t values = 0;
            char quote = 0;
            for (++at; at < text.size() && text[at] != '<' && (quote || text[at] != '>'); ++at) {
                if (quote) {
                    if (text[at] == quote) quote = 0;
                } else if (text[at] == '"' || text[at] == '\'') {
                    quote = text[at];
                    ++values;
                }
            }
            if (rest.starts_with("<!ATTLIST")) defaulted += values;
            if (values > maximumXMLAttributes || defaulted > maximumDefaulted) {
                const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(tag), '\n');
                return atLine(
                    firstLine_ + static_cast<unsigned>(line), XML_ERR_INTERNAL_ERROR,
                    "an element has more than " +
                        std::to_string(defaulted > maximumDefaulted ? maximumDefaulted : maximumXMLAttributes) +
                        " attributes");
            }
        }
        return std::nullopt;
    }

    static base::Error error(int code, std::string description) {
        return {std::string(xmlErrorDomain), code, std::move(description)};
    }

    static base::Error atLine(unsigned line, int code, const std::string& description) {
        return error(code, "Line " + std::to_string(line) + ": " + description);
    }

    void configure() {
        xmlSAXHandler& events = *parser_->sax;
        events = {};
        events.initialized = XML_SAX2_MAGIC;
        events.startElementNs = &startElement;
        events.endElementNs = &endElement;
        events.characters = &characters;
        events.ignorableWhitespace = &characters;
        events.cdataBlock = &cdataBlock;
        events.comment = &comment;
        events.processingInstruction = &processingInstruction;
        events.reference = &reference;
        events.internalSubset = &documentType;
        events.entityDecl = &entityDeclaration;
        events.serror = &problem;
        parser_->userData = this;
        // The text is UTF-8 already, whatever its declaration says. NOENT does no more here than to deliver "&amp;" in
        // attributes as "&": the parser finds no entities, as no event looks any up.
        int options = XML_PARSE_NONET | XML_PARSE_IGNORE_ENC | XML_PARSE_NOENT;
        if (reading_ == Reading::tidy) options |= XML_PARSE_RECOVER;
        xmlCtxtUseOptions(parser_.get(), options);
        if (!parser_->encoding) parser_->encoding = xmlStrdup(reinterpret_cast<const xmlChar*>("UTF-8"));
        document_ = std::make_shared<XMLDocument>(XMLNode::Key{});
    }

    base::Result<XMLDocumentRef> result() {
        while (!open_.empty()) {
            close();
        }
        const bool hasRoot = document_->rootElement() != nullptr;
        if (limit_) return base::failure(std::move(*limit_));
        if (reading_ == Reading::rootStartTag && hasRoot) return document_;
        if (!hasRoot || (reading_ == Reading::strict && !parser_->wellFormed)) {
            if (!problem_) problem_ = error(XML_ERR_DOCUMENT_EMPTY, "the document has no root element");
            return base::failure(std::move(*problem_));
        }
        if (parser_->version) document_->version_ = view(parser_->version);
        document_->isStandalone_ = parser_->standalone == 1;
        document_->recoveredFrom_ = std::move(problem_);
        return document_;
    }

    /// Beyond a limit nothing is recovered: parsing ends.
    void refuse(std::string description) {
        if (!limit_) limit_ = atLine(currentLine(), XML_ERR_INTERNAL_ERROR, description);
        xmlStopParser(parser_.get());
    }

    XMLNode& current() { return open_.empty() ? *document_ : *open_.back(); }

    /// The parser's own lines of nodes end at 65535, its position does not.
    unsigned currentLine() const {
        const int parserLine = parser_->input ? std::max(parser_->input->line, 1) : 1;
        return static_cast<unsigned>(parserLine) - 1 + firstLine_;
    }

    /// The parser reports an element behind its last attribute; a tag that is laid out over several lines begins
    /// further above.
    unsigned lineOfOpenTag() const {
        if (!parser_->input) return currentLine();
        const auto* begin = reinterpret_cast<const char*>(parser_->input->base);
        const std::string_view read(begin, static_cast<std::size_t>(parser_->input->cur - parser_->input->base));
        const std::size_t tag = read.rfind('<');
        return lineBefore(tag == std::string_view::npos ? std::string_view() : read.substr(tag));
    }

    unsigned lineBefore(std::string_view content) const {
        const auto lineFeeds = static_cast<unsigned>(std::count(content.begin(), content.end(), '\n'));
        return currentLine() - std::min(lineFeeds, currentLine());
    }

    XMLNodeRef make(XMLNodeKind kind, std::string_view name, std::string_view value, XMLNode& parent, unsigned line) {
        if (++nodeCount_ > maximumXMLNodes) {
            refuse("the document has more than " + std::to_string(maximumXMLNodes) + " nodes");
            return nullptr;
        }
        auto node =
            std::allocate_shared<XMLNode>(NodeAllocator<XMLNode>(memory_.get()), XMLNode::Key{}, kind, name, value);
        node->parent_ = parent.weak_from_this();
        node->line_ = line;
        return node;
    }

    void add(XMLNodeKind kind, std::string_view name, std::string_view value) {
        if (auto node = make(kind, name, value, current(), lineBefore(value)))
            current().children_.push_back(std::move(node));
    }

    void open(std::string_view name, int namespaceCount, const xmlChar** namespaces, int attributeCount,
              const xmlChar** attributes) {
        if (open_.size() >= maximumXMLDepth) {
            refuse("the elements are nested deeper than " + std::to_string(maximumXMLDepth) + " levels");
            return;
        }
        // Recovering from stray end tags the parser may come upon a second root: only the first one counts.
        if (open_.empty() && document_->rootElement()) return;
        const unsigned line = lineOfOpenTag();
        const XMLNodeRef element = make(XMLNodeKind::element, name, {}, current(), line);
        if (!element) return;
        for (int index = 0; index < namespaceCount; ++index, namespaces += 2) {
            const std::string prefixed = namespaces[0] ? "xmlns:" + std::string(view(namespaces[0])) : "xmlns";
            auto node = make(XMLNodeKind::nameSpace, prefixed, view(namespaces[1]), *element, line);
            if (!node) return;
            element->namespaces_.push_back(std::move(node));
        }
        element->attributes_.reserve(static_cast<std::size_t>(attributeCount));
        for (int index = 0; index < attributeCount; ++index, attributes += 5) {
            const auto* begin = reinterpret_cast<const char*>(attributes[3]);
            const auto* end = reinterpret_cast<const char*>(attributes[4]);
            const std::string_view value(begin, static_cast<std::size_t>(end - begin));
            const std::string attributeName = qualifiedName(attributes[1], attributes[0]);
            if (reading_ == Reading::tidy && hasAttribute(*element, attributeName)) continue;
            auto node = make(XMLNodeKind::attribute, attributeName, value, *element, line);
            if (!node) return;
            element->attributes_.push_back(std::move(node));
        }
        current().children_.push_back(element);
        open_.push_back(element.get());
        if (reading_ == Reading::rootStartTag) xmlStopParser(parser_.get());
    }

    /// By the exact name, as the strict parser refuses it.
    static bool hasAttribute(const XMLNode& element, std::string_view name) {
        return std::any_of(element.attributes_.begin(), element.attributes_.end(),
                           [&](const XMLNodeRef& attribute) { return attribute->name_ == name; });
    }

    /// Ends the current element and drops the white space that only laid it out.
    void close() {
        std::vector<XMLNodeRef>& children = open_.back()->children_;
        open_.pop_back();
        const auto isText = [](const XMLNodeRef& node) { return node->kind() == XMLNodeKind::text; };
        const auto isLayout = [&](const XMLNodeRef& node) {
            return isText(node) && !node->isCDATA() && isBlank(node->value_);
        };
        bool hasOthers = false;
        for (const XMLNodeRef& child : children) {
            if (!isText(child))
                hasOthers = true;
            else if (!isLayout(child))
                return; // mixed content: each blank counts
        }
        if (hasOthers) std::erase_if(children, isLayout);
    }

    void addText(std::string_view text) {
        if (open_.empty()) return;
        std::vector<XMLNodeRef>& siblings = open_.back()->children_;
        // The parser delivers long texts in pieces.
        const bool continues =
            !siblings.empty() && siblings.back()->kind() == XMLNodeKind::text && !siblings.back()->isCDATA();
        if (continues)
            siblings.back()->value_ += text;
        else
            add(XMLNodeKind::text, {}, text);
    }

    static XMLTreeBuilder& self(void* context) { return *static_cast<XMLTreeBuilder*>(context); }

    static void startElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar*,
                             int namespaceCount, const xmlChar** namespaces, int attributeCount, int defaultedCount,
                             const xmlChar** attributes) {
        // Attributes that the document type would add stand behind those of the element itself.
        const int ownCount = attributeCount - defaultedCount;
        self(context).open(qualifiedName(prefix, name), namespaceCount, namespaces, ownCount, attributes);
    }

    static void endElement(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
        if (!self(context).open_.empty()) self(context).close();
    }

    static void characters(void* context, const xmlChar* text, int length) {
        self(context).addText({reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)});
    }

    static void cdataBlock(void* context, const xmlChar* text, int length) {
        XMLTreeBuilder& builder = self(context);
        if (builder.open_.empty()) return;
        const std::string_view content(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
        builder.add(XMLNodeKind::text, {}, content);
        if (!builder.limit_) builder.open_.back()->children_.back()->isCDATA_ = true;
    }

    static void comment(void* context, const xmlChar* text) {
        XMLTreeBuilder& builder = self(context);
        if (builder.parser_->inSubset == 0) builder.add(XMLNodeKind::comment, {}, view(text));
    }

    static void processingInstruction(void* context, const xmlChar* target, const xmlChar* content) {
        XMLTreeBuilder& builder = self(context);
        // A damaged XML declaration arrives as an instruction too.
        const bool isDeclaration = base::equalIgnoringCase(view(target), "xml");
        if (builder.parser_->inSubset != 0 || isDeclaration) return;
        builder.add(XMLNodeKind::processingInstruction, view(target), view(content));
    }

    /// An entity that only an external declaration could explain stays as it was written.
    static void reference(void* context, const xmlChar* name) {
        self(context).addText("&" + std::string(view(name)) + ";");
    }

    static void documentType(void* context, const xmlChar* name, const xmlChar* publicID, const xmlChar* systemID) {
        std::string identifiers;
        if (publicID) identifiers = " PUBLIC \"" + std::string(view(publicID)) + "\"";
        if (systemID) identifiers += (publicID ? " \"" : " SYSTEM \"") + std::string(view(systemID)) + "\"";
        self(context).add(XMLNodeKind::documentType, view(name), identifiers);
    }

    static void entityDeclaration(void* context, const xmlChar* name, int, const xmlChar*, const xmlChar*, xmlChar*) {
        XMLTreeBuilder& builder = self(context);
        const std::string words =
            "the document declares an entity, \"" + std::string(view(name)) + "\", which is not accepted";
        if (builder.reading_ != Reading::tidy)
            builder.refuse(words);
        else if (!builder.problem_)
            builder.problem_ = builder.atLine(builder.currentLine(), XML_ERR_INTERNAL_ERROR, words);
    }

    static void problem(void* context, xmlErrorPtr report) {
        XMLTreeBuilder& builder = self(context);
        const bool counts = report->level >= XML_ERR_ERROR && report->domain != XML_FROM_NAMESPACE;
        if (!counts || builder.problem_) return;
        const std::string words(base::trimmed(report->message ? report->message : "damaged XML"));
        const auto line = static_cast<unsigned>(std::max(report->line, 1)) - 1 + builder.firstLine_;
        builder.problem_ = atLine(line, report->code, words);
    }

    static constexpr std::size_t maximumDefaulted = 20; // for each element of a document they are compared anew

    const Reading reading_;
    const unsigned firstLine_;
    Parser parser_;
    std::unique_ptr<NodeMemory, ReleaseNodeMemory> memory_{NodeMemory::create()};
    XMLDocumentRef document_;
    std::vector<XMLNode*> open_; // from the root to the current element; the tree owns them
    std::size_t nodeCount_ = 0;
    std::optional<base::Error> problem_; // the first one that the parser reported
    std::optional<base::Error> limit_;
};

base::Result<XMLDocumentRef> XMLDocument::parse(std::string_view text) {
    return XMLTreeBuilder(Reading::strict).build(text);
}

base::Result<XMLDocumentRef> XMLDocument::parseTidy(std::string_view text) {
    const auto start = text.begin() + static_cast<std::ptrdiff_t>(std::min(text.find('<'), text.size()));
    const auto firstLine = static_cast<unsigned>(1 + std::count(text.begin(), start, '\n'));
    text.remove_prefix(static_cast<std::size_t>(start - text.begin()));
    return XMLTreeBuilder(Reading::tidy, firstLine).build(text);
}

base::Result<XMLNodeRef> XMLDocument::parseRootStartTag(std::string_view text) {
    auto document = XMLTreeBuilder(Reading::rootStartTag).build(text);
    if (!document) return base::failure(std::move(document.error()));
    XMLNodeRef root = (*document)->rootElement();
    root->detach();
    return root;
}

} // namespace platform::data
