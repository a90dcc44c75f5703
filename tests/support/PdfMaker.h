// PDF documents for tests, with a table of objects that is right to the byte. Pure functions.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace support {

struct PdfPage {
    std::string entries; ///< Of the page's dictionary: boxes, rotation, resources.
    std::string content; ///< Drawing operators.
};

/// The objects count from 1; the first is the catalogue. `trailer` adds entries to the trailer.
inline std::string pdfOfObjects(const std::vector<std::string>& objects, const std::string& trailer = "") {
    std::string pdf = "%PDF-1.4\n";
    std::string table = "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (std::size_t index = 0; index < objects.size(); ++index) {
        char line[32];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", pdf.size());
        table += line;
        pdf += std::to_string(index + 1) + " 0 obj\n" + objects[index] + "\nendobj\n";
    }
    return pdf + table + "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R " + trailer +
           " >>\nstartxref\n" + std::to_string(pdf.size()) + "\n%%EOF\n";
}

inline std::string pdfOf(const std::vector<PdfPage>& pages, const std::string& trailer = "") {
    std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>", ""};
    std::string kids;
    for (const PdfPage& page : pages) {
        kids += std::to_string(objects.size() + 1) + " 0 R ";
        objects.push_back("<< /Type /Page /Parent 2 0 R " + page.entries + " /Contents " +
                          std::to_string(objects.size() + 2) + " 0 R >>");
        objects.push_back("<< /Length " + std::to_string(page.content.size()) + " >>\nstream\n" + page.content +
                          "\nendstream");
    }
    objects[1] = "<< /Type /Pages /Kids [ " + kids + "] /Count " + std::to_string(pages.size()) + " >>";
    return pdfOfObjects(objects, trailer);
}

/// A page of 100 x 200 points whose crop box begins at (50, 100), with a patch of 20 points in each of its corners:
/// blue at the top left, black at the top right, green at the bottom right, red at the bottom left. A patch of magenta
/// runs over the box's left edge and continues inside for 10 points; what lies outside must not show. In the middle is
/// a yellow patch of 10 points.
inline PdfPage markedPage(const std::string& rotate = "") {
    return {"/MediaBox [0 0 300 400] /CropBox [50 100 150 300] " + rotate,
            "0 0 1 rg 50 280 20 20 re f  0 0 0 rg 130 280 20 20 re f\n"
            "0 1 0 rg 130 100 20 20 re f  1 0 0 rg 50 100 20 20 re f\n"
            "1 0 1 rg 30 190 30 20 re f  10 10 20 20 re f  1 1 0 rg 95 195 10 10 re f"};
}

} // namespace support
