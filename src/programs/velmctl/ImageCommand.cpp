// velmctl image info|convert|comment: what a picture file is, the same picture in another file, the comment inside.
#include "Command.h"
#include "Console.h"
#include "PictureFiles.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Path.h"
#include "base/Value.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/ImageSource.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velmctl {

namespace {

namespace draw = platform::draw;

struct Request {
    std::string file;
    bool asJSON = false;
    PictureToWrite output;
    std::optional<int> maximum;
    std::optional<std::string> comment;
};

base::Result<draw::ImageSourceRef> open(const std::string& path) {
    return draw::ImageSource::createWithURL(base::URL::fileURLWithPath(path));
}

// -- Info ------------------------------------------------------------------------------------------------------------

base::Result<void> printInfo(const Request& request) {
    const auto source = open(request.file);
    if (!source) return base::failure(source.error());
    const draw::ImageRef image = (*source)->imageAtIndex(0);
    const base::Dictionary& properties = (*source)->propertiesAtIndex(0);
    const base::Size oriented = KLARON_Image::orientedSizeForImageMetaData(properties);
    // In the order in which people look for them.
    std::vector<std::pair<std::string, base::Value>> info{
        {"width", image->width()},
        {"height", image->height()},
        {"orientation", KLARON_Image::initWithCGImageSource(*source)->orientationNatural()},
        {"orientedWidth", static_cast<std::int64_t>(oriented.width)},
        {"orientedHeight", static_cast<std::int64_t>(oriented.height)},
        {"type", (*source)->typeIdentifier()},
        {"colorSpace", image->colorSpace()->name()}};
    if ((*source)->count() > 1) info.emplace_back("count", (*source)->count());
    info.emplace_back("properties", properties);
    const std::vector<std::string> lines =
        request.asJSON ? std::vector{jsonText(base::Dictionary(info.begin(), info.end()))} : treeLines(info);
    for (const std::string& line : lines)
        Console::shared().result(line);
    return {};
}

// -- Convert ---------------------------------------------------------------------------------------------------------

/// The picture as it is to be written. One that lies upright and is not reduced goes to its encoder as it is.
base::Result<draw::ImageRef> uprightPicture(const draw::ImageSource& source, std::optional<int> maximum) {
    const draw::ImageRef image = source.imageAtIndex(0);
    const int orientation = static_cast<int>(
        base::valueForKey(source.propertiesAtIndex(0), draw::kCGImagePropertyOrientation).integerValue());
    const int longest = maximum.value_or(std::numeric_limits<int>::max());
    if (orientation <= 1 && std::max(image->width(), image->height()) <= longest) return image;
    return source.thumbnailAtIndex(0, longest, true, draw::Quality::final);
}

base::Result<void> convert(const Request& request) {
    const auto source = open(request.file);
    if (!source) return base::failure(source.error());
    PictureToWrite output = request.output;
    const auto picture = uprightPicture(**source, request.maximum);
    if (!picture) return base::failure(picture.error());
    output.picture = *picture;
    return writePicture(output);
}

// -- Comment ---------------------------------------------------------------------------------------------------------

base::Result<void> readOrWriteComment(const Request& request) {
    const auto source = open(request.file);
    if (!source) return base::failure(source.error());
    if (!request.comment) {
        Console::shared().result(KLARON_Image::getEXIFUserCommentForImage(request.file).value_or(""));
        return {};
    }
    std::optional<base::Error> error;
    if (KLARON_Image::setEXIFUserComment(*request.comment, request.file, &error)) return {};
    return base::failure(base::cocoaErrorDomain, 0,
                         "cannot set the comment of " + request.file + ": " +
                             (error ? error->localizedDescription : "the reason is not known"));
}

// A comparison that also refuses what is not a number.
std::string whyNoQuality(const std::string& text) {
    double quality = 0;
    const bool isQuality = CLI::detail::lexical_cast(text, quality) && quality >= 0 && quality <= 1;
    return isQuality ? std::string() : text + " is not a number from 0 to 1";
}

} // namespace

void declareImage(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("image", "Look into picture files, convert them, comment them");
    command->require_subcommand(0, 1);
    const auto request = std::make_shared<Request>();
    const auto declare = [&](const char* name, const char* description, base::Result<void> (*work)(const Request&)) {
        CLI::App* action = command->add_subcommand(name, description);
        action->callback([request, work, chosen] {
            chosen([request, work](const Options& options) {
                const Session session(options);
                return report(work(*request));
            });
        });
        return action;
    };

    CLI::App* info = declare("info", "Print size, orientation, type, colour space and metadata", printInfo);
    info->add_option("FILE", request->file, "A picture")->required()->type_name("");
    info->add_flag("--json", request->asJSON, "One JSON object, complete");

    CLI::App* conversion = declare("convert", "Write the picture, upright, as a file of another type", convert);
    conversion->footer("Prints the path that was written: the type's own extension replaces the given one (a.jpg\n"
                       "becomes a.jpeg). Only the pixels and the colour space are taken over, not the metadata.\n"
                       "Of several pictures in a file the first is taken.\n");
    conversion->add_option("IN", request->file, "A picture")->required()->type_name("");
    conversion->add_option("OUT", request->output.path, "The file to write: " + writableExtensions())
        ->required()
        ->type_name("")
        ->check(whyNotWritable);
    conversion->add_option("--max", request->maximum, "Pixels of the longer side at most; nothing is enlarged")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    conversion->add_option("--quality", request->output.quality, "0 to 1, of types that lose (0.85)")
        ->type_name("Q")
        ->check(whyNoQuality);
    conversion->add_option("--comment", request->output.comment, "The comment inside (\"VELM comment\")")
        ->type_name("TEXT");
    conversion->add_flag("--keep", request->output.keepsExisting,
                         "Take the next free name (a 1.jpeg) rather than replace a file");

    CLI::App* comment =
        declare("comment", "Print the comment inside a picture, or set that of a JPEG file", readOrWriteComment);
    comment->footer(
        "Prints an empty line for a picture without a comment. Setting one leaves the picture's data in the\n"
        "file as it is, byte for byte.\n");
    comment->add_option("FILE", request->file, "A picture; a JPEG file to set its comment")->required()->type_name("");
    comment->add_option("TEXT", request->comment, "The comment to set")
        ->type_name("")
        ->check([](const std::string& text) { return text.empty() ? "a comment can't be empty" : std::string(); });
}

} // namespace velmctl
