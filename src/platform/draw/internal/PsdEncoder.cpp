// Photoshop files: RGB of 8 bits, packed. An opaque picture is the merged one alone. One with transparency has a layer
// besides, that holds it whole: only then does every program see the transparency, Photoshop itself among them.
#include "PictureEncoder.h"

#include "PictureFormat.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <string_view>

namespace platform::draw {
namespace {

using Row = std::vector<std::uint8_t>;

/// Big-endian numbers into a sink.
class Writer {
public:
    explicit Writer(ByteSink& sink) : sink_(sink) {}
    void number(std::uint64_t value, std::size_t bytes) {
        std::uint8_t raw[8];
        for (std::size_t i = 0; i < bytes; ++i)
            raw[i] = static_cast<std::uint8_t>(value >> 8 * (bytes - 1 - i));
        sink_.write(raw, bytes);
    }
    void text(std::string_view text) { sink_.write(text.data(), text.size()); }
    /// A number of four bytes to be written later; answers where.
    std::uint64_t hole() {
        number(0, 4);
        return sink_.position() - 4;
    }
    /// Writes into the hole how many bytes were written since.
    void fill(std::uint64_t hole) { put(hole, sink_.position() - hole - 4); }
    void put(std::uint64_t hole, std::uint64_t value) {
        const std::uint64_t here = sink_.position();
        sink_.seek(hole);
        number(value, 4);
        sink_.seek(here);
    }
    ByteSink& sink() { return sink_; }

private:
    ByteSink& sink_;
};

/// Runs of the same byte (from three on) as their length and the byte, all else as it is.
void pack(const Row& row, Row& packed) {
    constexpr std::size_t longest = 128;
    packed.clear();
    const auto runAt = [&](std::size_t start) {
        std::size_t end = start + 1;
        while (end < row.size() && end - start < longest && row[end] == row[start])
            ++end;
        return end - start;
    };
    for (std::size_t i = 0; i < row.size();) {
        if (const std::size_t run = runAt(i); run >= 3) {
            packed.push_back(static_cast<std::uint8_t>(257 - run));
            packed.push_back(row[i]);
            i += run;
            continue;
        }
        const std::size_t start = i++;
        while (i < row.size() && i - start < longest &&
               !(i + 2 < row.size() && row[i] == row[i + 1] && row[i] == row[i + 2]))
            ++i;
        packed.push_back(static_cast<std::uint8_t>(i - start - 1));
        packed.insert(packed.end(), row.begin() + static_cast<std::ptrdiff_t>(start),
                      row.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

/// Where a channel (0 to 2 red, green and blue, 3 alpha) stands in a pixel.
std::size_t placeOf(int channel) {
    return channel == 3 ? 3 : static_cast<std::size_t>(2 - channel);
}

class PsdWriter {
public:
    PsdWriter(const Bitmap& bitmap, ByteSink& sink)
        : bitmap_(bitmap), writer_(sink), rows_(static_cast<std::size_t>(bitmap.height())),
          row_(static_cast<std::size_t>(bitmap.width())), pixels_(4 * row_.size()) {}

    void write(const EncodingOptions& options) {
        writer_.text("8BPS");
        writer_.number(isLarge() ? 2 : 1, 2);
        writer_.number(0, 6);
        writer_.number(static_cast<std::uint64_t>(channels()), 2);
        writer_.number(rows_, 4);
        writer_.number(row_.size(), 4);
        writer_.number(8, 2);
        writer_.number(3, 2); // RGB
        writer_.number(0, 4);
        writeResources(options);
        writeLayers();
        writer_.number(1, 2); // packed
        writePlanes(0, channels(), false);
    }

private:
    bool isLarge() const { return bitmap_.width() > 30000 || bitmap_.height() > 30000; }
    int channels() const { return bitmap_.isOpaque() ? 3 : 4; }
    std::size_t countBytes() const { return isLarge() ? 4 : 2; }

    std::uint64_t beginResource(unsigned identifier) {
        writer_.text("8BIM");
        writer_.number(identifier, 2);
        writer_.number(0, 2); // no name
        return writer_.hole();
    }
    void endResource(std::uint64_t hole) {
        writer_.fill(hole);
        if ((writer_.sink().position() & 1) != 0) writer_.number(0, 1);
    }

    void writeResources(const EncodingOptions& options) {
        const std::uint64_t all = writer_.hole();
        const std::uint64_t resolution = beginResource(1005);
        for (int axis = 0; axis < 2; ++axis) {
            writer_.number(72u << 16, 4);
            writer_.number(1, 2); // pixels an inch
            writer_.number(1, 2); // sizes are shown in inches
        }
        endResource(resolution);
        for (const auto& [identifier, bytes] :
             {std::pair(1039u, &bitmap_.colorSpace()->iccData().bytes), std::pair(1058u, &options.exif)}) {
            if (bytes->empty()) continue;
            const std::uint64_t hole = beginResource(identifier);
            writer_.sink().write(bytes->data(), bytes->size());
            endResource(hole);
        }
        writer_.fill(all);
    }

    void writeLayers() {
        const std::size_t highHalf = isLarge() ? 4 : 0; // of lengths; no layer of ours needs it
        writer_.number(0, highHalf);
        const std::uint64_t section = writer_.hole();
        if (bitmap_.isOpaque()) return;
        writer_.number(0, highHalf);
        const std::uint64_t layers = writer_.hole();
        writer_.number(0xFFFF, 2); // one layer; the minus says that the merged picture's fourth channel is transparency
        for (const std::size_t edge : {std::size_t{0}, std::size_t{0}, rows_, row_.size()})
            writer_.number(edge, 4);
        writer_.number(4, 2);
        std::uint64_t lengths[4];
        for (int channel = 0; channel < 4; ++channel) {
            writer_.number(channel == 3 ? 0xFFFF : static_cast<unsigned>(channel), 2);
            writer_.number(0, highHalf);
            lengths[channel] = writer_.hole();
        }
        writer_.text("8BIMnorm");
        writer_.number(255, 1);       // opacity
        writer_.number(0, 1);         // no clipping
        writer_.number(0, 1);         // visible
        writer_.number(0, 1);         // filler
        writer_.number(4 + 4 + 8, 4); // of the three that follow
        writer_.number(0, 4);         // no mask
        writer_.number(0, 4);         // no blending ranges
        writer_.text("\7Layer 0");
        for (int channel = 0; channel < 4; ++channel) {
            const std::uint64_t start = writer_.sink().position();
            writer_.number(1, 2); // packed
            writePlanes(channel, 1, true);
            writer_.put(lengths[channel], writer_.sink().position() - start);
        }
        if ((writer_.sink().position() & 1) != 0) writer_.number(0, 1);
        writer_.fill(layers);
        writer_.number(0, 4); // no mask of them all
        writer_.fill(section);
    }

    /// The lengths of all packed rows, and the rows. The merged colours lie on white, those of a layer are straight.
    void writePlanes(int first, int count, bool straight) {
        const std::uint64_t table = writer_.sink().position();
        Row lengths(rows_ * static_cast<std::size_t>(count) * countBytes());
        writer_.sink().write(lengths.data(), lengths.size());
        std::size_t entry = 0;
        for (int channel = first; channel < first + count; ++channel) {
            for (std::size_t y = 0; y < rows_; ++y) {
                takeRow(static_cast<int>(y), channel, straight);
                pack(row_, packed_);
                writer_.sink().write(packed_.data(), packed_.size());
                for (std::size_t byte = countBytes(); byte-- > 0;)
                    lengths[entry++] = static_cast<std::uint8_t>(packed_.size() >> 8 * byte);
            }
        }
        const std::uint64_t end = writer_.sink().position();
        writer_.sink().seek(table);
        writer_.sink().write(lengths.data(), lengths.size());
        writer_.sink().seek(end);
    }

    void takeRow(int y, int channel, bool straight) {
        const std::uint8_t* pixels = bitmap_.row(y);
        if (straight && channel != 3) {
            std::copy_n(pixels, pixels_.size(), pixels_.begin());
            unpremultiply(pixels_.data(), row_.size());
            pixels = pixels_.data();
        }
        const std::size_t place = placeOf(channel);
        const bool onWhite = !straight && channel != 3 && !bitmap_.isOpaque();
        for (std::size_t i = 0; i < row_.size(); ++i) {
            const int light = onWhite ? 255 - pixels[4 * i + 3] : 0;
            row_[i] = static_cast<std::uint8_t>(std::min(pixels[4 * i + place] + light, 255));
        }
    }

    const Bitmap& bitmap_;
    Writer writer_;
    std::size_t rows_;
    Row row_;
    Row pixels_;
    Row packed_;
};

} // namespace

base::Result<void> encodePSD(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    PsdWriter(bitmap, sink).write(options);
    return {};
}

} // namespace platform::draw
