#pragma once

namespace kvo::host {

/// Returns the one object of its type, which is never destroyed: callers may be in static storage.
template <typename Object>
Object& forever() {
    static Object& theObject = *new Object;
    return theObject;
}

}  // namespace kvo::host
