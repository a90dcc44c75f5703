// The home folder of a soak run: a tree with small templates and packages, watched folders, and orders made to measure.
// Each order has a number that stands in its ticket, whatever becomes of its file's name. One thread.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace soak {

enum class OrderKind {
    bundle,        ///< A job bundle with its photograph.
    ticket,        ///< A native XML ticket that names a photograph elsewhere.
    noPackage,     ///< A bundle that also asks for a package that there is not: it fails.
    brokenPicture, ///< A bundle whose photograph is cut off after its header: it fails.
};

class SoakHome {
public:
    /// Lays a home out in a new folder, or in the given one, which is kept.
    explicit SoakHome(const std::filesystem::path& folder = {});
    ~SoakHome() { removeUnlessKept(); }
    SoakHome(const SoakHome&) = delete;
    SoakHome& operator=(const SoakHome&) = delete;
    /// Removes the folder that it made: at its end, or before a process is ended that leaves no object time for that.
    void removeUnlessKept() const;

    const std::filesystem::path& path() const { return path_; }
    /// Watched for bundles and for tickets.
    std::filesystem::path bundles() const;
    std::filesystem::path tickets() const;
    std::filesystem::path completed() const { return path_ / "VELM/Jobs/Completed"; }
    std::filesystem::path failed() const { return path_ / "VELM/Jobs/Failed"; }
    /// What the packages of this home make stands in the folders `productFolders()` in here, one file in each for an
    /// order, named after `pictureName`.
    std::filesystem::path products() const { return path_ / "Products"; }
    static const std::vector<std::string>& productFolders();
    static std::string pictureName(int number);

    /// The native ticket of an order for this home's packages. `elements` stand in front of them.
    static std::string ticketText(int number, std::string_view image, std::string_view elements = {});
    /// A package of the name Nothing, which makes nothing.
    void addIdlePackage() const;
    /// Makes an order beside the watched folders, on their volume. Answers where it stands.
    std::filesystem::path makeOrder(int number, OrderKind kind) const;
    /// Makes one and renames it into its watched folder.
    std::filesystem::path addOrder(int number, OrderKind kind) const;
    static bool isToFail(OrderKind kind) { return kind == OrderKind::noPackage || kind == OrderKind::brokenPicture; }

    /// The number in a ticket or bundle; none when there is none.
    static std::optional<int> numberOfOrder(const std::filesystem::path& item);
    /// All orders in a folder by their numbers, one of each number in a place that holds it twice included.
    static std::multimap<int, std::filesystem::path> ordersIn(const std::filesystem::path& folder);

    /// Bytes of a small photograph of 3 : 2.
    const std::string& photograph() const { return photograph_; }
    static void write(const std::filesystem::path& file, std::string_view bytes);

private:
    std::filesystem::path path_;
    const bool isKept_;
    std::string photograph_;
};

/// The whole contents of a file; empty when it can't be read.
std::string contentsOf(const std::filesystem::path& file);

} // namespace soak
