// The older way to the properties of image files, beside KLARON_Image and ImageFile. Class operations only, without
// state; any thread.
#pragma once

#include "imaging/ImageFile.h"
#include "imaging/ImageObject.h"
#include "imaging/KLARON_Image.h"

#include <optional>
#include <string>

class KLARON_EXIF {
public:
    KLARON_EXIF() = delete;

    /// As KLARON_Image's.
    static platform::draw::ImageSourceRef createCGImageSourceFromObject(const ImageObject& object,
                                                                        const base::Dictionary& withOptions = {});
    static std::optional<std::string> getEXIFUserCommentForImage(const ImageObject& object);

    /// In place, of a JPEG file at a path or URL, with all its other properties as they are; no comment removes it.
    static bool setEXIFUserComment(const std::optional<std::string>& comment, const ImageObject& image,
                                   ErrorPlace returningError);

    /// ImageFile::changeImageProperties for the file at a path or URL. One that is no image is logged.
    static bool forImage(const ImageObject& image, const std::optional<base::URL>& saveToDestionation,
                         const ImageFile::ChangeProperties& changeProperties);
    /// ImageFile::setImageOrientation likewise.
    static bool forImage(const ImageObject& image, const std::optional<base::URL>& saveToDestionation,
                         const std::optional<int>& settingOrientation);
};
