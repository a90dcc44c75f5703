// A package and its job made of plain fields, for the tests of modules that see them only as values. Set up on the
// test's thread; read by any.
#pragma once

#include "template/RenderingContext.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace support {

class TestJob : public JobValues {
public:
    using JobValues::valueForKey;
    std::optional<std::string> valueForKey(std::string_view key, const std::optional<std::string>& packageName,
                                           std::string_view metaKey) const override {
        if (asked) asked->push_back(std::string(metaKey) + "/" + std::string(key) + "/" + packageName.value_or("-"));
        const auto found = values.find({std::string(metaKey), std::string(key)});
        return found != values.end() ? std::optional(found->second) : std::nullopt;
    }
    base::Value valueInDict(std::string_view key) const override { return base::valueForKey(dictionary, key); }
    std::optional<std::string> graphicPath() const override { return picture; }
    std::optional<base::URL> urlJobContainer() const override { return container; }

    std::map<std::pair<std::string, std::string>, std::string> values; ///< By table and key.
    base::Dictionary dictionary;
    std::optional<std::string> picture;
    std::optional<base::URL> container;
    std::vector<std::string>* asked = nullptr; ///< Takes what is asked, where one thread alone asks.
};

class TestPackage : public PackageValues {
public:
    std::optional<std::string> name() const override { return packageName; }
    std::optional<std::string> pluCode() const override { return code; }
    std::optional<base::URL> urlJobContainer() const override { return order->container; }
    std::shared_ptr<const JobValues> job() const override { return order; }

    std::shared_ptr<TestJob> order = std::make_shared<TestJob>();
    std::optional<std::string> packageName = "Classic";
    std::optional<std::string> code;
};

} // namespace support
