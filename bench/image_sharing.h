// What several drawings of the same photographs cost: on two threads, and for the six outputs of an order.
#pragma once

#include "Tasks.h"

namespace bench {

void printScaling(const Photographs& photographs, int rounds);
void printOrders(const Photographs& photographs, int rounds);

} // namespace bench
