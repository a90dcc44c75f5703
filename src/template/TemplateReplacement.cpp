// A template is a form: here the job's values go into its holes.
#include "template/VELM_Template.h"

#include "base/MessageTemplate.h"
#include "imaging/ImageObject.h"

using base::Value;

namespace {

// The rectangle's text, when there is one that cuts anything out.
Value nonEmptyCrop(const std::optional<std::string>& text) {
    return text && !base::rectFromString(*text).isEmpty() ? Value(*text) : Value();
}

} // namespace

void VELM_Template::replaceKeyValues(const HoleTemplate& handOver) {
    const auto runningPackage = package();
    const auto job = runningPackage ? runningPackage->job() : nullptr;
    fillError_.reset();
    for (const Ref& layer : layers()) {
        if (layer->isTypeContainer()) {
            layer->setPackage(runningPackage);
            layer->setFilepathCustomImage(filepathCustomImage());
            layer->replaceKeyValues(handOver);
            continue;
        }
        const auto key = layer->keyPlaceholder();
        if (!key) continue;
        std::optional<std::string> jobValue;
        if (job) {
            const auto pluCode = runningPackage->pluCode();
            jobValue = job->valueForKey(*key, pluCode ? pluCode : runningPackage->name());
        }
        switch (layer->layerType()) {
        case LayerTypeImage:
        case LayerTypeGraphic:
            replaceImageLayer(*layer, *key, jobValue, handOver);
            break;
        case LayerTypeTextbox:
            if (jobValue) layer->setValue(VELM_XML_Key_string, *jobValue);
            break;
        default:
            break;
        }
    }
}

void VELM_Template::replaceImageLayer(VELM_Template& layer, const std::string& key,
                                      const std::optional<std::string>& jobValue, const HoleTemplate& handOver) {
    const auto runningPackage = package();
    const auto job = runningPackage ? runningPackage->job() : nullptr;
    // The value above is looked up by the product code; template, crop and rotation by the name alone.
    const auto packageName = runningPackage ? runningPackage->name() : std::nullopt;
    const Value crop = job ? nonEmptyCrop(job->cropRectForKey(key, packageName)) : Value();
    const auto custom = filepathCustomImage();
    const auto picture = custom ? custom : jobValue;

    if (const auto path = job && jobValue ? job->templateForKey(key, packageName) : std::nullopt) {
        // A whole template is drawn into the hole. It knows no package, so that its own keys, which are those of the
        // outer template as a rule, don't ask for this template again.
        const Ref nested = templateWithPath(*path, runningPackage->urlJobContainer());
        if (!nested) {
            if (handOver) handOver(layer.shared_from_this(), *path, nullptr);
            return;
        }
        base::Dictionary preprocess;
        preprocess.emplace(VELM_XML_Key_filepath, picture);
        if (crop) preprocess.emplace(VELM_XML_Key_croprect, crop);
        if (const auto turn = job->rotationForKey(key, packageName)) preprocess.emplace(VELM_XML_Key_rotation, *turn);
        nested->setValue(VELM_XML_Key_preprocess, preprocess);
        nested->outerJobContainer_ = job->urlJobContainer();
        nested->replaceKeyValues();
        if (handOver) return handOver(layer.shared_from_this(), *path, nested);
        const auto drawn = nested->imageUncached();
        auto error = nested->renderError();
        if (!drawn && !error)
            error = base::Error{std::string(base::posixErrorDomain), -3,
                                base::message("failed to draw template %@", *path)};
        if (error && !fillError_) fillError_ = std::move(error);
        layer.setValue(VELM_XML_Key_filepath, drawn ? Value(std::make_shared<ImageValue>(drawn)) : Value());
        return;
    }

    if (const auto* preprocess = value(VELM_XML_Key_preprocess).as<base::Dictionary>()) {
        // This template fills a hole of another one: the outer job's picture, crop and rotation win over its own.
        for (const std::string_view taken : {VELM_XML_Key_filepath, VELM_XML_Key_croprect, VELM_XML_Key_rotation})
            layer.setValue(taken, base::valueForKey(*preprocess, taken));
        layer.setAutorotate(false);
        return;
    }

    if (jobValue) layer.setValue(VELM_XML_Key_filepath, picture);
    if (crop) layer.setValue(VELM_XML_Key_croprect, crop);
}

void VELM_Template::replaceImages(const base::Array& urls, const base::Array& cropRects) {
    const auto* first = urls.empty() ? nullptr : urls.front().as<base::URL>();
    setFilepathCustomImage(first ? Value(first->path()) : Value());
    for (const Ref& layer : layers()) {
        if (layer->isTypeContainer()) {
            layer->replaceImages(urls, cropRects);
        } else if (layer->layerType() == LayerTypeImage) {
            layer->setAutorotate(false);
            layer->setValue(VELM_XML_Key_filepath, filepathCustomImage());
            layer->setValue(VELM_XML_Key_croprect, cropRects.empty() ? Value() : cropRects.front());
        }
    }
    replaceKeyValues();
}
