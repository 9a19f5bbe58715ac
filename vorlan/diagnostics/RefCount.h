// RefCount.h: the report of a reference count that has gone wrong.
#pragma once

#include "vorlan/foundation/Compiler.h"

/// The part of reference counting that reports a bad count.
class VORLAN_API RefCount {
public:
    /// Where the bad count was met.
    enum Where : int {
        Dtor = 0,    ///< the object ended while somebody still counted on it
        Release = 1, ///< given back more often than taken
    };

    /// Sends one error message with the place and the count. Eleven reports pass in the life of a process,
    /// whatever objects they are for; then it falls silent, since one bad count tends to bring thousands.
    /// Threading: any thread; racing threads may pass a report more or fewer.
    void notifyBadCount(Where where, int count);
};
