#include "jobs/OrderReport.h"

#include <utility>

std::optional<OrderReport::Place> OrderReport::placeOf(std::size_t reference) const {
    const auto known = references_.find(reference);
    return known == references_.end() ? std::nullopt : known->second.place;
}

std::optional<OrderReport::Place> OrderReport::placeOf(std::optional<std::size_t> reference,
                                                       std::string_view slot) const {
    const Slots* slots = &slots_;
    if (reference) {
        const auto known = references_.find(*reference);
        if (known == references_.end()) return std::nullopt;
        slots = &known->second.slots;
    }
    const auto place = slots->find(slot);
    return place == slots->end() ? std::nullopt : std::optional(place->second);
}

void OrderReport::setPlace(std::size_t reference, Place place) {
    references_[reference].place = std::move(place);
}

void OrderReport::setPlace(std::optional<std::size_t> reference, std::string_view slot, Place place) {
    Slots& slots = reference ? references_[*reference].slots : slots_;
    slots.insert_or_assign(std::string(slot), std::move(place));
}
