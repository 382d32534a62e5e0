#include "PXSettings.h"

#include <QCoreApplication>
#include <QMutex>
#include <QMutexLocker>
#include <QSettings>

namespace {

QMutex& storageMutex()
{
    static QMutex mutex;
    return mutex;
}

QString& storageOverride()
{
    static QString path;
    return path;
}

QString defaultStorageFile()
{
    const QString organization = QCoreApplication::organizationName().isEmpty()
        ? QStringLiteral("PXImageCutter")
        : QCoreApplication::organizationName();
    const QString application = QCoreApplication::applicationName().isEmpty()
        ? QStringLiteral("PXImageCutter")
        : QCoreApplication::applicationName();
    return QSettings(QSettings::IniFormat, QSettings::UserScope, organization, application)
        .fileName();
}

QSettings openStore()
{
    return QSettings(PXSettings::storageFile(), QSettings::IniFormat);
}

} // namespace

PXSettings::PXSettings(QObject* parent)
    : QObject(parent)
{
}

PXSettings::~PXSettings() = default;

void PXSettings::setStorageFile(const QString& iniPath)
{
    QMutexLocker locker(&storageMutex());
    storageOverride() = iniPath;
}

QString PXSettings::storageFile()
{
    {
        QMutexLocker locker(&storageMutex());
        if (!storageOverride().isEmpty())
            return storageOverride();
    }
    return defaultStorageFile();
}

void PXSettings::beginGroup(const QString& group)
{
    m_groups.append(group);
}

void PXSettings::endGroup()
{
    if (!m_groups.isEmpty())
        m_groups.removeLast();
}

QString PXSettings::fullKey(const QString& key) const
{
    return m_groups.isEmpty() ? key : m_groups.join(QLatin1Char('/')) + QLatin1Char('/') + key;
}

bool PXSettings::doesEntryExist(const QString& key) const
{
    return openStore().contains(fullKey(key));
}

QVariant PXSettings::readVariant(const QString& key, const QVariant& defaultValue, bool) const
{
    return openStore().value(fullKey(key), defaultValue);
}

void PXSettings::writeEntry(const QString& key, const QVariant& value, bool)
{
    QSettings store = openStore();
    store.setValue(fullKey(key), value);
    store.sync();
}

void PXSettings::load(PXConfigItem<QString>* item) const
{
    item->setValue(readVariant(item->key(), item->defaultValue(), false).toString());
}

void PXSettings::load(PXConfigItem<int>* item) const
{
    bool ok = false;
    const int value = readVariant(item->key(), item->defaultValue(), false).toInt(&ok);
    item->setValue(ok ? value : item->defaultValue());
}

void PXSettings::save(const PXConfigItem<QString>& item)
{
    writeEntry(item.key(), item.value(), false);
}

void PXSettings::save(const PXConfigItem<int>& item)
{
    writeEntry(item.key(), item.value(), false);
}
