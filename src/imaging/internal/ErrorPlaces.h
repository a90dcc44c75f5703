// What the operations that take a place for their error do with it. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Log.h"
#include "imaging/KLARON_Image.h"

#include <utility>

inline void clear(ErrorPlace place) {
    if (place) place->reset();
}

/// To the place if there is one, else to the log.
inline void report(base::Error error, ErrorPlace place) {
    if (place)
        *place = std::move(error);
    else
        base::log("%@", error);
}
