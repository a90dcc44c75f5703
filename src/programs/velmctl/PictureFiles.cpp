#include "PictureFiles.h"

#include "Command.h"
#include "Console.h"
#include "TextForms.h"
#include "base/Log.h"
#include "base/Path.h"
#include "imaging/KLARON_Image.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"

#include <mutex>
#include <vector>

namespace velmctl {

namespace draw = platform::draw;

base::Result<std::string> pictureTypeForPath(const std::string& path) {
    const auto type = platform::data::typeForExtension(base::pathExtension(path));
    if (type && draw::ImageDestination::canWriteType(*type)) return *type;
    return base::failure(base::cocoaErrorDomain, 0,
                         path + " has no extension of a picture that can be written (" + writableExtensions() + ")");
}

std::string whyNotWritable(const std::string& path) {
    const auto type = pictureTypeForPath(path);
    return type ? std::string() : type.error().localizedDescription;
}

std::string writableExtensions() {
    std::string list;
    for (const std::string_view type : draw::ImageDestination::writableTypeIdentifiers())
        for (const std::string& extension : platform::data::extensionsForType(type))
            list += (list.empty() ? "" : ", ") + extension;
    return list;
}

base::Result<void> writePicture(const PictureToWrite& request) {
    const auto type = pictureTypeForPath(request.path);
    if (!type) return base::failure(type.error());
    base::Dictionary options{{std::string(klaronImageKey_utType), *type},
                             {std::string(klaronImageKey_overwriteExistingFile), !request.keepsExisting}};
    if (request.quality) options.emplace(klaronImageKey_lossyCompressionQuality, *request.quality);
    if (request.comment) options.emplace(klaronImageKey_exifComment, *request.comment);

    const LogEar ear;
    std::optional<base::Error> error;
    std::vector<base::URL> written;
    if (KLARON_Image::writeImage(request.picture, request.path, options, &error, &written)) {
        for (const base::URL& file : written)
            Console::shared().result(file.path());
        return {};
    }
    const std::string reason = ear.lastAfter("ERROR: ", error ? error->localizedDescription : "no reason is known");
    const bool isTold = reason.find(request.path) != std::string::npos;
    return base::failure(base::cocoaErrorDomain, 0, isTold ? reason : "cannot write " + request.path + ": " + reason);
}

struct LogEar::Heard {
    std::mutex mutex;
    std::vector<std::string> lines;
    base::LogSink next;
};

LogEar::LogEar() : heard_(std::make_shared<Heard>()) {
    heard_->next = base::setLogSink({});
    base::setLogSink([heard = heard_](std::string_view line) {
        {
            const std::lock_guard lock(heard->mutex);
            heard->lines.emplace_back(line);
        }
        if (heard->next) heard->next(line);
    });
}

LogEar::~LogEar() {
    base::setLogSink(heard_->next);
}

std::string LogEar::lastAfter(std::string_view mark, std::string otherwise) const {
    const std::lock_guard lock(heard_->mutex);
    for (auto line = heard_->lines.rbegin(); line != heard_->lines.rend(); ++line)
        if (const std::size_t found = line->find(mark); found != std::string::npos)
            return line->substr(found + mark.size());
    return otherwise;
}

int report(const base::Result<void>& result) {
    if (result) return exitSuccess;
    Console::shared().diagnostic(oneLine(result.error().localizedDescription));
    return exitFailure;
}

} // namespace velmctl
