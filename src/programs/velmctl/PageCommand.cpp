// velmctl page make|show|raster|preview: print pages made by hand, told, and rendered as their printers get them.
#include "Command.h"
#include "Console.h"
#include "PageFiles.h"
#include "PageListing.h"
#include "PageMaking.h"
#include "PictureFiles.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Path.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/Raster.h"
#include "platform/filter/FilterContext.h"
#include "platform/filter/FilterImage.h"
#include "print/ImageProcessingKeys.h"
#include "print/KLARON_PrintPage.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velmctl {

namespace {

namespace draw = platform::draw;
namespace filter = platform::filter;

struct Request {
    std::string file;
    std::string output;
    bool asJSON = false;
    std::optional<int> bits;
    bool planar = false;
    bool cmy = false;
    int maximum = 800;
};

base::Result<void> printPage(const Request& request) {
    const auto page = openPage(request.file);
    if (!page) return base::failure(page.error());
    const std::vector<std::string> lines =
        request.asJSON ? std::vector{jsonText(pageValue(**page))} : pageLines(**page);
    for (const std::string& line : lines)
        Console::shared().result(line);
    return {};
}

// -- Rasters ---------------------------------------------------------------------------------------------------------

/// A file of 16 bits where the samples have them and the type holds them.
base::Result<void> writeImage(const base::Result<draw::ImageRef>& image, const std::string& path, int bits) {
    if (!image) return base::failure(image.error());
    const auto type = pictureTypeForPath(path);
    if (bits == 8 || !type) return writePicture({*image, path, std::nullopt, std::nullopt, false});
    const auto url =
        platform::data::appendingPathExtensionForType(base::URL::fileURLWithPath(path).deletingPathExtension(), *type);
    const auto file = draw::ImageDestination::createWithURL(url, *type);
    if (!file) return base::failure(base::cocoaErrorDomain, 0, oneLine(path, file.error()));
    (*file)->addImage(*image, {{std::string(draw::kCGImagePropertyDepth), bits}});
    if (const auto written = (*file)->finalize(); !written)
        return base::failure(base::cocoaErrorDomain, 0, oneLine(path, written.error()));
    Console::shared().result(url.path());
    return {};
}

/// Samples as a page hands them over: width, height and bits by its properties, one or three a pixel.
struct Samples {
    const base::Data& data;
    const base::Dictionary& properties;
    int components;

    int number(std::string_view key) const {
        return static_cast<int>(base::valueForKey(properties, key).integerValue());
    }
};

/// A picture of them: three components stand for red, green and blue, one for all three.
draw::Raster pictureOf(const Samples& samples, draw::ColorSpaceRef colorSpace) {
    draw::Raster raster;
    raster.width = samples.number(RasterProperty::width);
    raster.height = samples.number(RasterProperty::height);
    raster.bitsPerComponent = samples.number(RasterProperty::bitsPerComponent);
    raster.colorSpace = std::move(colorSpace);
    const std::size_t bytes = static_cast<std::size_t>(raster.bitsPerComponent) / 8;
    raster.bytesPerRow = static_cast<std::size_t>(raster.width) * 4 * bytes;
    raster.pixels = std::make_shared<std::vector<std::uint8_t>>(
        raster.bytesPerRow * static_cast<std::size_t>(raster.height), std::uint8_t{255});
    const std::size_t step = samples.components == 1 ? 0 : bytes;
    const std::uint8_t* from = samples.data.bytes.data();
    std::uint8_t* to = raster.pixels->data();
    for (std::size_t left = raster.pixels->size() / (4 * bytes); left > 0; --left) {
        for (std::size_t component = 0; component < 3; ++component)
            std::copy_n(from + component * step, bytes, to + component * bytes);
        from += static_cast<std::size_t>(samples.components) * bytes;
        to += 4 * bytes;
    }
    return raster;
}

/// "OUT.png" becomes "OUT-Y.png".
std::string pathOfPlane(const std::string& path, char name) {
    return base::appendingPathExtension(base::deletingPathExtension(path) + "-" + name, base::pathExtension(path));
}

base::Result<void> writeForm(KLARON_PrintPage& page, const Request& request) {
    base::Dictionary properties{
        {std::string(RasterProperty::bitsPerComponent),
         request.bits.value_or(page.rasterContextFormatOutput() == RasterFormat::rgba16 ? 16 : 8)},
        {std::string(RasterProperty::planar), request.planar},
        {std::string(RasterProperty::cmy), request.cmy}};
    const RasterBytes bytes = page.imageRasterWithProperties(&properties);
    if (const auto* chunky = std::get_if<base::Data>(&bytes)) {
        const auto space = base::valueForKey(properties, RasterProperty::colorSpace).object<ColorSpaceObject>();
        // Complemented samples are amounts of ink and not colours of the space.
        const bool isColor = space && !request.cmy;
        const Samples samples{*chunky, properties, 3};
        const auto raster = pictureOf(samples, isColor ? space->colorSpace() : draw::ColorSpace::sRGB());
        return writeImage(draw::imageOfRaster(raster), request.output, raster.bitsPerComponent);
    }
    if (const auto* planes = std::get_if<std::array<base::Data, 3>>(&bytes)) {
        for (std::size_t i = 0; i < planes->size(); ++i) {
            const Samples samples{(*planes)[i], properties, 1};
            const auto raster = pictureOf(samples, draw::ColorSpace::sRGB());
            auto written =
                writeImage(draw::imageOfRaster(raster), pathOfPlane(request.output, (request.cmy ? "YMC" : "RGB")[i]),
                           raster.bitsPerComponent);
            if (!written) return written;
        }
        return {};
    }
    return base::failure(whyNoRaster(page, request.file));
}

base::Result<void> writeRaster(const Request& request) {
    const auto page = openPage(request.file);
    if (!page) return base::failure(page.error());
    if (request.bits || request.planar || request.cmy) return writeForm(**page, request);
    const auto raster = (*page)->imageRaster();
    if (!raster) return base::failure(whyNoRaster(**page, request.file));
    return writeImage(draw::imageOfRaster(*raster), request.output, raster->bitsPerComponent);
}

// -- Previews --------------------------------------------------------------------------------------------------------

/// The page as it will look: the printer's colours, its pixels made square, reduced on the way to the sheet and not
/// after it.
base::Result<draw::ImageRef> previewOf(KLARON_PrintPage& page, const Request& request) {
    const filter::FilterImageRef sheet = page.imagePreProcessWithOptions();
    const base::Rect extent = sheet ? sheet->extent() : base::Rect();
    if (extent.isEmpty()) return base::failure(whyNoRaster(page, request.file));
    const base::Size resolution = page.outputResolution();
    const double aspect = resolution.width > 0 && resolution.height > 0 ? resolution.height / resolution.width : 1;
    const base::Size seen{extent.width, extent.height / aspect};
    const double reduction = std::min(1.0, request.maximum / std::max(seen.width, seen.height));
    const base::Size size{std::max(1.0, std::round(seen.width * reduction)),
                          std::max(1.0, std::round(seen.height * reduction))};
    const double sx = size.width / extent.width, sy = size.height / extent.height;
    const auto image = sheet->imageByApplyingTransform({sx, 0, 0, sy, -extent.x * sx, -extent.y * sy});
    const filter::FilterContext context(page.outputColorSpace(), page.rasterContextFormatWorking());
    const auto raster = context.render(image, {0, 0, size.width, size.height});
    if (!raster) return base::failure(raster.error());
    const auto printed = draw::imageOfRaster(*raster);
    if (!printed) return printed;
    auto shown = (*printed)->bitmap(draw::ColorSpace::sRGB());
    if (!shown) return base::failure(shown.error());
    return draw::Image::fromBitmap(std::move(*shown));
}

base::Result<void> writePreview(const Request& request) {
    const auto page = openPage(request.file);
    if (!page) return base::failure(page.error());
    return writeImage(previewOf(**page, request), request.output, 8);
}

// -- The command line ------------------------------------------------------------------------------------------------

void declareMake(CLI::App& command, const Chosen& chosen) {
    const auto request = std::make_shared<PageRequest>();
    CLI::App* make = command.add_subcommand("make", "Make a page of pictures for a printer's model");
    make->footer("Prints the path that was written. A model that begins with \"mitsu\" gets a page for Mitsubishi's\n"
                 "printers, every other one a page for DNP's. Papers, layouts, qualities and overcoats are those of\n"
                 "the model; one that it doesn't know is answered by the list of those that it knows.\n"
                 "A page holds the absolute paths of its pictures, not the pictures.\n");
    make->add_option("IMAGE", request->images, "The pictures, in the order of the frames")->required()->type_name("");
    make->add_option("--model", request->model, "\"DNP DS80\", \"Mitsubishi CP-D90DW\"...")
        ->required()
        ->type_name("NAME");
    const auto output = make->add_option("-o,--output", request->output, "The page; .printpage when it names no type");
    output->required()->type_name("FILE");
    CLI::Option_group* papers = make->add_option_group("paper", "At least one of these:");
    papers->add_option("--paper", request->paper, "\"6x8\" for DNP, \"Media6x8Cut4x6\" for Mitsubishi")
        ->type_name("NAME");
    papers->add_option("--multicut", request->multicut, "The layout's code, also besides --paper, in its place")
        ->type_name("CODE");
    papers->require_option(1, 2);
    make->add_option("--media", request->media, "The medium's code, in place of the paper's")->type_name("CODE");
    make->add_option("--gravity", request->gravity, "How pictures fill their frames (resizeAspectFill)")
        ->type_name("NAME")
        ->check(CLI::IsMember(pageGravities()));
    make->add_option("--copies", request->copies, "Prints of the page; the file does not hold it")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    make->add_option("--quality", request->quality, "By name or code")->type_name("QUALITY");
    make->add_option("--overcoat", request->overcoat, "By name or code")->type_name("OVERCOAT");
    make->add_flag("--no-auto-rotate", request->keepsUpright, "Don't turn pictures that lie across the page");
    make->add_option("--profile", request->profile, "ICC profile of the printer and its medium")->type_name("FILE");
    make->add_option("--color-management", request->colorManagement,
                     "1 or 2: by the profile; every other number: sRGB (1)")
        ->type_name("N")
        ->check(CLI::Range(INT32_MIN, INT32_MAX));
    make->add_option("--adjust", request->adjustments,
                     "A colour setting, any number of times: " + joined(pageAdjustments()))
        ->type_name("NAME=VALUE")
        ->take_all()
        ->allow_extra_args(false)
        ->check(whyNoAdjustment);
    make->callback([request, chosen] {
        chosen([request](const Options& options) {
            const Session session(options);
            return report(makePage(*request));
        });
    });
}

} // namespace

void declarePage(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("page", "Make print pages, look into them, render them");
    command->require_subcommand(0, 1);
    declareMake(*command, chosen);

    const auto request = std::make_shared<Request>();
    const auto declare = [&](const char* name, const char* description, base::Result<void> (*work)(const Request&)) {
        CLI::App* action = command->add_subcommand(name, description);
        action->add_option("FILE", request->file, "A page, or the property list of an old page (.plist)")
            ->required()
            ->type_name("");
        action->callback([request, work, chosen] {
            chosen([request, work](const Options& options) {
                const Session session(options);
                return report(work(*request));
            });
        });
        return action;
    };
    const auto declareOutput = [&](CLI::App* action) {
        action->add_option("-o,--output", request->output, "The picture to write: " + writableExtensions())
            ->required()
            ->type_name("FILE")
            ->check(whyNotWritable);
    };

    declare("show", "Print a page's members, pictures and filters", printPage)
        ->add_flag("--json", request->asJSON, "One JSON object, complete");

    CLI::App* raster = declare("raster", "Write the pixels that the printer gets", writeRaster);
    raster->footer(
        "Prints the path of each file that was written; the picture holds the printer's profile. Samples of 16\n"
        "bits stay so in PNG and TIFF files; other types hold 8.\n"
        "--bits, --planar and --cmy write the samples in that form: with --planar three grey pictures (OUT-R,\n"
        "OUT-G, OUT-B; with --cmy OUT-Y, OUT-M, OUT-C), with --cmy alone yellow, magenta and cyan in the places\n"
        "of red, green and blue. Planes of 16 bits are those that printers are given: they hold no more than the\n"
        "low byte of each sample, with --cmy partly other ones. Right colours of 16 bits come without --planar.\n");
    declareOutput(raster);
    raster->add_option("--bits", request->bits, "8 or 16 a sample (those of the page's kind of printer)")
        ->type_name("N")
        ->check(CLI::IsMember({8, 16}));
    raster->add_flag("--planar", request->planar, "Three planes, each a file");
    raster->add_flag("--cmy", request->cmy, "Complemented samples");

    CLI::App* preview = declare("preview", "Write the page as it will look: square pixels, sRGB", writePreview);
    preview->footer("Prints the path that was written. Colours are those that the printer's profile lets through.\n");
    declareOutput(preview);
    preview->add_option("--max", request->maximum, "Pixels of the longer side at most (800)")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
}

} // namespace velmctl
