#include "PXCpuFeatures.h"

#include <QByteArray>
#include <QList>
#include <QtGlobal>

namespace {

bool processorHas(CPUFeatures feature)
{
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
    __builtin_cpu_init();
    switch (feature) {
    case CPU_FEATURE_SSE:
        return __builtin_cpu_supports("sse4.1");
    case CPU_FEATURE_AVX:
        return __builtin_cpu_supports("avx2");
    }
    return false;
#else
    Q_UNUSED(feature);
    return false;
#endif
}

// A value that is not a list of "none", "sse" and "avx" is ignored.
bool allowedByEnvironment(CPUFeatures feature)
{
    const QByteArray value = qgetenv("PX_CPU_FEATURES").trimmed().toLower();
    if (value.isEmpty())
        return true;
    const QByteArray wanted = feature == CPU_FEATURE_SSE ? "sse" : "avx";
    bool listed = false;
    for (const QByteArray& item : value.split(',')) {
        const QByteArray name = item.trimmed();
        if (name != "none" && name != "sse" && name != "avx")
            return true;
        listed = listed || name == wanted;
    }
    return listed;
}

} // namespace

bool pxCpuHasFeature(CPUFeatures feature)
{
    return processorHas(feature) && allowedByEnvironment(feature);
}
