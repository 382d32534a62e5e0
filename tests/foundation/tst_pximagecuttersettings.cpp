#include "PXImageCutterSettings.h"

#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

class TestPXImageCutterSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void freshStoreGivesDefaults();
    void valuesPersist();
    void unchangedValuesWriteNothing();
    void storedNonColourBecomesInvalid();

private:
    QString iniPath() const { return m_dir->filePath(QStringLiteral("settings.ini")); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestPXImageCutterSettings::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    PXSettings::setStorageFile(iniPath());
}

void TestPXImageCutterSettings::cleanup()
{
    PXSettings::setStorageFile(QString());
    m_dir.reset();
}

void TestPXImageCutterSettings::freshStoreGivesDefaults()
{
    const PXImageCutterSettings settings;
    QCOMPARE(settings.maximalImageLength(), 1200);
    QCOMPARE(settings.debugFolder(), QStringLiteral("DEBUG"));
    QVERIFY(!settings.refinedCut());
    QCOMPARE(settings.backgroundColors(),
        QList<QColor>({ QColor(255, 255, 255), QColor(0, 0, 0), QColor(255, 0, 0, 128) }));
    QVERIFY(!QFileInfo::exists(iniPath())); // loading writes nothing
}

void TestPXImageCutterSettings::valuesPersist()
{
    {
        PXImageCutterSettings settings;
        settings.setMaximalImageLength(800);
        settings.setDebugFolder(QStringLiteral("traces"));
        settings.setBackgroundColors(1, QColor(10, 20, 30));
        settings.setRefinedCut(true);
    }
    const PXImageCutterSettings reloaded;
    QCOMPARE(reloaded.maximalImageLength(), 800);
    QCOMPARE(reloaded.debugFolder(), QStringLiteral("traces"));
    QCOMPARE(reloaded.backgroundColors(),
        QList<QColor>({ QColor(255, 255, 255), QColor(10, 20, 30), QColor(255, 0, 0, 128) }));

    QVERIFY(reloaded.refinedCut());
    // The keys the hosts' stores share.
    const QSettings raw(iniPath(), QSettings::IniFormat);
    QCOMPARE(raw.value(QStringLiteral("ImageCutter/maxFotoLength")).toInt(), 800);
}

void TestPXImageCutterSettings::unchangedValuesWriteNothing()
{
    PXImageCutterSettings settings;
    settings.setMaximalImageLength(1200);
    settings.setDebugFolder(QStringLiteral("DEBUG"));
    settings.setBackgroundColors(3, QColor(Qt::green));
    settings.setBackgroundColors(-1, QColor(Qt::green));
    QVERIFY(!QFileInfo::exists(iniPath()));
    QCOMPARE(settings.backgroundColors().size(), 3);

    // Any real change writes all three settings.
    settings.setBackgroundColors(0, QColor(255, 255, 255));
    const QSettings raw(iniPath(), QSettings::IniFormat);
    QVERIFY(raw.contains(QStringLiteral("ImageCutter/maxFotoLength")));
    QVERIFY(raw.contains(QStringLiteral("ImageCutter/dbgFolder")));
}

void TestPXImageCutterSettings::storedNonColourBecomesInvalid()
{
    {
        QSettings raw(iniPath(), QSettings::IniFormat);
        raw.setValue(QStringLiteral("ImageCutter/backgroundColors"),
            QVariantList({ QVariant(QColor(1, 2, 3)), QVariant(QStringLiteral("#00ff00")),
                QVariant(QStringLiteral("no colour")) }));
    }
    const PXImageCutterSettings settings;
    const QList<QColor> colours = settings.backgroundColors();
    QCOMPARE(colours.size(), 3);
    QCOMPARE(colours[0], QColor(1, 2, 3));
    QCOMPARE(colours[1], QColor(0, 255, 0));
    QVERIFY(!colours[2].isValid());
}

QTEST_MAIN(TestPXImageCutterSettings)
#include "tst_pximagecuttersettings.moc"
