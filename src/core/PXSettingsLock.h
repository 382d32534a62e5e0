#pragma once

#include "pxcore_export.h"

/**
 * Scoped lock over the process-wide settings store: held for the whole of a
 * load or save so that a group of keys is read or written as one. Recursive,
 * so a save inside a locked section does not deadlock.
 */
class PXCORE_EXPORT PXSettingsLock
{
public:
    PXSettingsLock();
    ~PXSettingsLock();

private:
    PXSettingsLock(const PXSettingsLock&) = delete;
    PXSettingsLock& operator=(const PXSettingsLock&) = delete;
};
