// What a template and an output see of the running package and job: the values that fill the holes, and where the
// job's own files lie. The package and the job implement these; nothing below them knows more. Values of one run are
// only read while it lasts, so every operation here may be called from any thread.
#pragma once

#include "base/Path.h"
#include "base/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// A running job. An absent package name asks the first package reference.
class JobValues {
public:
    virtual ~JobValues() = default;

    /// The value of a slot in one of the job's tables ("key", "croprect", "rotation", "template", "stamp"), as the
    /// package reference has it or else the job itself.
    virtual std::optional<std::string> valueForKey(std::string_view key, const std::optional<std::string>& packageName,
                                                   std::string_view metaKey) const = 0;
    std::optional<std::string> valueForKey(std::string_view key, const std::optional<std::string>& packageName) const {
        return valueForKey(key, packageName, "key");
    }
    std::optional<std::string> templateForKey(std::string_view key,
                                              const std::optional<std::string>& packageName) const {
        return valueForKey(key, packageName, "template");
    }
    /// A rectangle in its text form.
    std::optional<std::string> cropRectForKey(std::string_view key,
                                              const std::optional<std::string>& packageName) const {
        return valueForKey(key, packageName, "croprect");
    }
    /// Radians, as text.
    std::optional<std::string> rotationForKey(std::string_view key,
                                              const std::optional<std::string>& packageName) const {
        return valueForKey(key, packageName, "rotation");
    }
    std::optional<std::string> stampForKey(std::string_view key, const std::optional<std::string>& packageName) const {
        return valueForKey(key, packageName, "stamp");
    }

    /// An entry of the job's values ("template", "allimages", ...); nothing when absent.
    virtual base::Value valueInDict(std::string_view key) const = 0;
    /// The path of the order's first picture.
    virtual std::optional<std::string> graphicPath() const = 0;
    /// The folder of the job's bundle; none for a ticket that stands alone.
    virtual std::optional<base::URL> urlJobContainer() const = 0;
};

/// The package whose templates and outputs run.
class PackageValues {
public:
    virtual ~PackageValues() = default;

    virtual std::optional<std::string> name() const = 0;
    virtual std::optional<std::string> pluCode() const = 0;
    virtual std::optional<base::URL> urlJobContainer() const = 0;
    /// None when the job has gone.
    virtual std::shared_ptr<const JobValues> job() const = 0;
};
