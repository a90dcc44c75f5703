// What a person should hear before an order runs: what reading dropped of it, of its packages and their templates, and
// what the run would fail at or leave out. It looks at the order's plan; nothing is rendered or written. Each picture
// that would be drawn or copied is decoded once, small, as its header may promise what its data does not hold.
//
// An order that is sound has no findings: what has a sensible default (a hole that keeps the template's own text, a
// folder that the run makes) is none.
#pragma once

#include "jobs/OrderPlan.h"
#include "jobs/OrderReport.h"

#include <vector>

/// In the order of files and lines, those of the report among them. `report` must be that with which the ticket was
/// read and the plan made. On the caller's thread.
std::vector<OrderReport::Finding> findingsOfOrder(const OrderPlan& plan, const OrderReport& report);
