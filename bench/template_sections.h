// The sections of velm_bench_template, each of which prints its table. All need the places of the system to be set to a
// folder of the run, and end the program with a message when something can't be drawn.
#pragma once

#include "Tasks.h"

#include <string>

namespace bench {

/// Reading, filling, copying and writing documents of many layers. Files are made in `folder`.
void printDocuments(const std::string& folder, int rounds);

/// What each kind of layer costs beyond its bare canvas.
void printLayers(const std::string& photograph, const std::string& folder, int rounds);
/// A text of one size on canvases of several.
void printCanvases(const std::string& folder, int rounds);
/// One page as product, preview and thumbnail, and its layout without pixels.
void printViews(const std::string& photograph, const std::string& folder, int rounds);
/// Renders of different templates on one thread and on two.
void printThreads(const Photographs& photographs, const std::string& folder, int rounds);

/// The golden cases, drawn by velmctl.
void printGoldenSet(const std::string& velmctl, const std::string& golden, const std::string& folder, int rounds);

} // namespace bench
