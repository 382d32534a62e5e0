// pxcut's option and point-list parsing. Input: command-line arguments
// separated by NUL bytes.

#include "PXCutArguments.h"
#include "PXPointList.h"

#include <QString>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const QStringList arguments =
        QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size)).split(QChar(0));
    PXCutArguments parsed;
    QString error;
    parsed.parse(arguments, &error);
    for (const QString& argument : arguments) {
        QList<QPointF> points;
        PXPointList::parse(argument, &points, &error);
    }
    return 0;
}
