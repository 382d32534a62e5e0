#include "PXConcurrent.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>

int PXConcurrent::maxRunningThreads = 3 * QThread::idealThreadCount();

bool PXConcurrent::runsSequentially()
{
    const QCoreApplication* application = QCoreApplication::instance();
    if (application && QThread::currentThread() == application->thread())
        return false;
    return QThreadPool::globalInstance()->activeThreadCount() >= maxRunningThreads;
}

PXConcurrent::PoolWait::PoolWait()
    : m_released(QThreadPool::globalInstance()->contains(QThread::currentThread()))
{
    if (m_released)
        QThreadPool::globalInstance()->releaseThread();
}

PXConcurrent::PoolWait::~PoolWait()
{
    if (m_released)
        QThreadPool::globalInstance()->reserveThread();
}
