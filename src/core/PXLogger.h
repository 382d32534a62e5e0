#pragma once

#include "PXSingleton.h"
#include "pxcore_export.h"

#include <QMutex>
#include <QObject>
#include <QStringList>

class PXLogger;
extern template class PXCORE_EXPORT PXSingleton<PXLogger>;

/**
 * The process-wide event log: PXSingleton<PXLogger>::instance().
 *
 * Each line goes to the logging category "px.log" (at debug level, so it is
 * silent unless enabled with QT_LOGGING_RULES="px.log.debug=true") and is kept
 * in memory for hosts that show a log view. All operations are thread-safe.
 */
class PXCORE_EXPORT PXLogger : public QObject, public PXSingleton<PXLogger>
{
    Q_OBJECT

public:
    /** Lines kept in history(); the oldest are dropped beyond this. */
    static constexpr int myHistoryLimit = 10000;

    /**
     * Writes @p message. The library always passes false for @p important;
     * a true flag raises the line to the warning level.
     */
    void legacyLog(const QString& message, bool important);

    /** The logged lines, oldest first. */
    QStringList history() const;
    void clearHistory();

Q_SIGNALS:
    /** Emitted in the logging thread after each line. */
    void lineLogged(const QString& message);

private:
    friend class PXSingleton<PXLogger>;
    PXLogger() = default;

    mutable QMutex m_mutex;
    QStringList m_history;
};
