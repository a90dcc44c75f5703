#include "platform/data/FileAttributes.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace platform::data {
namespace {

std::optional<struct statx> statusOf(const base::URL& url) {
    struct statx status;
    if (url.path().empty()) return std::nullopt;
    if (statx(AT_FDCWD, url.path().c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) return std::nullopt;
    return status;
}

base::Date dateOf(const struct statx_timestamp& time) {
    return base::Date(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

/// Holds nanoseconds since 1970, as a decimal text.
constexpr const char* dateCreatedAttribute = "user.velm.dateCreated";

std::optional<base::Date> setCreationDate(const base::URL& url) {
    char text[32];
    const ssize_t length = getxattr(url.path().c_str(), dateCreatedAttribute, text, sizeof text);
    std::int64_t nanoseconds = 0;
    if (length <= 0) return std::nullopt;
    const auto [end, error] = std::from_chars(text, text + length, nanoseconds);
    if (error != std::errc() || end != text + length) return std::nullopt;
    return base::Date(std::chrono::nanoseconds(nanoseconds));
}

} // namespace

std::optional<std::uint64_t> fileSize(const base::URL& url) {
    const auto status = statusOf(url);
    if (!status) return std::nullopt;
    return status->stx_size;
}

std::optional<base::Date> dateModified(const base::URL& url) {
    const auto status = statusOf(url);
    if (!status) return std::nullopt;
    return dateOf(status->stx_mtime);
}

std::optional<base::Date> dateCreated(const base::URL& url) {
    const auto status = statusOf(url);
    if (!status) return std::nullopt;
    if (const auto date = setCreationDate(url)) return date;
    if (!(status->stx_mask & STATX_BTIME)) return std::nullopt;
    return dateOf(status->stx_btime);
}

base::Result<void> setDateCreated(const base::URL& url, base::Date date) {
    const std::string text = std::to_string(date.time_since_epoch().count());
    if (setxattr(url.path().c_str(), dateCreatedAttribute, text.data(), text.size(), 0) != 0)
        return base::failure(base::systemError(errno, "cannot set the date of creation of " + url.path()));
    return {};
}

base::Result<void> setDateModified(const base::URL& url, base::Date date) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(date);
    struct timespec times[2];
    times[0] = {0, UTIME_OMIT};
    times[1] = {whole.time_since_epoch().count(), (date - whole).count()};
    if (utimensat(AT_FDCWD, url.path().c_str(), times, 0) != 0) {
        return base::failure(base::systemError(errno, "cannot set the date of " + url.path()));
    }
    return {};
}

std::optional<std::string> generationIdentifier(const base::URL& url) {
    const auto status = statusOf(url);
    if (!status) return std::nullopt;
    std::string text;
    for (const std::uint64_t part :
         {std::uint64_t{status->stx_dev_major}, std::uint64_t{status->stx_dev_minor}, std::uint64_t{status->stx_ino},
          std::uint64_t{status->stx_size}, static_cast<std::uint64_t>(status->stx_mtime.tv_sec),
          std::uint64_t{status->stx_mtime.tv_nsec}, static_cast<std::uint64_t>(status->stx_ctime.tv_sec),
          std::uint64_t{status->stx_ctime.tv_nsec}}) {
        text += (text.empty() ? "" : ".") + std::to_string(part);
    }
    return text;
}

} // namespace platform::data
