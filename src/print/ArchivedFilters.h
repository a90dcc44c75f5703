// Colour filters as archives hold them: each under its own class ("CIColorControls", whose ancestors are "CIFilter" and
// "NSObject"), its inputs under their names with "CI_" in front and its name under "CIName"; a vector is a "CIVector"
// of "CICount" numbers "CI_0", "CI_1"... Any thread.
#pragma once

/// Makes filters and vectors known to archives.
void registerArchivedFilters();
