// Property lists in their XML and binary forms. The values are booleans, whole numbers, reals, texts, data, dates,
// arrays and dictionaries. Pure functions, any thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <string_view>

namespace platform::data {

enum class PropertyListFormat { xml, binary };

/// Reads either form. Nesting deeper than 200 levels, a list that unfolds into more than a million values and dates
/// beyond 68 years from 2001 are refused, as is everything that is damaged or cut off.
base::Result<base::Value> parsePropertyList(std::string_view bytes);
inline base::Result<base::Value> parsePropertyList(const base::Data& data) {
    return parsePropertyList(data.asText());
}

/// An error names the place of the first value that has no such form: URLs, geometry and objects have none at all,
/// texts that are not UTF-8 or hold a zero character neither, texts with other control characters none in XML.
base::Result<base::Data> propertyListData(const base::Value& value, PropertyListFormat format);

} // namespace platform::data
