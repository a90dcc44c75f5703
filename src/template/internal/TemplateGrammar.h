// The grammar of a layer element as tables: which attribute and which child goes to which key of its values, and in
// what form. Names compare ignoring case. Constant data, any thread.
#pragma once

#include <span>
#include <string>
#include <string_view>

class VELM_Template;

namespace grammar {

/// How the text of a file stands in the values.
enum class Form {
    text,
    number, ///< A real; 0 when no number leads the text.
    yesNo,  ///< "yes" or "no", by the boolean reading of the text.
};

/// An attribute of a layer's child.
struct AttributeRule {
    std::string_view name;
    std::string_view key; ///< Empty: the attribute's name as the file spells it.
    Form form = Form::text;
};

/// What the text of a layer's attribute or child does to the layer.
using Effect = void (*)(VELM_Template& layer, std::string_view key, const std::string& text);

struct LayerAttributeRule {
    std::string_view name;
    std::string_view key;
    Effect effect;
};

struct ChildRule {
    std::string_view name;
    std::string_view key;
    Effect effect;
    /// Other attributes are logged, unless this is empty: then no attribute is looked at.
    std::span<const AttributeRule> attributes;
};

std::span<const LayerAttributeRule> layerAttributes();
/// Null for a name that no rule has.
const ChildRule* childRule(std::string_view name);

void storeAttribute(VELM_Template& layer, const AttributeRule& rule, const std::string& spelledName,
                    const std::string& text);

} // namespace grammar
