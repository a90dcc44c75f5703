#include "DnpPlanes.h"

#include "Console.h"
#include "PageFiles.h"
#include "PictureFiles.h"
#include "base/Path.h"
#include "platform/data/AtomicFile.h"
#include "print/DNPPlanes.h"
#include "print/KLARON_PrintPage_DNP.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace velmctl {

namespace {

// In the order of KLARON_PrintPage_DNP::YMCDataPlanes.
constexpr std::array planeNames{"Y.bmp", "M.bmp", "C.bmp", "BackY.bmp", "BackM.bmp", "BackC.bmp"};

tl::unexpected<base::Error> fault(const std::string& path, const std::string& reason) {
    return base::failure(base::cocoaErrorDomain, 0, path + ": " + reason);
}

} // namespace

base::Result<void> writePlanes(const std::string& pageFile, const std::string& folder) {
    const auto opened = openPage(pageFile);
    if (!opened) return base::failure(opened.error());
    const auto page = std::dynamic_pointer_cast<KLARON_PrintPage_DNP>(*opened);
    if (!page) return fault(pageFile, "only pages for DNP printers have planes");
    const auto planes = page->YMCDataPlanes();
    if (!planes) return base::failure(whyNoRaster(*page, pageFile));

    std::error_code failed;
    std::filesystem::create_directories(folder, failed);
    if (failed) return base::failure(base::systemError(failed.value(), "cannot make the folder " + folder));
    for (std::size_t i = 0; i < planes->size(); ++i) {
        const std::string path = base::appendingPathComponent(folder, planeNames[i]);
        if (const auto written = platform::data::writeFileAtomically(path, (*planes)[i]); !written)
            return base::failure(written.error());
        Console::shared().result(path);
    }
    return {};
}

base::Result<void> writePictureOfPlanes(const std::string& folder, const std::string& output) {
    std::array<base::Data, 3> files;
    std::array<DNPPlane, 3> planes;
    for (std::size_t i = 0; i < planes.size(); ++i) {
        const std::string path = base::appendingPathComponent(folder, planeNames[i]);
        auto file = platform::data::readFile(path);
        if (!file) return base::failure(file.error());
        files[i] = std::move(*file);
        const auto plane = dnpReadPlane(files[i].asText());
        if (!plane) return fault(path, plane.error().localizedDescription);
        planes[i] = *plane;
    }
    const auto picture = dnpPictureOfPlanes(planes[0], planes[1], planes[2]);
    if (!picture) return fault(folder, picture.error().localizedDescription);
    PictureToWrite request;
    request.picture = platform::draw::Image::fromBitmap(*picture);
    request.path = output;
    return writePicture(request);
}

} // namespace velmctl
