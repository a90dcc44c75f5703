#include "base/Error.h"

#include <system_error>

namespace base {

Error systemError(int number, std::string_view what) {
    return {std::string(posixErrorDomain), number, std::string(what) + ": " + std::generic_category().message(number)};
}

} // namespace base
