#pragma once

#include "PXConfigItem.h"
#include "pxcore_export.h"

#include <QObject>
#include <QStringList>
#include <QVariant>

/**
 * Access to the host's settings store, an INI file read and written through
 * QSettings.
 *
 * By default the store is the application's user-scope INI file
 * (QSettings::IniFormat, QSettings::UserScope); setStorageFile() points every
 * settings object of the process at one file instead (tests use a temporary
 * file). Keys are relative to the groups opened with beginGroup().
 *
 * Hold a PXSettingsLock around a sequence of calls that belongs together. The
 * bool arguments of readVariant() and writeEntry() name the real store's
 * machine-wide scope; this store has one scope and ignores them.
 */
class PXCORE_EXPORT PXSettings : public QObject
{
    Q_OBJECT

public:
    explicit PXSettings(QObject* parent = nullptr);
    ~PXSettings() override;

    /** Uses the INI file @p iniPath for all settings; empty restores the default. */
    static void setStorageFile(const QString& iniPath);
    /** The INI file in use. */
    static QString storageFile();

    void beginGroup(const QString& group);
    void endGroup();

    bool doesEntryExist(const QString& key) const;
    QVariant readVariant(const QString& key, const QVariant& defaultValue, bool machineScope) const;
    void writeEntry(const QString& key, const QVariant& value, bool machineScope);

    /** Sets the item's current value from the store, its default when absent. */
    void load(PXConfigItem<QString>* item) const;
    void load(PXConfigItem<int>* item) const;
    /** Writes the item's current value under its key. */
    void save(const PXConfigItem<QString>& item);
    void save(const PXConfigItem<int>& item);

private:
    PXCORE_NO_EXPORT QString fullKey(const QString& key) const;

    QStringList m_groups;
};
