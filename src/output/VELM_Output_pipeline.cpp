// How an output's product comes into being and reaches its destinations.
#include "output/VELM_Output.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/QueueHelpers.h"
#include "imaging/KLARON_Image.h"
#include "internal/WrittenFiles.h"
#include "output/PrinterDestinationHandler.h"
#include "platform/data/FileTypes.h"
#include "template/VELM_Template.h"

#include <functional>
#include <limits>

using platform::draw::BitmapContextRef;
using platform::draw::ImageRef;

namespace {

constexpr double jpegQuality = 0.9;
constexpr double noMaximum = std::numeric_limits<std::int32_t>::max();

// What a run takes of a template.
struct RenderedTemplate {
    ImageRef image;       // null when the template has no canvas
    base::Size frameSize; // of the template's frame, in pixels
};

// Fills the template in for this output and renders it, as one step on the template's queue: outputs of the package
// that run at the same time share the template, and no other run changes it between the filling in and the render.
// They share its rendered image too.
base::Result<RenderedTemplate> render(VELM_Template& source, const VELM_Output& output) {
    RenderedTemplate rendered;
    std::optional<base::Error> error;
    folders::performSyncOnQueue(source.renderingQueue(), [&] {
        source.setPackage(output.package());
        source.setFilepathCustomImage(output.allImagesPath());
        source.replaceKeyValues();
        rendered = {source.image(), source.frame().size()};
        error = source.renderError();
    });
    if (error) return base::failure(*std::move(error));
    return rendered;
}

// Makes the product of one run. A failure without a description is one that ended in no product and left no other
// trace.
class ProductMaker {
public:
    ProductMaker(const VELM_Output& output, const VELM_Output::Reply& reply) : output_(output), reply_(reply) {}

    /// Null when nothing came of the templates; an error when a picture can't be rendered.
    base::Result<ImageRef> make();

private:
    base::Result<void> placeNode(const VELM_Output_node& node);
    void drawOnCanvas(const VELM_Output_node& node, const ImageRef& image, base::Size nodeSize);
    void fail(std::string_view domain, int code, std::string description) const {
        if (reply_) reply_(false, base::Error{std::string(domain), code, std::move(description)});
    }

    const VELM_Output& output_;
    const VELM_Output::Reply& reply_;
    BitmapContextRef canvas_;
    ImageRef product_;
};

base::Result<ImageRef> ProductMaker::make() {
    const auto& templates = output_.templates();
    if (output_.drawsOnlyTemplate()) {
        return render(*templates.begin()->second, output_).map([](RenderedTemplate rendered) {
            return rendered.image;
        });
    }
    for (const auto& node : output_.outputNodes()) {
        if (auto placed = placeNode(*node); !placed) return base::failure(std::move(placed.error()));
    }
    if (canvas_) {
        if (canvas_->drawError()) return base::failure(*canvas_->drawError());
        product_ = canvas_->makeImage();
    }
    return product_;
}

base::Result<void> ProductMaker::placeNode(const VELM_Output_node& node) {
    const auto found = output_.templates().find(node.name());
    if (found == output_.templates().end() || !found->second) {
        fail(base::cocoaErrorDomain, 1, base::message("no template found named %@", node.name()));
        return {};
    }
    auto rendered = render(*found->second, output_);
    if (!rendered) return base::failure(std::move(rendered.error()));
    ImageRef image = rendered->image;

    if (image && node.cropRectString()) {
        base::Rect crop = base::rectFromString(*node.cropRectString());
        if (!crop.isEmpty()) {
            if (!VELM_Template::isFlipped()) crop.y = image->height() - crop.height - crop.y;
            image = image->cropped(crop);
        }
    }
    if (output_.isSimpleOutlet()) {
        if (output_.width() > 0 && output_.height() > 0) base::log("ignoring attempt to rescale the output");
        product_ = image;
        return {};
    }
    if (!(output_.width() > 0) || !(output_.height() > 0)) {
        fail(base::cocoaErrorDomain, -5, "to use N-UP output behavior you must specify an OUTPUT size");
    }
    if (image) drawOnCanvas(node, image, rendered->frameSize);
    return {};
}

void ProductMaker::drawOnCanvas(const VELM_Output_node& node, const ImageRef& image, base::Size nodeSize) {
    KLARON_Image::Metadata metadata;
    if (node.tiffOrientation()) {
        metadata = base::Dictionary{
            {std::string(platform::draw::kCGImagePropertyOrientation), *node.tiffOrientation()},
        };
    }
    const KLARON_ImageRef drawn = KLARON_Image::initWithCGImage(image, metadata);
    if (!drawn) return;
    // The canvas takes the colours and the alpha of the first image.
    if (canvas_)
        drawn->setDrawingContext(canvas_);
    else
        canvas_ = drawn->drawingContextWithCanvasSize(output_.size());

    drawn->setContentsGravity(node.gravity().value_or(std::string(VELM_Output_node::gravityDefault())));
    if (node.shadowColor()) {
        drawn->setHasShadow(true);
        drawn->setShadowColorCode(node.shadowColor());
        if (node.shadowBlur()) drawn->setShadowBlur(base::doubleValue(*node.shadowBlur()));
        if (node.offsetPointString()) {
            base::Size offset = base::sizeFromString(*node.offsetPointString());
            if (VELM_Template::isFlipped()) offset.height = -offset.height;
            drawn->setShadowOffset(offset);
        }
    }
    if (node.backgroundColor()) drawn->setBackgroundColorCode(node.backgroundColor());
    node.canvasSize(output_.size(), nodeSize, [&](std::size_t, bool&, const base::Rect& frame) {
        drawn->setDestinationRect(frame);
        drawn->draw();
    });
}

std::optional<std::string> uploadComment(const std::optional<std::string>& path,
                                         const std::optional<std::string>& site) {
    if (!path || !site) return std::nullopt;
    return VELM_Output::exifCommentForDictionary({{"OriginalPath", *path}, {"f", *site}});
}

// Writes a file, tells those who observe files, and replies.
void deliver(const VELM_Output& output, const VELM_Output::Reply& reply,
             const std::function<bool(ErrorPlace, WrittenFiles)>& write) {
    std::optional<base::Error> error;
    std::vector<base::URL> files;
    const bool isWritten = write(&error, &files);
    for (const base::URL& file : files)
        output::announceWrittenFile(output, file);
    if (reply) reply(isWritten, error);
}

void processFileDestination(const VELM_Output& output, const VELM_Destination& destination, const ImageRef& product,
                            const VELM_Output::Reply& reply) {
    const VELM_Output::FileSettings settings = output.fileSettings(destination);
    base::log("Will save to output path: %@", settings.path);
    if (destination.saveOriginal()) {
        output.processSaveOriginalDestination(destination, reply);
        return;
    }
    const base::Dictionary options{
        {std::string(klaronImageKey_downsample), settings.downsample},
        {std::string(klaronImageKey_maxPixelLength), settings.maximum.value_or(noMaximum)},
        {std::string(klaronImageKey_exifComment), uploadComment(settings.path, settings.site).value_or("")},
        {std::string(klaronImageKey_lossyCompressionQuality), jpegQuality},
        {std::string(klaronImageKey_utType), settings.type},
        {std::string(klaronImageKey_overwriteExistingFile), settings.overwrite},
    };
    deliver(output, reply, [&](ErrorPlace error, WrittenFiles files) {
        return KLARON_Image::writeImage(product, settings.path, options, error, files);
    });
}

void processPrinterDestination(const VELM_Output& output, const VELM_Destination& destination, const ImageRef& product,
                               const VELM_Output::Reply& reply) {
    const auto handler = PrinterDestinationHandler::handler();
    const base::Result<void> printed =
        handler ? handler->process(output, destination, product)
                : base::failure("defaults", -36,
                                base::message("printer destinations are not supported here: %@", destination));
    if (!reply) return;
    if (printed)
        reply(true, std::nullopt);
    else
        reply(false, printed.error());
}

} // namespace

void VELM_Output::processToCompletion(const Reply& reply) const {
    if (ignoresTemplates()) {
        for (const auto& destination : destinations_m_)
            processSaveOriginalDestination(*destination, reply);
        return;
    }
    const base::Result<ImageRef> product = ProductMaker(*this, reply).make();
    if (!product) {
        if (reply) reply(false, product.error());
        return;
    }
    if (!*product) {
        if (reply) reply(false, base::Error{std::string(base::cocoaErrorDomain), 1, "failed to generate output image"});
        return;
    }
    for (const auto& destination : destinations_m_) {
        switch (destination->kind()) {
        case VELM_Destination::Kind::file:
            processFileDestination(*this, *destination, *product, reply);
            break;
        case VELM_Destination::Kind::printer:
            processPrinterDestination(*this, *destination, *product, reply);
            break;
        case VELM_Destination::Kind::unknown:
            break;
        }
    }
}

void VELM_Output::processSaveOriginalDestination(const VELM_Destination& destination, const Reply& reply) const {
    if (destination.kind() != VELM_Destination::Kind::file || !destination.saveOriginal()) return;
    const FileSettings settings = fileSettings(destination);
    deliver(*this, reply, [&](ErrorPlace error, WrittenFiles files) {
        return KLARON_Image::writeImageFile(urlOriginalImage(), settings.path,
                                            uploadComment(settings.path, settings.site), settings.overwrite, error,
                                            files);
    });
}
