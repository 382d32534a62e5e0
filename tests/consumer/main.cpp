// Uses both libraries through the installed headers, by bare name.
#include <PXImageCutter.h>
#include <PXIntRange.h>

#include <QGuiApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);

    QImage photo(4, 3, QImage::Format_ARGB32);
    photo.fill(qRgb(255, 255, 255));
    const PXImage image(photo, QFileInfo(QStringLiteral("white.png")));
    const QRgb twin = image.imageYCbCr().pixel(3, 2);
    if (twin != 0xFFFF8080u) {
        std::fprintf(stderr, "unexpected YCbCr pixel %08x\n", twin);
        return 1;
    }
    if (PXIntRange::rowsOfImage(photo).countElements() != 3)
        return 2;
    PXSingleton<PXLogger>::instance()->legacyLog(QStringLiteral("SEG:Consumer"), false);
    if (PXSingleton<PXLogger>::instance()->history().last() != QStringLiteral("SEG:Consumer"))
        return 3;
    std::printf("consumer: ok\n");
    return 0;
}
