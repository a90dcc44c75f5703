// What an order holds and would do, as text: for people as an indented tree, for programs as a value that jsonText
// prints. Pure functions.
#pragma once

#include "base/Value.h"
#include "jobs/OrderPlan.h"

#include <string>
#include <vector>

namespace velmctl {

std::vector<std::string> orderLines(const OrderPlan& plan);

/// `name`, `type`, `values` (all that was parsed; an inline package as an object with its name), and `packages` with
/// `reference`, `orientedName` and `found` (each null when there is none), `inline`, `why`, `outputs` with their
/// `templates`, `holes` and `files`.
base::Value orderValue(const OrderPlan& plan);

} // namespace velmctl
