// An archived print page: read, told, copied, written and read again, and a thumbnail rendered of a picture in the
// place of those that it names.
#include "Fuzzing.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/ImageDestination.h"
#include "platform/filter/FilterContext.h"
#include "print/KLARON_PrintPage.h"

using fuzzing::require;

namespace {

const base::URL& picture() {
    static const fuzzing::NamelessFile file;
    static const base::URL url = [] {
        auto bitmap = *platform::draw::Bitmap::create(9, 7, platform::draw::ColorSpace::sRGB(), false);
        bitmap.mutableRow(3)[4] = 90;
        auto destination = *platform::draw::ImageDestination::createWithData("public.png");
        destination->addImage(platform::draw::Image::fromBitmap(bitmap), {});
        require(destination->finalize().has_value(), "the picture is written");
        file.write(destination->takeData().asText());
        return base::URL::fileURLWithPath(file.path());
    }();
    return url;
}

base::Data throughArchive(const KLARON_PrintPageRef& page) {
    const auto written = archiveOfPage(page);
    require(written.has_value(), "what was read is written");
    const auto again = pageFromArchive(written->asText());
    require(again.has_value(), "what was written is read");
    const auto second = archiveOfPage(*again);
    require(second.has_value(), "what was written and read is written");
    return *second;
}

void render(KLARON_PrintPage& page) {
    page.setInputImages({picture()});
    const auto image = page.imagePreProcessWithOptions({{"isPreviewImage", true}, {"previewSize", "{12, 12}"}});
    if (!image) return;
    const base::Rect extent = image->extent().integral();
    constexpr double enough = 4096;
    if (!(extent.width * extent.height <= enough)) return;
    (void)platform::filter::FilterContext(nullptr, page.rasterContextFormatWorking()).render(image, extent);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    const auto page = pageFromArchive({reinterpret_cast<const char*>(bytes), size});
    if (!page) {
        require(!page.error().localizedDescription.empty(), "what is refused is told");
        return 0;
    }
    require(!(*page)->description().empty(), "a page describes itself");
    (void)(*page)->reason();
    (void)(*page)->paperNames();
    // A page loses its cut mode on its first way through an archive, and nothing more on the next.
    const base::Data once = throughArchive(*page);
    const auto again = pageFromArchive(once.asText());
    require(again && throughArchive(*again) == once, "what was written and read is written alike");
    const auto copy = (*again)->copy();
    require(copy->className() == (*page)->className(), "a copy is of its page's class");
    render(*copy);
    return 0;
}
