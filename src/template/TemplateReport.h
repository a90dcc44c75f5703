// What became of a template file when it was read: what was dropped or passed over, and from where each value of each
// layer came. Handed to VELM_Template::templateWithPath, which fills it; without one, reading does none of this work.
// The report owns no layer: its answers about one hold while that lives. Not synchronized.
#pragma once

#include "base/Error.h"
#include "platform/data/Finding.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class VELM_Template;

class TemplateReport {
public:
    /// The file is the nested one for what stands in that.
    using Place = platform::data::Place;
    using Finding = platform::data::Finding;
    struct Origin {
        enum class Kind {
            attribute, ///< Of the element `element`.
            element,   ///< The text of a child element.
            node,      ///< What the layer of a nested file gave to the document in its place.
        };
        Kind kind = Kind::attribute;
        std::string name;    ///< As the file spells it.
        std::string element; ///< That holds the attribute; for others the same as `name`.
        Place place;
    };

    /// In the order in which the files were read.
    const std::vector<Finding>& findings() const { return findings_; }
    /// From where a layer, or the document itself, has the value under a key. Null for what the files do not give: a
    /// default, or a value that reading works out. `zindex` is numbered anew by the order that the file's numbers give.
    const Origin* originOf(const VELM_Template& layer, std::string_view key) const;
    /// The element from which it was read; for a nested file's document its body.
    std::optional<Place> placeOf(const VELM_Template& layer) const;
    /// Where the value under a key came from, or else the layer.
    std::optional<Place> placeOf(const VELM_Template& layer, std::string_view key) const;

    // --- For the reader

    void add(Place place, std::string message);
    void setPlace(const std::shared_ptr<const VELM_Template>& layer, Place place);
    void setOrigin(const VELM_Template& layer, std::string_view key, Origin origin);

private:
    struct Layer {
        // Keeps the address from being given to another layer, not the layer alive.
        std::weak_ptr<const VELM_Template> identity;
        Place place;
        std::map<std::string, Origin, std::less<>> origins;
    };

    std::vector<Finding> findings_;
    std::map<const VELM_Template*, Layer> layers_;
};
