#include "PXImageCutterSettings.h"

#include "PXSettingsLock.h"

// Exported through the extern declaration in the header.
template class PXSingleton<PXImageCutterSettings>;

namespace {

const QString Group = QStringLiteral("ImageCutter");
const QString BackgroundColorsKey = QStringLiteral("backgroundColors");
const QString RefinedCutKey = QStringLiteral("refinedCut");

QColor toColor(const QVariant& value)
{
    if (value.metaType() == QMetaType::fromType<QColor>())
        return value.value<QColor>();
    QColor colour;
    QMetaType::convert(value.metaType(), value.constData(), QMetaType::fromType<QColor>(), &colour);
    return colour;
}

} // namespace

PXImageCutterSettings::PXImageCutterSettings()
    : m_debugFolder(QStringLiteral("dbgFolder"), QStringLiteral("DEBUG"))
    , m_maximalImageLength(QStringLiteral("maxFotoLength"), 1200)
{
    loadSettings();
}

PXImageCutterSettings::~PXImageCutterSettings() = default;

void PXImageCutterSettings::loadSettings()
{
    PXSettingsLock lock;
    beginGroup(Group);
    m_backgroundColors.clear();
    if (!doesEntryExist(BackgroundColorsKey)) {
        m_backgroundColors.append(QVariant(QColor(255, 255, 255)));
        m_backgroundColors.append(QVariant(QColor(0, 0, 0)));
        m_backgroundColors.append(QVariant(QColor(255, 0, 0, 128)));
    } else {
        const QList<QVariant> stored
            = readVariant(BackgroundColorsKey, QVariant(QString()), false).toList();
        for (const QVariant& value : stored)
            m_backgroundColors.append(QVariant(toColor(value)));
    }
    load(&m_debugFolder);
    load(&m_maximalImageLength);
    m_refinedCut = readVariant(RefinedCutKey, QVariant(false), false).toBool();
    endGroup();
}

void PXImageCutterSettings::saveSettings()
{
    PXSettingsLock lock;
    beginGroup(Group);
    save(m_debugFolder);
    save(m_maximalImageLength);
    writeEntry(BackgroundColorsKey, QVariant(m_backgroundColors), false);
    writeEntry(RefinedCutKey, QVariant(m_refinedCut), false);
    endGroup();
}

int PXImageCutterSettings::maximalImageLength() const
{
    return m_maximalImageLength.value();
}

QString PXImageCutterSettings::debugFolder() const
{
    return m_debugFolder.value();
}

QList<QColor> PXImageCutterSettings::backgroundColors() const
{
    QList<QColor> colours;
    colours.reserve(m_backgroundColors.size());
    for (const QVariant& value : m_backgroundColors)
        colours.append(toColor(value));
    return colours;
}

void PXImageCutterSettings::setMaximalImageLength(const int& length)
{
    if (length == m_maximalImageLength.value())
        return;
    m_maximalImageLength.setValue(length);
    saveSettings();
}

void PXImageCutterSettings::setDebugFolder(const QString& folder)
{
    if (folder == m_debugFolder.value())
        return;
    m_debugFolder.setValue(folder);
    saveSettings();
}

void PXImageCutterSettings::setBackgroundColors(const int& index, const QColor& colour)
{
    if (index < 0 || index >= m_backgroundColors.size())
        return;
    m_backgroundColors[index] = QVariant(colour);
    saveSettings();
}

bool PXImageCutterSettings::refinedCut() const
{
    return m_refinedCut;
}

void PXImageCutterSettings::setRefinedCut(bool refined)
{
    if (refined == m_refinedCut)
        return;
    m_refinedCut = refined;
    saveSettings();
}
