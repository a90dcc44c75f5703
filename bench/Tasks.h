// The products that are measured: what they look like as templates, and what the floor program does for them. The
// scripts in peers/ make the same pictures with other programs.
#pragma once

#include "Floor.h"

#include <array>
#include <string>

namespace bench {

/// The paths of four photographs of 24 megapixels.
using Photographs = std::array<std::string, 4>;

/// Makes the photographs in `folder` unless they are there. Answers no paths when that fails.
Photographs photographsIn(const std::string& folder);

/// The path of a photograph of this size, which is made in `folder` unless it is there; empty when that fails.
std::string photographOf(int width, int height, const std::string& folder);

/// A template file of this size around the elements of its layers.
std::string templateText(int width, int height, const std::string& layers);

struct Task {
    std::string name;        ///< "T1"
    std::string description; ///< One line for people.
    std::string document;    ///< The template file.
    FloorTask floor;
};

std::array<Task, 3> tasksWith(const Photographs& photographs);

} // namespace bench
