#include "platform/draw/StyledText.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace platform::draw {
namespace {

using namespace std::string_view_literals;

// One line for all that was read: "font 12.5 #RRGGBBAA alignment|text", "-" for what the source does not tell.
std::string summary(const base::Result<StyledText>& read) {
    if (!read) return read.error().localizedDescription;
    constexpr std::string_view alignments[] = {"left", "right", "center", "justified", "natural"};
    std::string text = read->fontName.value_or("-");
    char number[32] = " -";
    if (read->fontSize) std::snprintf(number, sizeof number, " %g", *read->fontSize);
    text += number;
    char code[32] = " - ";
    if (read->color) {
        const auto& c = read->color->components();
        std::snprintf(code, sizeof code, " #%02X%02X%02X%02X ", unsigned(c[0] * 255), unsigned(c[1] * 255),
                      unsigned(c[2] * 255), unsigned(c[3] * 255));
    }
    text += code;
    text += read->alignment ? alignments[static_cast<int>(*read->alignment)] : "-";
    return text + "|" + read->string;
}

struct Case {
    std::string_view source, summary;
};

void expectAll(std::string_view type, std::span<const Case> cases) {
    for (const Case& test : cases)
        EXPECT_EQ(summary(readStyledText(base::Data(test.source), type)), test.summary) << test.source;
}

TEST(StyledText, ReadsRTF) {
    const Case cases[] = {
        // As a word processor puts it on the clipboard: listed fonts with substitutes, styles, ignorable groups.
        {R"({\rtf1\ansi\deff3\adeflang1025
{\fonttbl{\f0\froman\fprq2\fcharset0 Times New Roman;}{\f3\froman\fprq2\fcharset0 DejaVu Serif{\*\falt Times New Roman};}{\f5\fnil\fprq2\fcharset0 DejaVu Sans;}}
{\colortbl;\red0\green0\blue0;\red201\green33\blue30;}
{\stylesheet{\s0\snext0\ql\f3\fs24 Default Paragraph Style;}}{\*\generator Writer}{\info{\creatim\yr2026\mo3}}
{\*\pgdsctbl{\pgdsc0 Default;}}\formshade\viewkind4
\pgndec\pard\plain \s0\ql\loch\f3\fs24\qc{\loch\cf2\b\f5\fs56 Summer }{\i 20}{\b0 26}
\par \pard\plain {\*\bkmkstart x}second\u8230\'85{\*\bkmkend x} line}\par})",
         "DejaVuSans-Bold 28 #C9211EFF center|Summer 2026\nsecond\u2026 line"},
        // As macOS writes it: PostScript names, a backslash at the end of each line, an expanded colour table.
        {"{\\rtf1\\ansi\\ansicpg1252\\cocoartf2639\n{\\fonttbl\\f0\\fswiss\\fcharset0 "
         "Helvetica-Bold;\\f1\\fnil\\fcharset0 "
         "Menlo;}\n{\\colortbl;\\red255\\green255\\blue255;\\red0\\green0\\blue128;}\n{\\*\\expandedcolortbl;;\\cssrgb"
         "\\c0\\c0\\c50196;}\n\\pard\\tx560\\pardirnatural\\qr\\partightenfactor0\n\n\\f0\\b\\fs72 \\cf2 "
         "Caf\\'e9\\\nbar"
         "\\\n}",
         "Helvetica-Bold 36 #000080FF right|Caf\u00E9\nbar"},
        // Unicode beside its stand-ins, pairs among them; bytes of the font's own code page, Cyrillic and Japanese.
        {R"({\rtf1\ansi\uc2\u960 ??\uc1\u-10179?\u-8704\'3f\uc0\u8364 x})", "- - - -|\u03C0\U0001F600\u20ACx"},
        {R"({\rtf1{\fonttbl{\f0\fcharset204 Missing;}{\f1\fcharset128 Other;}}\f0\'cf\'f0{\f1\'93\'fa}})",
         "Missing - - -|\u041F\u0440\u65E5"},
        {R"({\rtf1\ansi a\~b\_c\{\\\}\emdash\tab d\line e\cell f\cell\row\cell g\cell\row})",
         "- - - -|a\u00A0b\u2011c{\\}\u2014\td\ne\tf\n\tg"},
        // A link's text without its target, no list marks, notes, hidden text or picture, and binary data passed over.
        {R"({\rtf1{\listtext\pard\plain\f2 \u8226\'95\tab}\fs20 Go {\field{\*\fldinst{HYPERLINK "http://x"}}{\fldrslt here}}{\footnote no}{\v no}{\pict\bin4 }}}}}{\*\x\bin2 {{}!})",
         "- 10 - -|Go here!"},
        {R"({\rtf1{\colortbl;\red1\green2\blue3;}\qj\b\i\fs40\cf1\plain\pard x})", "- - - -|x"},
        {R"({\rtf1\b\i bold by itself)", "Helvetica-BoldOblique - - -|bold by itself"},
        {R"({\rtf1\f7\cf9\cf-1\fs0\fs-4\u99999999999999?z}after)", "- - - -|\uCA00z"},
        {"{\\rtf1}", "- - - -|"},
        {"rtf1", "cannot read the text: it is no RTF"},
        {"", "cannot read the text: it is no RTF"},
    };
    expectAll("public.rtf", cases);
}

TEST(StyledText, ReadsHTML) {
    const Case cases[] = {
        // As browsers, word processors and mail programs put it on the clipboard.
        {"<meta http-equiv=\"content-type\" content=\"text/html; charset=utf-8\"><span style=\"color: rgb(32, 33, 34); "
         "font-family: 'No Such Font', &quot;DejaVu Sans&quot;, sans-serif; font-size: 14px; font-weight: 700; "
         "text-align: start; white-space: normal;\">Gr\u00FC\u00DFe   aus\nUlm</span>",
         "DejaVuSans-Bold 10.5 #202122FF natural|Gr\u00FC\u00DFe aus Ulm"},
        {"<!DOCTYPE html><html><head><meta charset=\"iso-8859-1\"/><title>no</title><style>p { color: red "
         "}</style></head>"
         "<body lang=\"en\" text=\"#000080\">\n<p align=\"center\" style=\"line-height: 100%\"><font face=\"DejaVu "
         "Serif, "
         "serif\"><font size=\"5\" style=\"font-size: "
         "18pt\"><i>T\u00EDtle</i></font></font></p>\n<p>Two<br>\nThree</p>\n</body>",
         "DejaVuSerif-Italic 18 #000080FF center|T\u00EDtle\nTwo\nThree"},
        {"<body><!--[if gte mso 9]><xml>no</xml><![endif]--><p align=center style='mso-x:y'><b><span "
         "style='font-size:28.0pt;"
         "font-family:\"DejaVu Serif\",serif;color:#C00000'>Fest&nbsp;!<o:p></o:p></span></b></p><p><![if "
         "!supportLists]>"
         "<span style='mso-list:Ignore'>1.</span><![endif]>one</p>",
         "DejaVuSerif-Bold 28 #C00000FF center|Fest\u00A0!\none"},
        {"<div>a</div><div><br></div><div>b &nbsp;&amp; "
         "c<script>no()</script></div><ul><li>one</li>\n<li>two</li></ul>",
         "- - - -|a\n\nb \u00A0& c\none\ntwo"},
        {"<table>\n<tr><td><p>a</p></td>\n<td></td><td><b>c</b></td></tr><tr><td>d</td></tr></table>e",
         "- - - -|a\t\tc\nd\ne"},
        {"<div style=\"font: italic bold 24px/1.5 'DejaVu Sans'; white-space: pre\">  x\n  y</div>",
         "DejaVuSans-BoldOblique 18 - -|  x\n  y"},
        {"<h1 style='TEXT-ALIGN: Right !important'>Big <small>x</small></h1>", "Helvetica-Bold 24 - right|Big x"},
        {"<p style='display:none'>no</p><center><font color=#f80 size=+1>yes", "- 13.5 #FF8800FF center|yes"},
        {"<span style='color: rgba(0,0,255,.5); font-size: 2em'><b style='font-weight: normal; font-size: 150%'>x",
         "- 36 #0000FF7F -|x"},
        {"<p style='color: url(\"a;b:c\"); font-size: -3px; font-family: serif; color: nonsense'>x", "- - - -|x"},
        {"\xFF\xFE<\0b\0>\0h\0i\0"sv, "Helvetica-Bold - - -|hi"},
        {"<meta charset=windows-1251><p>\xCF\xF0", "- - - -|\u041F\u0440"},
        {"<p>\xE9\x80 is here", "- - - -|\u00E9\u20AC is here"},
        {"<meta charset=utf-7//x><p>\xE9", "- - - -|\uFFFD"},
        {"1 < 2 <3, no <markup at &all; </nothing>", "- - - -|1 < 2 <3, no"},
        {"", "- - - -|"},
    };
    expectAll("public.html", cases);
}

TEST(StyledText, ReadsPlainText) {
    struct PlainCase {
        std::string_view type, source, summary;
    };
    const PlainCase cases[] = {
        {"public.utf8-plain-text",
         "\xEF\xBB\xBF"
         "a\r\nb\rc\u2028d\n",
         "a\nb\nc\nd\n"},
        {"PUBLIC.text", "\x01z\xFFw\xED\xA0\x80\0\xEF\xBF\xBF"sv, "z\uFFFDw\uFFFD\uFFFD\uFFFD"},
        {"public.utf16-plain-text", "h\0i\0=\xD8"sv, "hi\uFFFD"},
        {"public.utf16-plain-text", "\xFE\xFF\0h\0i"sv, "hi"},
        {"public.utf16-external-plain-text", "\0h\xD8=\xDE\0"sv, "h\U0001F600"},
    };
    for (const PlainCase& test : cases)
        EXPECT_EQ(summary(readStyledText(base::Data(test.source), test.type)), "- - - -|" + std::string(test.summary));
    EXPECT_EQ(StyledText().attributedText(), AttributedText()) << "what is not told is as everywhere";
}

TEST(StyledText, RefusesWhatIsBeyondItsLimits) {
    const auto repeated = [](std::string_view text, std::size_t times) {
        std::string all;
        while (times-- > 0)
            all += text;
        return all;
    };
    std::string manyAttributes = "<p ,=\"b"; // which must not take time with their square
    for (int number = 0; number < 300'000; ++number)
        manyAttributes += " a" + std::to_string(number) + "=\">\"";
    struct Limit {
        std::string_view type;
        std::string source;
        std::string_view message;
    };
    const Limit limits[] = {
        {"public.rtf", "{\\rtf1 " + repeated("{", 100'000), "nested deeper than 1000"},
        {"public.html", repeated("<b>", 100'000) + repeated("</i>", 100'000), "nested deeper than 1000"},
        {"public.rtf", "{\\rtf1" + repeated("\\u65?", 300'000), "longer than 262144 bytes"},
        {"public.html", repeated("<br>", 3000) + "x" + repeated("<br>x", 3000), "more than 2000 lines"},
        {"public.html", manyAttributes + ">" + repeated("<i>x</i>", 300'000), "longer than 262144 bytes"},
        {"public.utf16-plain-text", std::string("a\0\n\0", 4) + repeated(std::string_view("\r\0", 2), 3000),
         "more than 2000 lines"},
        {"public.text", std::string((32 << 20) + 1, 'a'), "larger than 33554432 bytes"},
        {"public.text", std::string(1 << 20, 'a'), "longer than 262144 bytes"},
        {"public.png", "x", "public.png is no type of text"},
    };
    for (const Limit& limit : limits) {
        const auto read = readStyledText(base::Data(limit.source), limit.type);
        ASSERT_FALSE(read) << limit.message;
        EXPECT_NE(read.error().localizedDescription.find(limit.message), std::string::npos)
            << read.error().localizedDescription;
    }
    const std::string huge = "{\\rtf1 a\\bin2147483647 }\\bin99999999999999999999 b}";
    EXPECT_EQ(summary(readStyledText(base::Data(huge), "public.rtf")), "- - - -|a");
}

} // namespace
} // namespace platform::draw
