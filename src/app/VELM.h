// Where the system's own folders are: one tree with templates, packages, nodes, graphics and the places of the jobs.
// Class operations on the places in force (base/Places.h); any thread.
#pragma once

#include "base/Error.h"
#include "base/Path.h"

#include <array>
#include <functional>
#include <string_view>

class VELM {
public:
    /// The root of the tree. The first question for a root makes its folder when it is missing.
    static base::URL velmDirectory();

    static base::URL velmDirectoryTemplates() { return velmDirectorySubdirectory("velmDirectoryTemplates"); }
    static base::URL velmDirectoryGraphics() { return velmDirectorySubdirectory("velmDirectoryGraphics"); }
    static base::URL velmDirectoryPackages() { return velmDirectorySubdirectory("velmDirectoryPackages"); }
    static base::URL velmDirectoryNodes() { return velmDirectorySubdirectory("velmDirectoryNodes"); }
    static base::URL velmDirectoryJobs() { return velmDirectorySubdirectory("velmDirectoryJobs"); }
    static base::URL velmDirectoryJobsCompleted() { return velmDirectoryJobs().appendingPathComponent("Completed"); }
    static base::URL velmDirectoryJobsFailed() { return velmDirectoryJobs().appendingPathComponent("Failed"); }
    static base::URL velmDirectoryJobsPending() { return velmDirectoryJobs().appendingPathComponent("Pending"); }

    /// The folder below the root that an operation named "velmDirectory" and a folder's name stands for. The root
    /// itself for any other name.
    static base::URL velmDirectorySubdirectory(std::string_view operationName);

    /// Each operation of the tree with its name, the root first, outer folders before inner ones.
    struct Folder {
        std::string_view name;
        base::URL (*url)();
    };
    static const std::array<Folder, 9>& folders();

    /// Makes the whole tree, folders that the jobs are moved to included, and answers the root's URL. What exists is
    /// left as it is.
    static base::Result<base::URL> makeVELMFolder();

    using ErrorBlock = std::function<void(const base::Error&)>;
    /// Makes a folder with those on its way; true also when it is there already. Without a callback the error is
    /// logged.
    static bool makeDirectory(const base::URL& url, const ErrorBlock& errorBlock = {});
};
