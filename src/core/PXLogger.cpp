#include "PXLogger.h"

#include <QLoggingCategory>
#include <QMutexLocker>

// Exported through the extern declaration in the header.
template class PXSingleton<PXLogger>;

Q_LOGGING_CATEGORY(lcPXLog, "px.log", QtInfoMsg)

void PXLogger::legacyLog(const QString& message, bool important)
{
    if (important)
        qCWarning(lcPXLog).noquote() << message;
    else
        qCDebug(lcPXLog).noquote() << message;
    {
        QMutexLocker locker(&m_mutex);
        if (m_history.size() >= myHistoryLimit)
            m_history.removeFirst();
        m_history.append(message);
    }
    Q_EMIT lineLogged(message);
}

QStringList PXLogger::history() const
{
    QMutexLocker locker(&m_mutex);
    return m_history;
}

void PXLogger::clearHistory()
{
    QMutexLocker locker(&m_mutex);
    m_history.clear();
}
