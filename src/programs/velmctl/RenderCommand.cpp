// velmctl render TEMPLATE -o FILE: one template to one picture.
#include "Command.h"
#include "Console.h"
#include "OrderFilling.h"
#include "PictureFiles.h"
#include "Session.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/data/AtomicFile.h"
#include "platform/draw/ImageDestination.h"
#include "template/TemplateLayout.h"
#include "template/VELM_Template.h"

#include <cmath>
#include <memory>
#include <optional>
#include <string>

namespace velmctl {

namespace {

namespace draw = platform::draw;

struct Request {
    std::string templatePath;
    std::string order;
    std::string image;
    std::optional<double> scale;
    std::string output;
    std::string layout;
};

base::Result<void> write(const draw::ImageRef& picture, const std::string& path) {
    const auto type = pictureTypeForPath(path);
    if (!type) return base::failure(type.error());
    auto destination = draw::ImageDestination::createWithURL(base::URL::fileURLWithPath(path), *type);
    if (!destination) return base::failure(destination.error());
    (*destination)
        ->addImage(picture, {{std::string(draw::kCGImageDestinationLossyCompressionQuality), 0.9},
                             {std::string(draw::kCGImagePropertyOrientation), 1}});
    return (*destination)->finalize();
}

base::Result<void> render(const Request& request) {
    const base::Result<OrderFilling> filling = OrderFilling::ofOrder(request.order);
    if (!filling) return base::failure(filling.error());
    const VELM_Template::Ref document = VELM_Template::templateWithPath(request.templatePath, filling->container());
    if (!document)
        return base::failure(base::cocoaErrorDomain, 1, "failed to read template at path " + request.templatePath);
    if (!request.image.empty()) document->setFilepathCustomImage(base::URL::fileURLWithPath(request.image).path());
    if (filling->package) {
        document->setPackage(filling->package);
        document->replaceKeyValues();
    }
    document->setScale(request.scale);
    const draw::ImageRef picture = document->imageUncached();
    if (const auto error = document->renderError()) return base::failure(*error);
    if (!picture)
        return base::failure(base::cocoaErrorDomain, 1,
                             "the template's size of " + base::stringFromSize(document->canvasSize()) +
                                 " makes no picture");
    if (!request.layout.empty()) {
        const std::string layout = layoutText(*document, layoutOf(*document));
        if (auto written = platform::data::writeFileAtomically(request.layout, layout); !written) return written;
    }
    return write(picture, request.output);
}

} // namespace

void declareRender(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("render", "Draw one template into one picture");
    command->footer("Prints the path of the picture.\n");
    const auto request = std::make_shared<Request>();
    command->add_option("TEMPLATE", request->templatePath, "A template file, or its name in the Templates folder")
        ->required()
        ->type_name("");
    command->add_option("--order", request->order, "Fill the holes from this order's first package")
        ->type_name("ORDER");
    command->add_option("--image", request->image, "The photograph for the image holes")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    command->add_option("--scale", request->scale, "Factor on all sizes")
        ->check([](const std::string& text) {
            const double scale = base::doubleValue(text);
            return scale > 0 && std::isfinite(scale) ? "" : "it must be a number above 0";
        })
        ->type_name("NUMBER");
    command->add_option("-o,--output", request->output, "The picture to write: " + writableExtensions())
        ->required()
        ->type_name("FILE")
        ->check(whyNotWritable);
    command
        ->add_option("--layout", request->layout,
                     "Write a text too: where each layer lies, its file or font, and its lines")
        ->type_name("FILE");
    command->callback([=] {
        chosen(Session::withEngine([=] {
            if (const base::Result<void> rendered = render(*request); !rendered) {
                Console::shared().diagnostic("FAILED " + request->templatePath + ": " +
                                             rendered.error().localizedDescription);
                return exitFailure;
            }
            Console::shared().result(base::URL::fileURLWithPath(request->output).path());
            return exitSuccess;
        }));
    });
}

} // namespace velmctl
