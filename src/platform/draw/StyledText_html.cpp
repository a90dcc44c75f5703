// HTML, read by libxml2's forgiving parser as a stream of events: no tree is built, nothing is loaded, nothing printed.
#include "base/Text.h"
#include "internal/CSSValues.h"
#include "internal/ReducedHTML.h"
#include "internal/StyledTextReading.h"
#include "internal/UnicodeText.h"

#include <algorithm>
#include <libxml/HTMLparser.h>
#include <libxml/parserInternals.h>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace platform::draw {
namespace {

using namespace std::string_view_literals;

/// What an element's name says by itself.
struct ElementKind {
    std::string_view name;
    bool isBlock = false;
    bool isBold = false;
    bool isItalic = false;
    double sizeFactor = 0; // of 12 points; 0 keeps the size
};
constexpr ElementKind kinds[] = {
    {"html", true},
    {"body", true},
    {"p", true},
    {"div", true},
    {"ul", true},
    {"ol", true},
    {"li", true},
    {"dl", true},
    {"dt", true},
    {"dd", true},
    {"table", true},
    {"caption", true},
    {"tr", true},
    {"pre", true},
    {"blockquote", true},
    {"address", true},
    {"section", true},
    {"article", true},
    {"header", true},
    {"footer", true},
    {"nav", true},
    {"main", true},
    {"aside", true},
    {"figure", true},
    {"figcaption", true},
    {"form", true},
    {"fieldset", true},
    {"hr", true},
    {"center", true},
    {"h1", true, true, false, 2},
    {"h2", true, true, false, 1.5},
    {"h3", true, true, false, 1.17},
    {"h4", true, true, false, 1},
    {"h5", true, true, false, 0.83},
    {"h6", true, true, false, 0.67},
    {"b", false, true},
    {"strong", false, true},
    {"th", false, true},
    {"i", false, false, true},
    {"em", false, false, true},
    {"cite", false, false, true},
    {"dfn", false, false, true},
    {"var", false, false, true},
};
constexpr std::string_view passedOver[] = {"head",   "title",  "style",    "script", "noscript", "template", "select",
                                           "object", "iframe", "textarea", "svg",    "math",     "audio",    "video"};

/// The encoding that the beginning names, if with letters, digits and hyphens only.
std::string encodingNamed(std::string_view bytes) {
    const std::string beginning = base::lowercase(bytes.substr(0, 4096));
    const std::size_t found = beginning.find("charset=");
    if (found == std::string::npos) return {};
    std::string_view name = std::string_view(beginning).substr(found + 8);
    name.remove_prefix(std::min(name.find_first_not_of("\"' "), name.size()));
    return std::string(name.substr(0, name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_")));
}

/// All in UTF-8: text that is UTF-8 is taken for it, whatever its head says.
std::string decoded(std::string_view bytes) {
    if (auto marked = utf8ByMark(bytes)) return *std::move(marked);
    if (isUTF8(bytes)) return std::string(bytes);
    const std::string named = encodingNamed(bytes);
    return utf8FromEncoding(bytes, named.empty() || named == "utf-8" ? "CP1252" : named.c_str());
}

class Reader {
public:
    base::Result<StyledText> read(std::string_view bytes) {
        static const bool isReady = (xmlInitParser(), true); // must happen once, before several threads parse
        static_cast<void>(isReady);
        const std::string html = reducedHTML(decoded(bytes));
        if (html.empty()) return collector_.finish(); // which the parser takes for a failure
        const Parser parser(htmlCreateMemoryParserCtxt(html.data(), static_cast<int>(html.size())));
        if (!parser) return base::failure(styledTextError("no memory for it"));
        parser_ = parser.get();
        xmlSAXHandler& events = *parser_->sax;
        events = {};
        events.initialized = 1;
        events.startElement = [](void* reader, const xmlChar* name, const xmlChar** attributes) {
            static_cast<Reader*>(reader)->guarded([&](Reader& self) { self.startElement(view(name), attributes); });
        };
        events.endElement = [](void* reader, const xmlChar* name) {
            static_cast<Reader*>(reader)->guarded([&](Reader& self) { self.endElement(view(name)); });
        };
        events.characters = [](void* reader, const xmlChar* text, int length) {
            static_cast<Reader*>(reader)->guarded([&](Reader& self) {
                self.characters({reinterpret_cast<const char*>(text), std::size_t(length)});
            });
        };
        events.ignorableWhitespace = events.characters;
        events.serror = [](void*, xmlErrorPtr) {};
        parser_->userData = this;
        // The parser must neither guess nor convert: it prints what it thinks of broken text.
        htmlCtxtUseOptions(parser_, HTML_PARSE_NONET | HTML_PARSE_RECOVER | HTML_PARSE_IGNORE_ENC);
        xmlSwitchEncoding(parser_, XML_CHAR_ENCODING_UTF8);
        if (!parser_->encoding) parser_->encoding = xmlStrdup(reinterpret_cast<const xmlChar*>("UTF-8"));
        htmlParseDocument(parser_);
        if (failure_) return base::failure(styledTextError(*failure_));
        return collector_.finish();
    }

private:
    struct FreeParser {
        void operator()(htmlParserCtxtPtr parser) const {
            if (parser->myDoc) xmlFreeDoc(parser->myDoc);
            htmlFreeParserCtxt(parser);
        }
    };
    using Parser = std::unique_ptr<xmlParserCtxt, FreeParser>;

    struct Element {
        std::string name;
        ElementStyle style;
        bool isBlock = false;
    };

    static std::string_view view(const xmlChar* text) {
        return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
    }

    /// Nothing may be thrown through the parser, and after a failure nothing is taken any more.
    template <class Event>
    void guarded(const Event& event) {
        if (failure_ || collector_.isFull()) return;
        try {
            event(*this);
            if (collector_.isFull()) xmlStopParser(parser_);
        } catch (const std::bad_alloc&) {
            stop("no memory for it");
        }
    }

    void stop(std::string why) {
        failure_ = std::move(why);
        xmlStopParser(parser_);
    }

    void startElement(std::string_view name, const xmlChar** attributes) {
        if (open_.size() == maximumStyledTextDepth)
            return stop("its elements are nested deeper than " + std::to_string(maximumStyledTextDepth) + " levels");
        Element element{std::string(name), open_.empty() ? ElementStyle() : open_.back().style};
        if (const auto* kind = std::find_if(std::begin(kinds), std::end(kinds),
                                            [&](const ElementKind& known) { return known.name == name; });
            kind != std::end(kinds)) {
            element.isBlock = kind->isBlock;
            element.style.text.isBold |= kind->isBold;
            element.style.text.isItalic |= kind->isItalic;
            if (kind->sizeFactor > 0) element.style.text.size = 12 * kind->sizeFactor;
        }
        if (std::find(std::begin(passedOver), std::end(passedOver), name) != std::end(passedOver))
            element.style.isHidden = true;
        if (name == "pre") element.style.keepsWhiteSpace = true;
        if (name == "center") element.style.text.alignment = TextAlignment::center;
        applyAttributes(name, attributes, element.style);
        const bool isHidden = element.style.isHidden;
        const bool isBlock = element.isBlock;
        open_.push_back(std::move(element));
        if (isHidden) return;
        if (isBlock) endLine();
        if (name == "br") breakLine();
        if (name == "td" || name == "th") startCell();
        if (name == "tr") isRowBegun_ = false;
    }

    static void applyAttributes(std::string_view element, const xmlChar** attributes, ElementStyle& style) {
        std::string_view declarations;
        for (; attributes && *attributes; attributes += 2) {
            const std::string_view name = view(attributes[0]);
            const std::string_view value = view(attributes[1]);
            if (name == "style") {
                declarations = value;
            } else if (name == "align" && element != "table" && element != "img") {
                if (const auto alignment = alignmentFromCSS(value)) style.text.alignment = alignment;
            } else if (name == "hidden") {
                style.isHidden = true;
            } else if (element == "font" && name == "face") {
                style.text.font = fontFromList(value);
            } else if (element == "font" && name == "size") {
                if (const auto size = fontSizeFromHTML(value)) style.text.size = size;
            } else if (name == "color" || name == "text") { // of <font> and <body>
                if (const auto color = colorFromCSS(value)) style.text.color = color;
            }
        }
        applyDeclarations(declarations, style);
    }

    void endElement(std::string_view name) {
        const auto found =
            std::find_if(open_.rbegin(), open_.rend(), [&](const Element& element) { return element.name == name; });
        if (found == open_.rend()) return;
        if (name == "tr" && !found->style.isHidden) endRow();
        if (found->isBlock && !found->style.isHidden) endLine();
        open_.erase(std::prev(found.base()), open_.end());
    }

    // --- White space: it is gathered, and comes out before the next character that shows

    void endLine() {
        if (isLineOpen_) breakLine();
    }

    void breakLine() {
        ++lineBreaks_;
        isLineOpen_ = false;
        blanks_.clear();
    }

    /// Paragraphs of the cell before make no lines.
    void startCell() {
        if (!std::exchange(isRowBegun_, true)) return;
        if (blanks_ == " ") blanks_.clear();
        blanks_ += '\t';
        lineBreaks_ = 0;
        isLineOpen_ = false;
    }

    void endRow() {
        isLineOpen_ |= std::exchange(isRowBegun_, false);
        endLine();
    }

    void characters(std::string_view text) {
        static const ElementStyle plain;
        const ElementStyle& style = open_.empty() ? plain : open_.back().style;
        if (style.isHidden) return;
        while (!text.empty() && !collector_.isFull()) {
            const std::size_t blank = std::min(text.find_first_of(" \t\r\n\f"), text.size());
            if (blank > 0) put(text.substr(0, blank), style.text);
            text.remove_prefix(blank);
            if (text.empty()) return;
            const char space = text.front();
            text.remove_prefix(1);
            if (style.keepsWhiteSpace)
                takeKeptSpace(space, style.text);
            else if (isLineOpen_ && blanks_.empty())
                blanks_ = " ";
        }
    }

    void takeKeptSpace(char space, const TextStyle& style) {
        if (space == '\n')
            breakLine();
        else if (space != '\r')
            put({&space, 1}, style);
    }

    void put(std::string_view text, const TextStyle& style) {
        if (!collector_.isEmpty()) {
            collector_.append(std::string(std::min(lineBreaks_, maximumStyledTextLines), '\n'), style);
            collector_.append(blanks_, style);
        }
        lineBreaks_ = 0;
        blanks_.clear();
        isLineOpen_ = true;
        collector_.append(text, style);
    }

    htmlParserCtxtPtr parser_ = nullptr;
    std::vector<Element> open_;
    std::size_t lineBreaks_ = 0;
    std::string blanks_;
    bool isLineOpen_ = false;
    bool isRowBegun_ = false;
    std::optional<std::string> failure_;
    StyledTextCollector collector_;
};

} // namespace

base::Result<StyledText> readHTML(std::string_view bytes) {
    return Reader().read(bytes);
}

} // namespace platform::draw
