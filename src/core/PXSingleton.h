#pragma once

#include <QReadLocker>
#include <QReadWriteLock>
#include <QWriteLocker>

/**
 * Lazily created process-wide instance of T, where T derives from
 * PXSingleton<T>.
 *
 * instance() constructs the object on first use under a write lock (double
 * checked) and calls its setupInstance() hook once; the object is never
 * deleted. Safe to call from any thread.
 *
 * To have exactly one instance per process across shared libraries, the
 * library that owns T declares the instantiation extern in T's header and
 * defines it, exported, in one source file:
 * @code
 * class PXLogger;
 * extern template class PXCORE_EXPORT PXSingleton<PXLogger>;   // header
 * template class PXCORE_EXPORT PXSingleton<PXLogger>;          // source
 * @endcode
 */
template <typename T>
class PXSingleton
{
public:
    static T* instance();

    /** Called once, right after the instance is constructed. */
    virtual void setupInstance() {}

protected:
    PXSingleton() = default;
    virtual ~PXSingleton() = default;

private:
    PXSingleton(const PXSingleton&) = delete;
    PXSingleton& operator=(const PXSingleton&) = delete;

    static T* myInstance;
};

template <typename T>
T* PXSingleton<T>::myInstance = nullptr;

template <typename T>
T* PXSingleton<T>::instance()
{
    static QReadWriteLock lock;
    {
        QReadLocker reading(&lock);
        if (myInstance)
            return myInstance;
    }
    QWriteLocker writing(&lock);
    if (!myInstance) {
        T* created = new T;
        myInstance = created;
        created->setupInstance();
    }
    return myInstance;
}
