// pxstudio: an interactive studio for cutting objects out of photos with the
// library: lasso, click, paint, scribble and intelligent scissors, with undo.
//
//   pxstudio [PHOTO]
//
// Without PHOTO the shipped coffee photo is opened.
#include "PXStudioWindow.h"

#include <QApplication>
#include <QFileInfo>

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pxstudio"));

    PXStudioWindow window;
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const QString photo = arguments.value(0, QStringLiteral(PX_PHOTOS_DIR "/coffee.png"));
    if (QFileInfo::exists(photo) || !arguments.isEmpty())
        window.openPhoto(photo);
    window.show();
    return application.exec();
}
