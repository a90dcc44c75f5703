#include "PlaceholderPicture.h"

#include "platform/draw/PDFDocument.h"

#include <string_view>

using platform::draw::PDFDocument;
using platform::draw::PDFPageRef;

namespace {

// The application's picture: a PDF document of one page. Its cross-reference table counts bytes: a change of the
// drawing changes the stream's length and the offsets.
constexpr std::string_view girlAndButterfly = R"pdf(%PDF-1.4
1 0 obj
<</Type/Catalog/Pages 2 0 R>>
endobj
2 0 obj
<</Type/Pages/Kids[3 0 R]/Count 1>>
endobj
3 0 obj
<</Type/Page/Parent 2 0 R/MediaBox[0 0 300 300]/Contents 4 0 R/Resources<<>>>>
endobj
4 0 obj
<</Length 653>>stream
1 J 1 j
0.95 0.76 0.31 RG 44 w 236 240 m 236 240 l S
0.56 0.73 0.59 rg 0 0 m 0 70 l 90 120 210 110 300 60 c 300 0 l f
0.45 0.30 0.22 RG 58 w 112 186 m 112 186 l S
26 w 95 176 m 92 146 l S 129 176 m 132 146 l S
0.97 0.82 0.70 RG 44 w 112 180 m 112 180 l S
12 w 112 160 m 112 150 l S 122 138 m 168 170 l S 102 138 m 78 108 l S
12 w 100 66 m 100 40 l S 124 66 m 124 40 l S
0.80 0.36 0.42 rg 100 152 m 124 152 l 152 62 l 72 62 l f
0.35 0.49 0.76 RG 26 w 190 202 m 182 212 l S 216 202 m 224 212 l S
0.55 0.68 0.88 RG 18 w 193 186 m 188 180 l S 213 186 m 218 180 l S
0.20 0.20 0.25 RG 5 w 203 178 m 203 208 l S 2 w 203 208 m 197 220 l S 203 208 m 209 220 l S
endstream
endobj
5 0 obj
<</Title(Girl and Butterfly)>>
endobj
)pdf"
                                              "xref\n"
                                              "0 6\n"
                                              "0000000000 65535 f \n"
                                              "0000000009 00000 n \n"
                                              "0000000054 00000 n \n"
                                              "0000000105 00000 n \n"
                                              "0000000199 00000 n \n"
                                              "0000000899 00000 n \n"
                                              R"pdf(trailer
<</Size 6/Root 1 0 R/Info 5 0 R>>
startxref
945
%%EOF
)pdf";

PDFPageRef pageOfPicture() {
    // An opening of the document is shared; its pages outlive it.
    static const auto* page = [] {
        const auto document = PDFDocument::createWithData(base::Data(girlAndButterfly));
        return new PDFPageRef(document ? (*document)->page(1) : nullptr);
    }();
    return *page;
}

} // namespace

KLARON_ImageRef placeholderPicture(base::Size size) {
    const PDFPageRef page = pageOfPicture();
    return page ? KLARON_Image::imageWithPDFPage(page, size, 0.75, "DDDDDD99", nullptr) : nullptr;
}
