// What became of a ticket when it was read: what was dropped or passed over, in it and in the packages and outputs that
// stand in it, and where its package references and slots stand. Handed to VELM_Job::jobWithContentsOfURL, which fills
// it; without one, reading does none of this work. What is logged stays the same. Not synchronized.
#pragma once

#include "platform/data/Finding.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

class OrderReport : public platform::data::Findings {
public:
    using Place = platform::data::Place;
    using Finding = platform::data::Finding;

    /// Of a package reference, by its index among the job's references.
    std::optional<Place> placeOf(std::size_t reference) const;
    /// Where a reference, or the ticket itself (no index), gives a slot; of a ticket also its other elements
    /// ("allimages", "plucode"). Of elements that repeat, the last.
    std::optional<Place> placeOf(std::optional<std::size_t> reference, std::string_view slot) const;

    /// Why there is no job, with its place; none for a ticket that was read. It is not among the findings.
    const std::optional<Finding>& refusal() const { return refusal_; }

    // --- For the reader

    void setRefusal(Finding refusal) { refusal_ = std::move(refusal); }
    void setPlace(std::size_t reference, Place place);
    void setPlace(std::optional<std::size_t> reference, std::string_view slot, Place place);

private:
    using Slots = std::map<std::string, Place, std::less<>>;
    struct Reference {
        std::optional<Place> place;
        Slots slots;
    };

    std::optional<Finding> refusal_;
    std::map<std::size_t, Reference> references_;
    Slots slots_;
};
