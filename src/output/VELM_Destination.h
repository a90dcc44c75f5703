// One place to which an output's product goes: a file, or a printer by way of the spooler. Its settings are texts under
// fixed keys; each accessor reads one of them. A destination belongs to its output and is changed only before the
// output runs; a run reads it on its own thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::data {
class Findings;
class XMLNode;
using XMLNodeRef = std::shared_ptr<XMLNode>;
} // namespace platform::data

class VELM_Destination : public base::Object {
public:
    enum class Kind : std::uint32_t { unknown = 0, file = 1, printer = 2 };

    VELM_Destination() = default;
    /// Reads a `destination` element. What isn't understood is logged and skipped; reading never fails.
    static std::shared_ptr<VELM_Destination> initWithNode(const platform::data::XMLNode& element,
                                                          platform::data::Findings* report = nullptr);
    static std::shared_ptr<VELM_Destination> initWithFilepath(std::string_view filepath);
    static std::shared_ptr<VELM_Destination> initWithPrinterModel(std::string_view model);
    /// From the archived form.
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);

    /// As tickets call it: "filepath", "printer", "unknown".
    static const char* textOfKind(Kind kind);
    Kind kind() const { return kind_; }
    const base::Dictionary& valuesDict() const { return valuesDict_; }
    void setValue(std::string_view key, base::Value value);

    /// The path of the file or folder to write; for a printer the path, relative to the job's container, of a property
    /// list with print settings.
    std::optional<std::string> filepath() const { return text("filepath"); }
    /// Only "originalimagename" has an effect.
    std::optional<std::string> filename() const { return text("filename"); }
    bool saveOriginal() const { return boolean("saveoriginalfileasis"); }
    bool resize() const { return boolean("resize"); }
    /// The largest side in pixels.
    std::int64_t limitSize() const { return integer("limitsize"); }
    std::int64_t printer() const { return integer("printer"); }
    std::int64_t mediaType() const { return integer("mediaType"); }
    std::int64_t cutInHalf() const { return integer("cutInHalf"); }
    std::optional<std::string> uploadSite() const { return text("uploadsite"); }
    std::optional<std::string> printerModel() const { return text("model"); }
    std::optional<std::string> printerQueue() const { return text("queue"); }
    std::int64_t copies() const { return integer("copies"); }
    std::optional<std::string> printerPaperSize() const { return text("papersize"); }
    /// Normalized: "resize", "resizeAspect" or "resizeAspectFill", the last one when none was given.
    std::string gravity() const;
    /// The name, or the number from 1, of a print-to-file set.
    std::optional<std::string> printToFileSetPathIndex() const { return text("itempath"); }
    std::optional<std::string> destinationLabel() const { return text("destinationLabel"); }

    /// The element of a ticket: the kind, and a child for each setting.
    static constexpr std::string_view xmlElementName = "destination";
    std::vector<std::pair<std::string, std::string>> xmlElementAttributes() const;
    std::vector<platform::data::XMLNodeRef> xmlElementChildren() const;
    platform::data::XMLNodeRef asXMLElement() const;

    std::string className() const override { return "VELM_Destination"; }
    std::string description() const override;
    std::optional<base::Dictionary> encoded() override;

private:
    std::optional<std::string> text(std::string_view key) const;
    std::int64_t integer(std::string_view key) const;
    bool boolean(std::string_view key) const;

    Kind kind_ = Kind::unknown;
    base::Dictionary valuesDict_;
};
