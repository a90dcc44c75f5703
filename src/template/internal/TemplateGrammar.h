// The grammar of template files as tables: which attribute and which child of a layer goes to which key of its values,
// and what its text means. Names compare ignoring case. Constant data, any thread.
#pragma once

#include "base/Geometry.h"
#include "base/Text.h"
#include "base/Value.h"
#include "template/ValueForm.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

class VELM_Template;

namespace grammar {

/// The layer or document that is being read.
struct Target {
    struct Stored {
        std::string key;
        bool isReplaced = false; ///< Another value stood there.
    };

    VELM_Template& layer;
    std::vector<Stored>* stored = nullptr; ///< Takes down what was stored, when somebody wants to know.

    void setValue(std::string_view key, base::Value value) const;
    /// To be told after each change of the frame, which the layer may have refused.
    void frameWasSet(const base::Rect& before) const;
};

/// An attribute of a layer's child.
struct AttributeRule {
    std::string_view name;
    std::string_view key; ///< Empty: the attribute's name as the file spells it.
    Form form = Form::text;
    /// Otherwise a number is stored as a real, a yesNo as "yes" or "no".
    bool isStoredAsText = true;
};

/// What the text of an attribute or child does to the layer.
using Effect = void (*)(const Target& target, std::string_view key, const std::string& text);

/// An attribute or a child of a body, a canvas or a layer.
struct Rule {
    std::string_view name;
    std::string_view key;
    Effect effect;
    Form form = Form::text;
    /// Of a layer's child: other attributes are logged, unless this is empty. Then no attribute is looked at.
    std::span<const AttributeRule> attributes = {};
};

std::span<const Rule> bodyAttributes();
std::span<const Rule> bodyChildren();
std::span<const Rule> canvasAttributes();
std::span<const Rule> canvasNodeAttributes();
std::span<const Rule> layerAttributes();
std::span<const Rule> layerChildren();

/// Null for a name that no rule has.
template <class AnyRule>
const AnyRule* ruleNamed(std::span<const AnyRule> rules, std::string_view name) {
    for (const AnyRule& rule : rules) {
        if (base::equalIgnoringCase(name, rule.name)) return &rule;
    }
    return nullptr;
}

void storeAttribute(const Target& target, const AttributeRule& rule, const std::string& spelledName,
                    const std::string& text);

} // namespace grammar
