// The search for the package that a job's package reference names, as the run does it and as one can look at it: what
// was searched for and why, where, what was found, and what was passed over. Also the packages that a folder holds.
// The run itself asks VELM_Package::packageWithDictionary, which goes the same road and takes nothing down.
//
// Each operation reads files on the caller's thread; any thread. The results own what they name.
#pragma once

#include "base/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class OrderReport;
class VELM_Package;

struct PackageSearch {
    struct PassedOver {
        std::string path;   ///< A file of the right name that was not taken, one that is no package, or a folder.
        std::string name;   ///< The name it goes by; empty when it has none.
        std::string reason; ///< In plain words.
    };

    std::optional<std::string> baseName; ///< The product code, else the name. None: nothing can be found.
    std::optional<std::string> orientedName;
    bool isInline = false; ///< The reference holds the package itself: nothing is searched.
    bool hasImage = false; ///< The first picture was found; one that isn't counts as lying.
    bool isPortrait = false;
    std::string image;                     ///< The value of image1 as the reference has it; empty for none.
    std::vector<std::string> folders;      ///< In the order in which they are searched, one that is not reached too.
    std::shared_ptr<VELM_Package> package; ///< Null when none was found.
    std::string path;                      ///< Of the package's file; empty for an inline one and for none.
    std::string reason;                    ///< Why this one, or why none, in plain words.
    /// Besides those of other names, of which there may be thousands, everything that was looked at and not taken.
    std::vector<PassedOver> passedOver;

    /// False for a search folder that is not there: an order seldom has packages of its own.
    bool isWorthTelling(const PassedOver& passed) const;
};

/// With a report the found package is read with it: what its reading dropped stands there.
PackageSearch searchPackage(const base::Dictionary& reference, OrderReport* report = nullptr);

/// A file of a package folder.
struct PackageFile {
    std::string path;
    std::string name;    ///< Empty when it has none.
    std::string pluCode; ///< Empty when it has none.
    /// The suffix of the name that the package is found by: "PRT" for standing pictures, "LS" for lying ones, "" for
    /// any.
    std::string_view orientation;
    std::string problem; ///< Why it is no package that an order can find; empty for a package.

    /// By which an order finds it: the product code, else the name.
    const std::string& lookupName() const { return pluCode.empty() ? name : pluCode; }
};

/// The files of a folder and of those below it, sorted by path as the search meets them. A folder that can't be read
/// stands among them with its problem.
std::vector<PackageFile> packagesInFolder(const std::string& folder);
