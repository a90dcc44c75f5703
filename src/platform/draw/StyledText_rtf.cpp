// RTF: groups in braces, control words with a number ("\fs24"), control symbols ("\'e9"), bytes of a code page. What
// has no meaning for a text and the style of its first character is passed over.
#include "internal/StyledTextReading.h"
#include "internal/UnicodeText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <vector>

namespace platform::draw {
namespace {

using namespace std::string_view_literals;

enum class Destination { text, fonts, colors, nowhere };

/// What a group saves and restores.
struct GroupState {
    Destination destination = Destination::text;
    TextStyle style; // but for its font and color
    std::optional<int> font;
    int color = 0;
    bool isHidden = false;
    int unitsToSkip = 1; // how many characters stand for a \u in the code page
};

struct Font {
    std::string name; // as bytes of its code page
    std::optional<int> codePage;
};

struct CodePageOfCharset {
    int charset, codePage;
};
constexpr CodePageOfCharset charsets[] = {
    {77, 10000}, {78, 932},   {128, 932},  {129, 949},  {130, 1361}, {134, 936}, {136, 950},  {161, 1253}, {162, 1254},
    {163, 1258}, {177, 1255}, {178, 1256}, {186, 1257}, {204, 1251}, {222, 874}, {238, 1250}, {254, 437},
};

struct Word {
    std::string_view word, text;
};
constexpr Word characters[] = {
    {"par", "\n"},           {"line", "\n"},        {"sect", "\n"},        {"page", "\n"},
    {"column", "\n"},        {"tab", "\t"},         {"emdash", "\u2014"},  {"endash", "\u2013"},
    {"bullet", "\u2022"},    {"lquote", "\u2018"},  {"rquote", "\u2019"},  {"ldblquote", "\u201C"},
    {"rdblquote", "\u201D"}, {"emspace", "\u2003"}, {"enspace", "\u2002"}, {"qmspace", "\u2005"},
    {"ltrmark", "\u200E"},   {"rtlmark", "\u200F"}, {"zwj", "\u200D"},     {"zwnj", "\u200C"},
};
/// Groups that hold no text of the document; those that begin with "\*" need no mention.
constexpr std::string_view passedOver[] = {
    "stylesheet",        "info",     "pict",    "nonshppict", "objdata", "shprslt", "header",   "headerl",
    "headerr",           "headerf",  "footer",  "footerl",    "footerr", "footerf", "footnote", "annotation",
    "fldinst",           "listtext", "pntext",  "xe",         "tc",      "tcn",     "filetbl",  "listtable",
    "listoverridetable", "revtbl",   "rsidtbl", "generator",
};

std::string nameOfCodePage(int page) {
    if (page == 10000) return "MACINTOSH";
    if (page == 65001) return "UTF-8";
    return "CP" + std::to_string(page);
}

class Reader {
public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}

    base::Result<StyledText> read() {
        while (!rest_.empty() && rest_.front() <= ' ')
            rest_.remove_prefix(1);
        if (!rest_.starts_with("{\\rtf"sv)) return base::failure(styledTextError("it is no RTF"));
        while (!rest_.empty() && !collector_.isFull() && !isEnded_) {
            const char next = rest_.front();
            rest_.remove_prefix(1);
            if (next == '{') {
                if (groups_.size() == maximumStyledTextDepth)
                    return base::failure(styledTextError("its groups are nested deeper than " +
                                                         std::to_string(maximumStyledTextDepth) + " levels"));
                flush();
                unitsLeft_ = 0;
                groups_.push_back(groups_.back());
            } else if (next == '}') {
                closeGroup();
            } else if (next == '\\') {
                readControl();
            } else if (next != '\r' && next != '\n' && next != '\0') {
                takeByte(next);
            }
        }
        flush();
        collector_.removeLineBreaksAtEnd();
        return collector_.finish();
    }

private:
    GroupState& state() { return groups_.back(); }

    void closeGroup() {
        flush();
        unitsLeft_ = 0;
        if (groups_.size() > 1) groups_.pop_back();
        isEnded_ = groups_.size() == 1;
    }

    void readControl() {
        if (rest_.empty()) return;
        const char symbol = rest_.front();
        if ((symbol >= 'a' && symbol <= 'z') || (symbol >= 'A' && symbol <= 'Z')) return readWord();
        rest_.remove_prefix(1);
        switch (symbol) {
        case '\'':
            return readHexByte();
        case '\\':
        case '{':
        case '}':
            return takeByte(symbol);
        case '~':
            return takeText("\u00A0");
        case '_':
            return takeText("\u2011");
        case '\r': // a paragraph's end, as some programs write it
            if (rest_.starts_with('\n')) rest_.remove_prefix(1);
            return takeText("\n");
        case '\n':
            return takeText("\n");
        case '*':
            state().destination = Destination::nowhere;
            return;
        default: // a possible hyphen, an index's marks
            return;
        }
    }

    void readHexByte() {
        unsigned byte = 0;
        const std::string_view digits = rest_.substr(0, 2);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        rest_.remove_prefix(static_cast<std::size_t>(end - digits.data()));
        if (error == std::errc() && byte != 0) takeByte(static_cast<char>(byte));
    }

    void readWord() {
        const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
        const auto* wordEnd = std::find_if_not(rest_.begin(), rest_.end(), isLetter);
        const std::string_view word = rest_.substr(0, static_cast<std::size_t>(wordEnd - rest_.begin()));
        rest_.remove_prefix(word.size());
        std::optional<int> number;
        int value = 0;
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        if (error != std::errc::invalid_argument) {
            // Beyond any range counts as far away.
            number = error == std::errc() ? value : rest_.front() == '-' ? -1'000'000'000 : 1'000'000'000;
            rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        }
        if (rest_.starts_with(' ')) rest_.remove_prefix(1);
        if (word == "bin") return passBinary(number.value_or(0));
        if (unitsLeft_ > 0 && word != "u") {
            --unitsLeft_;
            return;
        }
        obey(word, number);
    }

    void passBinary(int count) {
        flush();
        if (count > 0) rest_.remove_prefix(std::min(rest_.size(), static_cast<std::size_t>(count)));
    }

    void obey(std::string_view word, std::optional<int> number) {
        if (word == "u") return takeUnit(number.value_or(0));
        if (const auto* found = std::find_if(std::begin(characters), std::end(characters),
                                             [&](const Word& character) { return character.word == word; });
            found != std::end(characters))
            return takeText(found->text);
        flush();
        if (word == "cell" || word == "nestcell") return endCell();
        if (word == "row" || word == "nestrow") return endRow();
        if (word == "fonttbl") return enter(Destination::fonts);
        if (word == "colortbl") return enter(Destination::colors);
        if (std::find(std::begin(passedOver), std::end(passedOver), word) != std::end(passedOver))
            return enter(Destination::nowhere);
        const bool isOn = number != 0;
        if (word == "ansicpg" && number > 0) {
            codePage_ = *number;
        } else if (word == "mac") {
            codePage_ = 10000;
        } else if (word == "pc") {
            codePage_ = 437;
        } else if (word == "pca") {
            codePage_ = 850;
        } else if (word == "uc") {
            state().unitsToSkip = std::clamp(number.value_or(1), 0, 100);
        } else if (word == "deff") {
            defaultFont_ = number.value_or(0);
        } else if (word == "f") {
            state().font = number.value_or(0);
        } else if (word == "fcharset" || word == "cpg") {
            setCodePageOfFont(word == "cpg", number.value_or(0));
        } else if (word == "fs") {
            if (number > 0) state().style.size = *number / 2.0;
        } else if (word == "cf") {
            state().color = number.value_or(0);
        } else if (word == "b") {
            state().style.isBold = isOn;
        } else if (word == "i") {
            state().style.isItalic = isOn;
        } else if (word == "v") {
            state().isHidden = isOn;
        } else if (word == "plain") {
            GroupState plain;
            plain.destination = state().destination;
            plain.style.alignment = state().style.alignment;
            plain.unitsToSkip = state().unitsToSkip;
            state() = plain;
        } else {
            obeyAlignmentOrColor(word, number);
        }
    }

    void obeyAlignmentOrColor(std::string_view word, std::optional<int> number) {
        constexpr std::pair<std::string_view, TextAlignment> alignments[] = {
            {"ql", TextAlignment::left},      {"qr", TextAlignment::right},         {"qc", TextAlignment::center},
            {"qj", TextAlignment::justified}, {"qnatural", TextAlignment::natural},
        };
        for (const auto& [name, alignment] : alignments)
            if (word == name) state().style.alignment = alignment;
        if (word == "pard") state().style.alignment.reset();
        constexpr std::array components{"red"sv, "green"sv, "blue"sv};
        for (std::size_t index = 0; index < components.size(); ++index)
            if (word == components[index] && state().destination == Destination::colors) {
                components_[index] = std::clamp(number.value_or(0), 0, 255) / 255.0;
                hasColor_ = true;
            }
    }

    void enter(Destination destination) {
        if (state().destination != Destination::nowhere) state().destination = destination;
    }

    void setCodePageOfFont(bool isCodePage, int number) {
        Font* font = state().destination == Destination::fonts ? fontBeingListed() : nullptr;
        if (!font) return;
        if (isCodePage) font->codePage = number;
        for (const CodePageOfCharset& charset : charsets)
            if (!isCodePage && charset.charset == number) font->codePage = charset.codePage;
    }

    // --- Text: bytes and UTF-16 units are gathered until the other kind or another style comes

    bool isSkipped() {
        if (unitsLeft_ == 0) return false;
        --unitsLeft_;
        return true;
    }

    void takeByte(char byte) {
        if (isSkipped() || state().destination == Destination::nowhere) return;
        if (state().destination == Destination::colors) {
            if (byte == ';') endColor();
        } else if (state().destination == Destination::fonts && byte == ';') {
            flush();
        } else {
            if (!units_.empty()) flush();
            bytes_ += byte;
            if (bytes_.size() > maximumStyledText) flush();
        }
    }

    void takeUnit(int number) {
        unitsLeft_ = state().unitsToSkip;
        if (state().destination != Destination::text) return;
        if (!bytes_.empty()) flush();
        units_.push_back(static_cast<std::uint8_t>(number));
        units_.push_back(static_cast<std::uint8_t>(number >> 8));
        if (units_.size() > maximumStyledText) flush();
    }

    void takeText(std::string_view text) {
        if (isSkipped() || state().destination != Destination::text) return;
        flush();
        append(text);
    }

    void append(std::string_view text) {
        if (state().isHidden) return;
        if (!collector_.isEmpty()) collector_.append(std::string(std::exchange(cellsEnded_, 0), '\t'), {});
        collector_.append(text, collector_.isEmpty() ? styleInForce() : TextStyle());
    }

    // Tabs part cells: there is none behind the last one of a row.
    void endCell() {
        if (state().destination == Destination::text) ++cellsEnded_;
    }

    void endRow() {
        cellsEnded_ = 0;
        takeText("\n");
    }

    void endColor() {
        if (colors_.size() < 65'536)
            colors_.push_back(hasColor_ ? std::optional(Color(components_[0], components_[1], components_[2]))
                                        : std::nullopt);
        components_ = {};
        hasColor_ = false;
    }

    void flush() {
        if (!bytes_.empty()) {
            const std::string bytes = std::exchange(bytes_, {});
            if (state().destination == Destination::fonts)
                addToFontName(bytes);
            else
                append(utf8FromEncoding(bytes, nameOfCodePage(codePageInForce()).c_str()));
        }
        if (!units_.empty()) append(utf8FromUTF16(std::exchange(units_, {}), false));
    }

    void addToFontName(const std::string& bytes) {
        constexpr std::size_t longestName = 200;
        Font* font = fontBeingListed();
        if (font && font->name.size() + bytes.size() <= longestName) font->name += bytes;
    }

    Font* fontBeingListed() {
        constexpr std::size_t mostFonts = 10'000;
        if (!state().font || (fonts_.size() >= mostFonts && !fonts_.contains(*state().font))) return nullptr;
        return &fonts_[*state().font];
    }

    const Font* fontInForce() {
        const auto found = fonts_.find(state().font.value_or(defaultFont_));
        return found == fonts_.end() ? nullptr : &found->second;
    }

    int codePageInForce() {
        const Font* font = fontInForce();
        return font && font->codePage ? *font->codePage : codePage_;
    }

    TextStyle styleInForce() {
        TextStyle style = state().style;
        if (const Font* font = fontInForce(); font && !font->name.empty())
            style.font = utf8FromEncoding(font->name, nameOfCodePage(codePageInForce()).c_str());
        if (state().color >= 0 && static_cast<std::size_t>(state().color) < colors_.size())
            style.color = colors_[static_cast<std::size_t>(state().color)];
        return style;
    }

    std::string_view rest_;
    std::vector<GroupState> groups_{1};
    bool isEnded_ = false;
    int codePage_ = 1252;
    int defaultFont_ = 0;
    std::map<int, Font> fonts_;
    std::vector<std::optional<Color>> colors_;
    std::array<double, 3> components_{};
    bool hasColor_ = false;
    std::size_t cellsEnded_ = 0;
    int unitsLeft_ = 0; // of what stands in for a \u
    std::string bytes_;
    std::vector<std::uint8_t> units_; // UTF-16, little endian
    StyledTextCollector collector_;
};

} // namespace

base::Result<StyledText> readRTF(std::string_view bytes) {
    return Reader(bytes).read();
}

} // namespace platform::draw
