#include "PageFiles.h"

#include "PictureFiles.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/data/AtomicFile.h"
#include "platform/filter/FilterContext.h"
#include "platform/filter/FilterImage.h"
#include "print/OldPage.h"

namespace velmctl {

namespace {

tl::unexpected<base::Error> fault(const std::string& text) {
    return base::failure(base::cocoaErrorDomain, 0, text);
}

base::Result<KLARON_PrintPageRef> openOldPage(const std::string& path) {
    const base::URL url = base::URL::fileURLWithPath(path);
    if (const auto read = readOldPage(url); !read) return base::failure(read.error());
    const LogEar ear;
    if (auto page = KLARON_PrintPage::printPageForOldVelm(url)) return page;
    return fault(path + ": " + ear.lastAfter("ERROR: ", "no page can be made of it"));
}

} // namespace

base::Result<KLARON_PrintPageRef> openPage(const std::string& path) {
    if (base::equalIgnoringCase(base::pathExtension(path), "plist")) return openOldPage(path);
    const auto bytes = platform::data::readFile(path);
    if (!bytes) return base::failure(bytes.error());
    auto page = pageFromArchive(bytes->asText());
    if (!page) return fault(path + ": " + page.error().localizedDescription);
    return page;
}

base::Error whyNoRaster(KLARON_PrintPage& page, const std::string& path) {
    const auto because = [&](const std::string& reason) {
        return base::Error{std::string(base::cocoaErrorDomain), 0, path + ": " + reason};
    };
    if (page.inputImages().empty()) return because("the page has no picture");
    if (page.pixelsWide() == 0 || page.pixelsHigh() == 0) return because("the page has no paper size");
    for (const base::URL& url : page.inputImages())
        if (const auto picture = platform::filter::FilterImage::imageWithContentsOfURL(url, true); !picture)
            return picture.error();
    // Again, to hear the reason.
    const auto image = page.imagePreProcessWithOptions();
    if (!image) return because("the page has no image");
    const platform::filter::FilterContext context(page.outputColorSpace(), page.rasterContextFormatWorking());
    const auto raster = context.render(image, image->extent().integral());
    return because(raster ? "the page's image can't be handed over" : raster.error().localizedDescription);
}

} // namespace velmctl
