#include "PXCutArguments.h"

#include "PXPointList.h"

#include <cmath>

// Walks the arguments; each take...() consumes what an option needs and says
// what is missing when the command line ends too early.
class ArgumentReader
{
public:
    explicit ArgumentReader(const QStringList& arguments)
        : m_arguments(arguments)
    {
    }

    bool atEnd() const { return m_index >= m_arguments.size(); }
    QString next() { return m_arguments.at(m_index++); }

    bool takeValue(const QString& option, const QString& what, QString* value, QString* error)
    {
        if (atEnd()) {
            *error = QStringLiteral("%1 needs %2").arg(option, what);
            return false;
        }
        *value = next();
        return true;
    }

private:
    QStringList m_arguments;
    qsizetype m_index = 0;
};

namespace {

bool parsePositive(const QString& option, const QString& text, qreal* value, QString* error)
{
    bool ok = false;
    const double parsed = text.toDouble(&ok);
    if (!ok || !std::isfinite(parsed) || parsed <= 0) {
        *error = QStringLiteral("%1: radius '%2' is not a positive number").arg(option, text);
        return false;
    }
    *value = parsed;
    return true;
}

bool parsePoints(const QString& option, const QString& text, QList<QPointF>* points, QString* error)
{
    QString reason;
    if (!PXPointList::parse(text, points, &reason)) {
        *error = QStringLiteral("%1: %2").arg(option, reason);
        return false;
    }
    return true;
}

bool parseOnePoint(const QString& option, const QString& text, QPointF* point, QString* error)
{
    QString reason;
    if (!PXPointList::parsePoint(text.trimmed(), point, &reason)) {
        *error = QStringLiteral("%1: %2").arg(option, reason);
        return false;
    }
    return true;
}

bool isOption(const QString& argument)
{
    return argument.startsWith(QLatin1Char('-')) && argument.size() > 1
        && !argument.at(1).isDigit();
}

// --paint and --scribble: fg or bg, a radius and the stroke's points.
bool takeStroke(ArgumentReader& reader, const QString& argument, PXCutStep* step, QString* error)
{
    step->kind = argument == QLatin1String("--paint") ? PXCutStep::Paint : PXCutStep::Scribble;
    step->option = argument;
    QString side;
    QString radius;
    QString points;
    if (!reader.takeValue(argument, QStringLiteral("fg or bg, a radius and points"), &side, error))
        return false;
    if (side != QLatin1String("fg") && side != QLatin1String("bg")) {
        *error = QStringLiteral("%1: expected fg or bg, got '%2'").arg(argument, side);
        return false;
    }
    step->foreground = side == QLatin1String("fg");
    if (!reader.takeValue(argument, QStringLiteral("a radius and points"), &radius, error)
        || !parsePositive(argument, radius, &step->radius, error)
        || !reader.takeValue(argument, QStringLiteral("points after the radius"), &points, error)
        || !parsePoints(argument, points, &step->points, error))
        return false;
    if (step->points.isEmpty()) {
        *error = QStringLiteral("%1: the stroke has no points").arg(argument);
        return false;
    }
    return true;
}

// --smooth: bounded, as larger radii break the blurred one-bit mask.
bool takeSmoothRadius(ArgumentReader& reader, int* smoothRadius, QString* error)
{
    QString value;
    if (!reader.takeValue(QStringLiteral("--smooth"), QStringLiteral("a radius"), &value, error))
        return false;
    bool ok = false;
    *smoothRadius = value.toInt(&ok);
    if (!ok || *smoothRadius < 1) {
        *error = QStringLiteral("--smooth: radius '%1' is not a positive whole number").arg(value);
        return false;
    }
    if (*smoothRadius > PXCutArguments::myMaximalSmoothRadius) {
        *error = QStringLiteral("--smooth: radius %1 is above %2, where the blurred one-bit mask breaks "
                                "down; for a soft edge use --feather %1")
                     .arg(*smoothRadius)
                     .arg(PXCutArguments::myMaximalSmoothRadius);
        return false;
    }
    return true;
}

} // namespace

QString PXCutArguments::usage()
{
    return QStringLiteral(
        "usage: pxcut cut [PHOTO] [--lasso \"x,y x,y ...\" | --lasso-file FILE] [--click x,y]...\n"
        "                 [--paint fg|bg RADIUS \"x,y ...\"]... [--scribble fg|bg RADIUS \"x,y ...\"]...\n"
        "                 [--invert] [--mask-color #RRGGBB] [--smooth RADIUS] [--feather RADIUS | --matte]\n"
        "                 [--mask-in FILE] [--plain | --refine] [--compare] [--out DIR] [--json]\n"
        "       pxcut wire [PHOTO] --seed x,y --to x,y [--seed x,y --to x,y]... [--out DIR] [--json]\n"
        "\n"
        "cut   cuts the object inside the lasso out of PHOTO and writes mask.png, cutout.png\n"
        "      and overlay.png into DIR (default: out). Clicks, paint and scribble strokes\n"
        "      refine the cut in the order given. Without a lasso option the file\n"
        "      PHOTO's-name.lasso beside the photo is used; without PHOTO the shipped\n"
        "      coffee photo and its lasso. --mask-in starts from a saved mask (white or\n"
        "      transparent where the object is) instead of a lasso. --feather gives\n"
        "      cutout.png a soft edge RADIUS photo pixels wide; --smooth (1 to %1)\n"
        "      takes the library's blurred one-bit mask. --matte gives cutout.png the\n"
        "      library's soft matte, made on the full-size photo, with the background's\n"
        "      colour taken out of its edge, and writes matte.png (white = object).\n"
        "      --json prints the summary as JSON.\n"
        "      The cut is the refined cut, whose outline follows the object's edges\n"
        "      (--refine says so explicitly); --plain makes the library's plain cut of\n"
        "      whole regions instead. In the plain cut, --paint fg strokes whose brush\n"
        "      touches a region reaching outside the lasso are ignored. --compare also\n"
        "      writes compare.png: the plain and the refined first cut side by side,\n"
        "      each cut out over a checkerboard.\n"
        "wire  traces the live wire from each seed to its target and writes wire.png\n"
        "      and wire.json.\n"
        "\n"
        "Points are photo pixels \"x,y\", separated by spaces. Exit status: 0 on success,\n"
        "1 when an input does not fit (photo, lasso, points, output), 2 when the command\n"
        "line cannot be understood.\n").arg(myMaximalSmoothRadius);
}

bool PXCutArguments::parse(const QStringList& arguments, QString* error)
{
    if (arguments.isEmpty()) {
        *error = QStringLiteral("missing command: cut or wire");
        return false;
    }
    const QString command = arguments.first();
    const QStringList rest = arguments.mid(1);
    if (command == QLatin1String("--help") || command == QLatin1String("-h")
        || command == QLatin1String("help")) {
        this->command = Help;
        return true;
    }
    if (rest.contains(QLatin1String("--help")) || rest.contains(QLatin1String("-h"))) {
        this->command = Help;
        return true;
    }
    if (command == QLatin1String("cut")) {
        this->command = Cut;
        return parseCut(rest, error);
    }
    if (command == QLatin1String("wire")) {
        this->command = Wire;
        return parseWire(rest, error);
    }
    *error = QStringLiteral("unknown command '%1' (expected cut or wire)").arg(command);
    return false;
}

bool PXCutArguments::parseCut(const QStringList& arguments, QString* error)
{
    ArgumentReader reader(arguments);
    bool lassoGiven = false;
    bool cutModeGiven = false;
    while (!reader.atEnd()) {
        const QString argument = reader.next();
        QString value;
        if (argument == QLatin1String("--lasso") || argument == QLatin1String("--lasso-file")) {
            if (lassoGiven) {
                *error = QStringLiteral("give the lasso once, with --lasso or --lasso-file");
                return false;
            }
            lassoGiven = true;
            const bool fromFile = argument == QLatin1String("--lasso-file");
            if (!reader.takeValue(argument, fromFile ? QStringLiteral("a file") : QStringLiteral("a list of points"),
                    &value, error))
                return false;
            if (fromFile) {
                lassoFile = value;
            } else {
                lassoSource = argument;
                if (!parsePoints(argument, value, &lasso, error))
                    return false;
            }
        } else if (argument == QLatin1String("--click")) {
            PXCutStep step;
            step.kind = PXCutStep::Click;
            step.option = argument;
            QPointF point;
            if (!reader.takeValue(argument, QStringLiteral("a point x,y"), &value, error)
                || !parseOnePoint(argument, value, &point, error))
                return false;
            step.points.append(point);
            steps.append(step);
        } else if (argument == QLatin1String("--paint") || argument == QLatin1String("--scribble")) {
            PXCutStep step;
            if (!takeStroke(reader, argument, &step, error))
                return false;
            steps.append(step);
        } else if (argument == QLatin1String("--invert")) {
            invert = true;
        } else if (argument == QLatin1String("--mask-color")) {
            if (!reader.takeValue(argument, QStringLiteral("a colour such as #RRGGBB"), &value, error))
                return false;
            maskColour = QColor::fromString(value);
            if (!maskColour.isValid()) {
                *error = QStringLiteral("--mask-color: '%1' is not a colour (expected #RRGGBB)").arg(value);
                return false;
            }
        } else if (argument == QLatin1String("--smooth")) {
            if (!takeSmoothRadius(reader, &smoothRadius, error))
                return false;
        } else if (argument == QLatin1String("--feather")) {
            if (!reader.takeValue(argument, QStringLiteral("a radius"), &value, error)
                || !parsePositive(argument, value, &featherRadius, error))
                return false;
        } else if (argument == QLatin1String("--matte")) {
            matte = true;
        } else if (argument == QLatin1String("--mask-in")) {
            if (!reader.takeValue(argument, QStringLiteral("a mask file"), &maskIn, error))
                return false;
        } else if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument == QLatin1String("--refine") || argument == QLatin1String("--plain")) {
            const bool refined = argument == QLatin1String("--refine");
            if (cutModeGiven && refined != refine) {
                *error = QStringLiteral("give --plain or --refine, not both");
                return false;
            }
            cutModeGiven = true;
            refine = refined;
        } else if (argument == QLatin1String("--compare")) {
            compare = true;
        } else if (argument == QLatin1String("--out")) {
            if (!takeOutputDirectory(reader, error))
                return false;
        } else if (!takePhoto(QStringLiteral("cut"), argument, error)) {
            return false;
        }
    }
    if (matte && featherRadius > 0) {
        *error = QStringLiteral("give --feather or --matte, not both");
        return false;
    }
    return true;
}

bool PXCutArguments::takePhoto(const QString& command, const QString& argument, QString* error)
{
    if (isOption(argument)) {
        *error = QStringLiteral("%1: unknown option '%2'").arg(command, argument);
        return false;
    }
    if (!photo.isEmpty()) {
        *error = QStringLiteral("%1: one photo only; '%2' is one too many").arg(command, argument);
        return false;
    }
    photo = argument;
    return true;
}

bool PXCutArguments::takeOutputDirectory(ArgumentReader& reader, QString* error)
{
    if (!reader.takeValue(QStringLiteral("--out"), QStringLiteral("a folder"), &outputDirectory, error))
        return false;
    // An empty name would quietly write into the working folder.
    if (outputDirectory.trimmed().isEmpty()) {
        *error = QStringLiteral("--out needs a folder name, got an empty one");
        return false;
    }
    return true;
}

bool PXCutArguments::parseWire(const QStringList& arguments, QString* error)
{
    ArgumentReader reader(arguments);
    while (!reader.atEnd()) {
        const QString argument = reader.next();
        QString value;
        if (argument == QLatin1String("--seed") || argument == QLatin1String("--to")) {
            QPointF point;
            if (!reader.takeValue(argument, QStringLiteral("a point x,y"), &value, error)
                || !parseOnePoint(argument, value, &point, error))
                return false;
            const bool isSeed = argument == QLatin1String("--seed");
            // Pairs must alternate, so each --to belongs to the --seed before it.
            if (isSeed != (seeds.size() == targets.size())) {
                *error = isSeed ? QStringLiteral("--seed %1 follows a --seed without its --to").arg(value)
                                : QStringLiteral("--to %1 has no --seed before it").arg(value);
                return false;
            }
            (isSeed ? seeds : targets).append(point);
        } else if (argument == QLatin1String("--out")) {
            if (!takeOutputDirectory(reader, error))
                return false;
        } else if (argument == QLatin1String("--json")) {
            json = true;
        } else if (!takePhoto(QStringLiteral("wire"), argument, error)) {
            return false;
        }
    }
    if (seeds.isEmpty()) {
        *error = QStringLiteral("wire needs at least one --seed x,y --to x,y pair");
        return false;
    }
    if (seeds.size() != targets.size()) {
        *error = QStringLiteral("--seed %1 has no --to after it").arg(PXPointList::format(seeds.last()));
        return false;
    }
    return true;
}
