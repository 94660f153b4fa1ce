// Event sources of the main loop, held by their ids.
#pragma once

#include <glib.h>

#include <utility>

namespace fa
{

// Removes the source, if there is one, and forgets its id.
inline void StopSource(guint& id)
{
    if (id != 0) {
        g_source_remove(std::exchange(id, 0));
    }
}

}  // namespace fa
