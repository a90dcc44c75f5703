// What is painted: the three scenes in their three lights.
#pragma once

#include "Painting.h"
#include "SamplePhotographs.h"

namespace samples {

/// The scene of the photograph, upright, width by height.
Painting paint(const Photograph& photograph);

} // namespace samples
