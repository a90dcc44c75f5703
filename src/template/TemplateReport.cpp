#include "template/TemplateReport.h"

#include <utility>

const TemplateReport::Origin* TemplateReport::originOf(const VELM_Template& layer, std::string_view key) const {
    const auto known = layers_.find(&layer);
    if (known == layers_.end()) return nullptr;
    const auto origin = known->second.origins.find(key);
    return origin == known->second.origins.end() ? nullptr : &origin->second;
}

std::optional<TemplateReport::Place> TemplateReport::placeOf(const VELM_Template& layer) const {
    const auto known = layers_.find(&layer);
    return known == layers_.end() ? std::nullopt : std::optional(known->second.place);
}

std::optional<TemplateReport::Place> TemplateReport::placeOf(const VELM_Template& layer, std::string_view key) const {
    const Origin* origin = originOf(layer, key);
    return origin ? origin->place : placeOf(layer);
}

void TemplateReport::add(Place place, std::string message) {
    findings_.push_back({std::move(place), std::move(message)});
}

void TemplateReport::setPlace(const std::shared_ptr<const VELM_Template>& layer, Place place) {
    Layer& known = layers_[layer.get()];
    known.identity = layer;
    known.place = std::move(place);
}

void TemplateReport::setOrigin(const VELM_Template& layer, std::string_view key, Origin origin) {
    if (const auto known = layers_.find(&layer); known != layers_.end())
        known->second.origins.insert_or_assign(std::string(key), std::move(origin));
}
