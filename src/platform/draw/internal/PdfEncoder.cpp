// A document of one page, of a point a pixel, with the picture in JPEG compression on it.
#include "PdfMetadata.h"
#include "PictureEncoder.h"
#include "platform/draw/ColorSpace.h"

#include <array>
#include <cstdio>
#include <string>

namespace platform::draw {
namespace {

// The objects by their numbers, in the order in which they are written.
enum PdfObject {
    catalog = 1,
    pages,
    page,
    contents,
    picture,
    pictureLength,
    profile,
    metadata,
    information,
    objectEnd
};

std::string reference(PdfObject object) {
    return std::to_string(object) + " 0 R";
}

/// Writes objects and keeps where they begin.
class Writer {
public:
    explicit Writer(ByteSink& sink) : sink_(sink) {}

    void write(std::string_view text) { sink_.write(text.data(), text.size()); }
    std::uint64_t position() const { return sink_.position(); }

    void begin(PdfObject object) {
        offsets_[object] = position();
        write(std::to_string(object) + " 0 obj\n");
    }
    void end() { write("\nendobj\n"); }

    void object(PdfObject number, std::string_view content) {
        begin(number);
        write(content);
        end();
    }

    /// `entries` are those of its dictionary but for the length.
    void stream(PdfObject number, std::string_view entries, std::string_view content) {
        object(number, "<< " + std::string(entries) + " /Length " + std::to_string(content.size()) + " >>\nstream\n" +
                           std::string(content) + "\nendstream");
    }

    void finish() {
        const std::uint64_t start = position();
        write("xref\n0 " + std::to_string(objectEnd) + "\n0000000000 65535 f \n");
        for (int number = catalog; number < objectEnd; ++number) {
            std::array<char, 32> line; // 20 bytes, whatever the offset
            const int length = std::snprintf(line.data(), line.size(), "%010llu %05d %c \n",
                                             static_cast<unsigned long long>(offsets_[number]),
                                             offsets_[number] ? 0 : 65535, offsets_[number] ? 'n' : 'f');
            write({line.data(), static_cast<std::size_t>(length)});
        }
        write("trailer\n<< /Size " + std::to_string(objectEnd) + " /Root " + reference(catalog) + " /Info " +
              reference(information) + " >>\nstartxref\n" + std::to_string(start) + "\n%%EOF\n");
    }

private:
    ByteSink& sink_;
    std::array<std::uint64_t, objectEnd> offsets_{};
};

} // namespace

base::Result<void> encodePDF(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    const std::string width = std::to_string(bitmap.width());
    const std::string height = std::to_string(bitmap.height());
    const base::Data& icc = bitmap.colorSpace()->iccData();
    const std::string colors = icc.empty() ? "/DeviceRGB" : "[ /ICCBased " + reference(profile) + " ]";

    Writer writer(sink);
    writer.write("%PDF-1.7\n%\xE2\xE3\xCF\xD3\n"); // bytes that tell programs of transfer that this is no text
    writer.object(catalog,
                  "<< /Type /Catalog /Pages " + reference(pages) + " /Metadata " + reference(metadata) + " >>");
    writer.object(pages, "<< /Type /Pages /Kids [ " + reference(page) + " ] /Count 1 >>");
    writer.object(page, "<< /Type /Page /Parent " + reference(pages) + " /MediaBox [ 0 0 " + width + " " + height +
                            " ] /Resources << /XObject << /Picture " + reference(picture) + " >> >> /Contents " +
                            reference(contents) + " >>");
    writer.stream(contents, "", "q " + width + " 0 0 " + height + " 0 0 cm /Picture Do Q");

    writer.begin(picture);
    writer.write("<< /Type /XObject /Subtype /Image /Width " + width + " /Height " + height + " /ColorSpace " + colors +
                 " /BitsPerComponent 8 /Filter /DCTDecode /Length " + reference(pictureLength) + " >>\nstream\n");
    const std::uint64_t pictureStart = writer.position();
    EncodingOptions jpegOptions;
    jpegOptions.quality = options.quality;
    if (auto encoded = encodeJPEG(bitmap, jpegOptions, sink); !encoded) return encoded;
    const std::uint64_t length = writer.position() - pictureStart;
    writer.write("\nendstream");
    writer.end();
    writer.object(pictureLength, std::to_string(length)); // known only now: the picture is not kept in memory

    if (!icc.empty()) writer.stream(profile, "/N 3 /Alternate /DeviceRGB", icc.asText());
    writer.stream(metadata, "/Type /Metadata /Subtype /XML", xmpPacket(options.properties));
    writer.object(information, pdfInformation(options.properties));
    writer.finish();
    return {};
}

} // namespace platform::draw
