// Internals of the entry-point layer, visible to the unit tests.
#pragma once

namespace vai {

// Statuses cross the public boundary as signed 8-bit values widened again.
inline int NarrowStatus(int status) {
    return static_cast<signed char>(status);
}

}  // namespace vai
