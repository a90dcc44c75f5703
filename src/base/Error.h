// What went wrong, as a value: a domain, a code in it and a sentence for people. Operations that can fail answer
// Result<T>; no exception crosses a module boundary. Values, free to copy and to use on any thread.
#pragma once

#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <utility>

namespace base {

/// The domains in use. The texts are part of what is stored and shown.
inline constexpr std::string_view posixErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view cocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view urlErrorDomain = "NSURLErrorDomain";

struct Error {
    std::string domain;
    int code = 0;
    std::string localizedDescription;

    friend bool operator==(const Error&, const Error&) = default;
};

template <class T>
using Result = tl::expected<T, Error>;

/// A failure to return from an operation that answers Result<T>.
inline tl::unexpected<Error> failure(std::string_view domain, int code, std::string description) {
    return tl::unexpected<Error>(Error{std::string(domain), code, std::move(description)});
}
inline tl::unexpected<Error> failure(Error error) {
    return tl::unexpected<Error>(std::move(error));
}

/// The error of a failed system call: `number` is errno's value, `what` names the deed and its object
/// ("cannot open /a/b"). The system's own words follow a colon.
Error systemError(int number, std::string_view what);

} // namespace base
