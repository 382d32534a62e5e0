// pxycbcr: loads a photo into a working image and writes its YCbCr twin.
//
//   pxycbcr [PHOTO] [--out DIR]
//
// The twin is stored as a PNG whose red, green and blue channels hold Y, Cb and
// Cr, exactly as the library keeps it in memory.
#include <PXImage.h>

#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QCoreApplication>
#include <QImageReader>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pxycbcr"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Writes the YCbCr twin of a photo."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("photo"), QStringLiteral("The photo (default: the shipped coffee photo)."));
    const QCommandLineOption outOption(QStringLiteral("out"), QStringLiteral("Output folder."),
        QStringLiteral("dir"), QStringLiteral("out"));
    parser.addOption(outOption);
    parser.process(application);

    const QString photoPath = parser.positionalArguments().value(
        0, QStringLiteral(PX_PHOTOS_DIR "/coffee.png"));
    QImageReader reader(photoPath);
    const QImage photo = reader.read();
    if (photo.isNull()) {
        std::fprintf(stderr, "pxycbcr: cannot read %s: %s\n", qPrintable(photoPath),
            qPrintable(reader.errorString()));
        return 1;
    }

    QElapsedTimer timer;
    timer.start();
    const PXImage image(photo, QFileInfo(photoPath));
    const qint64 elapsed = timer.nsecsElapsed();

    const QDir out(parser.value(outOption));
    if (!QDir().mkpath(out.path())) {
        std::fprintf(stderr, "pxycbcr: cannot create %s\n", qPrintable(out.path()));
        return 1;
    }
    const QString target = out.filePath(image.name() + QStringLiteral("-ycbcr.png"));
    if (!image.imageYCbCr().convertToFormat(QImage::Format_RGB32).save(target)) {
        std::fprintf(stderr, "pxycbcr: cannot write %s\n", qPrintable(target));
        return 1;
    }
    std::printf("%s: %dx%d converted in %.2f ms -> %s\n", qPrintable(image.name()), image.width(),
        image.height(), elapsed / 1e6, qPrintable(target));
    return 0;
}
