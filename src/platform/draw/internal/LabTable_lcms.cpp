#include "LabTable.h"

#include <algorithm>
#include <cmath>
#include <lcms2_plugin.h>

namespace platform::draw {
namespace {

constexpr std::size_t curveSteps = 4080; // whole numbers of steps for curves of 8 bits

void applyCurves(const std::vector<std::vector<float>>& curves, float* pixels, std::size_t count) {
    if (curves.empty()) return;
    for (std::size_t i = 0; i < 4 * count; i += 4)
        for (std::size_t k = 0; k < 3; ++k) {
            const float place = std::clamp(pixels[i + k], 0.0f, 1.0f) * static_cast<float>(curveSteps);
            const auto index = static_cast<std::size_t>(place);
            const float* values = &curves[k][index];
            pixels[i + k] = values[0] + (values[1] - values[0]) * (place - static_cast<float>(index));
        }
}

} // namespace

bool LabTable::readCurves(const cmsStage* stage, Curves& curves) {
    const auto* data = static_cast<const _cmsStageToneCurvesData*>(cmsStageData(stage));
    if (data->nCurves != 3 && data->nCurves != 1) return false;
    bool changes = false;
    for (cmsUInt32Number k = 0; k < 3; ++k) {
        const cmsToneCurve* curve = data->TheCurves[std::min(k, data->nCurves - 1)];
        changes = changes || !cmsIsToneCurveLinear(curve);
        std::vector<float> values;
        for (std::size_t i = 0; i <= curveSteps; ++i)
            values.push_back(cmsEvalToneCurveFloat(curve, static_cast<float>(i) / static_cast<float>(curveSteps)));
        values.push_back(values.back());
        curves.push_back(std::move(values));
    }
    if (!changes) curves.clear();
    return true;
}

bool LabTable::readTable(const cmsStage* stage) {
    const auto* data = static_cast<const _cmsStageCLutData*>(cmsStageData(stage));
    const cmsInterpParams& form = *data->Params;
    if (form.nInputs != 3 || (form.nOutputs != 3 && form.nOutputs != 1)) return false;
    std::size_t nodes = 1;
    for (std::size_t k = 0; k < 3; ++k) {
        table_.points[k] = static_cast<int>(form.nSamples[k]);
        nodes *= form.nSamples[k];
        if (form.nSamples[k] < 2) return false;
    }
    if (data->nEntries < nodes * form.nOutputs) return false;
    table_.nodes.resize(4 * nodes);
    for (std::size_t i = 0; i < nodes; ++i)
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t entry = form.nOutputs * i + std::min<std::size_t>(k, form.nOutputs - 1);
            table_.nodes[4 * i + k] =
                data->HasFloatValues ? data->Tab.TFloat[entry] : static_cast<float>(data->Tab.T[entry]) / 65535;
        }
    return true;
}

std::optional<LabTable> LabTable::of(cmsHPROFILE profile) {
    if (cmsGetPCS(profile) != cmsSigLabData) return std::nullopt;
    const cmsTagSignature tag = cmsIsTag(profile, cmsSigBToA1Tag) ? cmsSigBToA1Tag : cmsSigBToA0Tag;
    const auto* pipeline = static_cast<const cmsPipeline*>(cmsReadTag(profile, tag));
    if (!pipeline) return std::nullopt;
    LabTable made;
    bool hasTable = false;
    bool hasCurves[2] = {};
    for (const cmsStage* stage = cmsPipelineGetPtrToFirstStage(pipeline); stage; stage = cmsStageNext(stage)) {
        const cmsStageSignature type = cmsStageType(stage);
        bool understood = false;
        if (type == cmsSigCurveSetElemType && !hasCurves[hasTable]) {
            hasCurves[hasTable] = true;
            understood = readCurves(stage, hasTable ? made.after_ : made.before_);
        } else if (type == cmsSigCLutElemType && !hasTable) {
            hasTable = true;
            understood = made.readTable(stage);
        }
        if (!understood) return std::nullopt;
    }
    return hasTable ? std::optional(std::move(made)) : std::nullopt;
}

void LabTable::look(const float* lab, float* out, std::size_t pixels) const {
    if (!before_.empty() && lab != out) std::copy_n(lab, 4 * pixels, out);
    applyCurves(before_, out, pixels);
    interpolate(before_.empty() ? lab : out, table_, pixels, out);
    applyCurves(after_, out, pixels);
}

} // namespace platform::draw
