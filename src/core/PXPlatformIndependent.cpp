#include "PXPlatformIndependent.h"

#include <QThread>
#include <QtGlobal>

PXPlatformIndependent* PXPlatformIndependent::instance()
{
    static PXPlatformIndependent myInstance;
    return &myInstance;
}

PXPlatformIndependent::~PXPlatformIndependent() = default;

int PXPlatformIndependent::numberOfCores() const
{
    bool ok = false;
    const int overridden = qEnvironmentVariableIntValue("PX_CORE_COUNT", &ok);
    if (ok && overridden > 0)
        return overridden;
    return qMax(1, QThread::idealThreadCount());
}

void PXPlatformIndependent::sleep(int milliseconds)
{
    QThread::msleep(qMax(0, milliseconds));
}
