#pragma once

#include "PXConfigItem.h"
#include "PXSettings.h"
#include "PXSingleton.h"
#include "pximagecutter_export.h"

#include <QColor>
#include <QList>
#include <QVariant>

class PXImageCutterSettings;
extern template class PXIMAGECUTTER_EXPORT PXSingleton<PXImageCutterSettings>;

/**
 * The library's user settings, in the group "ImageCutter" of the host's
 * settings store: "maxFotoLength" (the longest photo side hosts should scale
 * to before handing a photo over, default 1200), "backgroundColors" (three
 * colours by default: white, black and red with alpha 128), "dbgFolder"
 * (default "DEBUG") and "refinedCut" (whether a lasso gives the refined cut
 * that follows the object's edges, default false).
 *
 * Hosts use the process-wide PXSingleton<PXImageCutterSettings>::instance();
 * the library itself reads only "refinedCut", in the host's thread when a
 * lasso arrives at a PXImageSegmentation that follows the setting. A setter
 * that changes a value saves all settings at once; one that changes nothing
 * writes nothing.
 * Use from one thread at a time.
 */
class PXIMAGECUTTER_EXPORT PXImageCutterSettings : public PXSettings,
                                                   public PXSingleton<PXImageCutterSettings>
{
    Q_OBJECT

public:
    /** A parentless object loaded from the store. */
    PXImageCutterSettings();
    ~PXImageCutterSettings() override;

    void loadSettings();
    void saveSettings();

    int maximalImageLength() const;
    QString debugFolder() const;
    /** The stored colours; an element that is no colour gives an invalid QColor. */
    QList<QColor> backgroundColors() const;
    bool refinedCut() const;

    void setMaximalImageLength(const int& length);
    void setDebugFolder(const QString& folder);
    /** Replaces colour @p index; an index outside the list is ignored. */
    void setBackgroundColors(const int& index, const QColor& colour);
    void setRefinedCut(bool refined);

private:
    QList<QVariant> m_backgroundColors;
    PXConfigItem<QString> m_debugFolder;
    PXConfigItem<int> m_maximalImageLength;
    bool m_refinedCut = false;
};
