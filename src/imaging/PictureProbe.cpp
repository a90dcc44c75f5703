#include "imaging/PictureProbe.h"

#include "base/Path.h"
#include "platform/draw/ImageSource.h"

const std::string& PictureProbe::whyUndecodable(const std::string& file) {
    const auto [known, isNew] = reasons_.try_emplace(file);
    if (!isNew) return known->second;
    constexpr int enoughToSee = 64;
    const auto source = platform::draw::ImageSource::createWithURL(base::URL::fileURLWithPath(file));
    if (!source)
        known->second = source.error().localizedDescription;
    else if (const auto decoded = (*source)->thumbnailAtIndex(0, enoughToSee, false, platform::draw::Quality::preview);
             !decoded)
        known->second = decoded.error().localizedDescription;
    return known->second;
}
