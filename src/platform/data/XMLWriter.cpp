// The text of nodes: as it stands in files, plain or with each element on a line of its own.
#include "platform/data/XMLDocument.h"

#include "base/Text.h"

#include <algorithm>
#include <unicode/utf8.h>

namespace platform::data {
namespace {

constexpr std::size_t indentation = 4;
constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

bool isXMLCharacter(UChar32 character) {
    return character == '\t' || character == '\n' || character == '\r' ||
           (character >= 0x20 && character != 0xFFFE && character != 0xFFFF);
}

/// What must be written in place of the character; empty for one that stands for itself.
std::string_view escapeOf(UChar32 character, bool inAttribute) {
    switch (character) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '\r':
        return "&#13;";
    case '"':
        return inAttribute ? "&quot;" : "";
    case '\n':
        return inAttribute ? "&#10;" : "";
    case '\t':
        return inAttribute ? "&#9;" : "";
    default:
        return "";
    }
}

enum class Escaping { text, attribute, none };

void append(std::string& out, std::string_view text, Escaping escaping) {
    const auto length = static_cast<std::int64_t>(text.size());
    std::int64_t position = 0;
    while (position < length) {
        const std::int64_t start = position;
        UChar32 character;
        U8_NEXT(text.data(), position, length, character);
        if (character < 0 || !isXMLCharacter(character)) {
            out += replacementCharacter;
            continue;
        }
        const std::string_view escape =
            escaping == Escaping::none ? "" : escapeOf(character, escaping == Escaping::attribute);
        if (escape.empty())
            out += text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(position - start));
        else
            out += escape;
    }
}

} // namespace

class XMLWriter {
public:
    explicit XMLWriter(XMLFormat format) : isPretty_(format == XMLFormat::prettyPrinted) {}

    std::string take() { return std::move(out_); }

    void document(const XMLDocument& document) {
        out_ += "<?xml version=\"";
        append(out_, document.version_, Escaping::attribute);
        out_ += "\" encoding=\"";
        append(out_, document.encoding_, Escaping::attribute);
        out_ += document.isStandalone_ ? "\" standalone=\"yes\"?>\n" : "\"?>\n";
        for (const XMLNodeRef& child : document.children()) {
            node(*child, 0);
            out_ += '\n';
        }
    }

    void node(const XMLNode& node, std::size_t depth) {
        switch (node.kind()) {
        case XMLNodeKind::element:
            element(node, depth);
            break;
        case XMLNodeKind::text:
            text(node);
            break;
        case XMLNodeKind::comment:
            bracketed("<!--", base::replacingAll(node.value_, "--", "- -"), "-->");
            break;
        case XMLNodeKind::processingInstruction:
            bracketed("<?" + node.name_ + " ", node.value_, "?>");
            break;
        case XMLNodeKind::documentType:
            bracketed("<!DOCTYPE ", node.name_ + node.value_, ">");
            break;
        case XMLNodeKind::attribute:
        case XMLNodeKind::nameSpace:
            attribute(node);
            break;
        case XMLNodeKind::document:
            document(static_cast<const XMLDocument&>(node));
            break;
        case XMLNodeKind::invalid:
            break;
        }
    }

private:
    void attribute(const XMLNode& node) {
        out_ += node.name_;
        out_ += "=\"";
        append(out_, node.value_, Escaping::attribute);
        out_ += '"';
    }

    void text(const XMLNode& node) {
        if (node.isCDATA())
            bracketed("<![CDATA[", base::replacingAll(node.value_, "]]>", "]]]]><![CDATA[>"), "]]>");
        else
            append(out_, node.value_, Escaping::text);
    }

    void bracketed(std::string_view opening, std::string_view content, std::string_view closing) {
        out_ += opening;
        append(out_, content, Escaping::none);
        out_ += closing;
    }

    void element(const XMLNode& node, std::size_t depth) {
        out_ += '<';
        out_ += node.name_;
        for (const auto* list : {&node.namespaces_, &node.attributes_}) {
            for (const XMLNodeRef& entry : *list) {
                out_ += ' ';
                attribute(*entry);
            }
        }
        if (node.children_.empty()) {
            out_ += "/>";
            return;
        }
        out_ += '>';
        // Layout beside text would change that text.
        const bool laysOut =
            isPretty_ && std::none_of(node.children_.begin(), node.children_.end(),
                                      [](const XMLNodeRef& child) { return child->kind() == XMLNodeKind::text; });
        for (const XMLNodeRef& child : node.children_) {
            if (laysOut) newLine(depth + 1);
            this->node(*child, depth + 1);
        }
        if (laysOut) newLine(depth);
        out_ += "</";
        out_ += node.name_;
        out_ += '>';
    }

    void newLine(std::size_t depth) {
        out_ += '\n';
        out_.append(depth * indentation, ' ');
    }

    const bool isPretty_;
    std::string out_;
};

std::string XMLNode::xmlString(XMLFormat format) const {
    XMLWriter writer(format);
    writer.node(*this, 0);
    return writer.take();
}

base::Data XMLDocument::xmlData(XMLFormat format) const {
    return base::Data(xmlString(format));
}

} // namespace platform::data
