// What the commands that read and write pictures share: the type that a name asks for, opening, writing, and the
// reasons of what fails.
#pragma once

#include "base/Error.h"
#include "platform/draw/Image.h"
#include "platform/draw/ImageSource.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velmctl {

/// The type of pictures that the name's extension asks for; an error that lists the extensions that can be written.
base::Result<std::string> pictureTypeForPath(const std::string& path);
/// As a check of an option: the error's text, empty when the type can be written.
std::string whyNotWritable(const std::string& path);
/// "jpeg, jpg, jpe, png...": the extensions of all types that can be written.
std::string writableExtensions();

struct PictureToWrite {
    platform::draw::ImageRef picture;
    std::string path; ///< Its extension gives the type, and is replaced by the type's preferred one.
    std::optional<double> quality;
    std::optional<std::string> comment;
    bool keepsExisting = false; ///< A numbered name where a file stands.
};
/// Writes the picture and prints the path that it got.
base::Result<void> writePicture(const PictureToWrite& request);

/// Hears the log while it lives, and passes it on: the imaging library tells the reasons of many failures only there.
/// At most one at a time.
class LogEar {
public:
    LogEar();
    ~LogEar();
    LogEar(const LogEar&) = delete;
    LogEar& operator=(const LogEar&) = delete;

    /// What follows `mark` in the last line that holds it; `otherwise` without such a line.
    std::string lastAfter(std::string_view mark, std::string otherwise) const;

private:
    struct Heard;
    std::shared_ptr<Heard> heard_;
};

/// Prints the reason of a failure on standard error, as one line; answers the command's status.
int report(const base::Result<void>& result);

} // namespace velmctl
