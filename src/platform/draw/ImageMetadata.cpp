#include "platform/draw/ImageMetadata.h"

#include "internal/ExifBlock.h"

namespace platform::draw {

bool canWriteProperty(std::string_view dictionary, std::string_view property) {
    return isWritableProperty(dictionary, property);
}

bool ImageMetadata::setValueMatchingImageProperty(std::string_view dictionary, std::string_view property,
                                                  base::Value value) {
    if (!isWritableProperty(dictionary, property)) return false;
    base::Value& slot = dictionaries_[std::string(dictionary)];
    if (!slot.as<base::Dictionary>()) slot = base::Dictionary();
    slot.as<base::Dictionary>()->insert_or_assign(std::string(property), std::move(value));
    return true;
}

const base::Value* ImageMetadata::valueMatchingImageProperty(std::string_view dictionary,
                                                             std::string_view property) const {
    const auto* properties = base::valueForKey(dictionaries_, dictionary).as<base::Dictionary>();
    if (!properties) return nullptr;
    const auto found = properties->find(property);
    return found == properties->end() ? nullptr : &found->second;
}

} // namespace platform::draw
