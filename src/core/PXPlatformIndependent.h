#pragma once

#include "pxcore_export.h"

/**
 * Facts about the machine the library runs on.
 *
 * The environment variable PX_CORE_COUNT, read on every call, overrides the
 * core count when it parses as a positive integer, so tests can check that
 * results do not depend on it.
 */
class PXCORE_EXPORT PXPlatformIndependent
{
public:
    /** The process-wide instance; never null, never deleted. Thread-safe. */
    static PXPlatformIndependent* instance();

    virtual ~PXPlatformIndependent();

    /** Number of processor cores to plan parallel work for (at least 1). */
    virtual int numberOfCores() const;
    /** Blocks the calling thread for @p milliseconds. */
    virtual void sleep(int milliseconds);

protected:
    PXPlatformIndependent() = default;
};
