// A colour space as a member of a dictionary. Two of them are equal when their spaces are the same.
#pragma once

#include "base/Value.h"
#include "platform/draw/ColorSpace.h"

#include <string>
#include <utility>

class ColorSpaceValue : public base::Object {
public:
    explicit ColorSpaceValue(platform::draw::ColorSpaceRef space) : space_(std::move(space)) {}
    /// Never null.
    const platform::draw::ColorSpaceRef& space() const { return space_; }
    std::string className() const override { return "CGColorSpace"; }
    bool isEqual(const base::Object& other) const override {
        const auto* value = dynamic_cast<const ColorSpaceValue*>(&other);
        return value && value->space_ == space_;
    }
    std::size_t hash() const override { return std::hash<platform::draw::ColorSpaceRef>()(space_); }

private:
    platform::draw::ColorSpaceRef space_;
};
