#include "PXSettingsLock.h"

#include <QRecursiveMutex>

namespace {
QRecursiveMutex& settingsMutex()
{
    static QRecursiveMutex mutex;
    return mutex;
}
} // namespace

PXSettingsLock::PXSettingsLock()
{
    settingsMutex().lock();
}

PXSettingsLock::~PXSettingsLock()
{
    settingsMutex().unlock();
}
