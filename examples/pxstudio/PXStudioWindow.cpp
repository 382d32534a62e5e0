#include "PXStudioWindow.h"

#include "PXHostImages.h"
#include "PXOutsideRegions.h"
#include "PXPointList.h"
#include "PXSegmentationQueries.h"
#include "PXSelectionMask.h"
#include "PXStudioView.h"

#include <PXImageCutterSettings.h>
#include <PXImageSegmentation.h>
#include <PXIntelligentScissors.h>
#include <PXMementoSegmentation.h>
#include <PXUndoCommandSegmentation.h>
#include <PXUndoController.h>

#include <QAction>
#include <QActionGroup>
#include <QColorDialog>
#include <QFileDialog>
#include <QImageReader>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QProgressBar>
#include <QSettings>
#include <QSpinBox>
#include <QStatusBar>
#include <QThreadPool>
#include <QToolBar>
#include <QUndoStack>

#include <algorithm>
#include <cmath>

namespace {

QIcon swatch(const QColor& colour)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setPen(QColor(0x80, 0x80, 0x80));
    painter.setBrush(QColor(colour.rgb()));
    painter.drawRect(0, 0, 15, 15);
    return QIcon(pixmap);
}

QString photoFilter()
{
    QStringList patterns;
    for (const QByteArray& format : QImageReader::supportedImageFormats())
        patterns.append(QStringLiteral("*.") + QString::fromLatin1(format));
    return PXStudioWindow::tr("Photos (%1);;All files (*)").arg(patterns.join(QLatin1Char(' ')));
}

QSettings studioSettings()
{
    return QSettings(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("PXImageCutter"),
        QStringLiteral("pxstudio"));
}

} // namespace

PXStudioWindow::PXStudioWindow(QWidget* parent)
    : QMainWindow(parent)
    , m_segmentation(std::make_unique<PXImageSegmentation>())
    , m_scissors(std::make_unique<PXIntelligentScissors>())
    , m_view(new PXStudioView(this))
    , m_statusLabel(new QLabel(this))
    , m_progress(new QProgressBar(this))
    , m_brushRadius(new QSpinBox(this))
    , m_tintOpacity(new QSpinBox(this))
    , m_amount(new QSpinBox(this))
    , m_outsideRegions(std::make_unique<PXOutsideRegions>())
    , m_selection(m_segmentation.get())
{
    const QSettings settings = studioSettings();
    m_maskColour = QColor::fromString(
        settings.value(QStringLiteral("tint/colour"), PXStudioView::defaultTint().name()).toString());
    if (!m_maskColour.isValid())
        m_maskColour = PXStudioView::defaultTint();
    const int opacity = std::clamp(
        settings.value(QStringLiteral("tint/opacity"), qRound(PXStudioView::myDefaultTintOpacity * 100)).toInt(), 0,
        100);
    m_view->setTint(m_maskColour, opacity / 100.0);
    m_segmentation->setMaskColor(m_maskColour);
    // The library's default is the plain cut; the studio's is the refined one.
    m_segmentation->setRefinedCut(settings.value(QStringLiteral("cut/refined"), true).toBool());

    setWindowTitle(tr("pxstudio"));
    setCentralWidget(m_view);

    m_progress->setMaximumWidth(220);
    m_progress->setTextVisible(true);
    m_progress->setVisible(false);
    statusBar()->addWidget(m_statusLabel, 1);
    statusBar()->addPermanentWidget(m_progress);

    m_brushRadius->setRange(1, 200);
    m_brushRadius->setValue(m_view->brushRadius());
    m_brushRadius->setSuffix(tr(" px"));
    m_brushRadius->setToolTip(tr("Brush radius"));
    m_brushRadius->setObjectName(QStringLiteral("brushRadius"));
    connect(m_brushRadius, &QSpinBox::valueChanged, m_view, &PXStudioView::setBrushRadius);
    m_tintOpacity->setObjectName(QStringLiteral("tintOpacity"));
    m_tintOpacity->setRange(0, 100);
    m_tintOpacity->setSuffix(tr(" %"));
    m_tintOpacity->setToolTip(tr("Opacity of the tint over the background"));
    m_tintOpacity->setValue(opacity);
    connect(m_tintOpacity, &QSpinBox::valueChanged, this, &PXStudioWindow::setTintOpacity);
    m_amount->setObjectName(QStringLiteral("amount"));
    m_amount->setRange(1, 100);
    m_amount->setValue(4);
    m_amount->setSuffix(tr(" px"));
    m_amount->setToolTip(tr("Pixels to grow, shrink or feather the selection by"));

    createActions();

    // The controller emits from its own thread; queued, every result is handled here.
    connect(m_segmentation.get(), &PXImageSegmentation::sendNewMask, this, &PXStudioWindow::showMask,
        Qt::QueuedConnection);
    connect(m_segmentation.get(), &PXImageSegmentation::segmentationProgress, this,
        &PXStudioWindow::showProgress, Qt::QueuedConnection);
    connect(m_scissors.get(), &PXIntelligentScissors::progessChanged, this,
        &PXStudioWindow::showScissorsProgress, Qt::QueuedConnection);

    connect(m_view, &PXStudioView::lassoDrawn, this, &PXStudioWindow::startCut);
    connect(m_view, &PXStudioView::clicked, this, &PXStudioWindow::toggleSuperpixel);
    connect(m_view, &PXStudioView::strokeDrawn, this, &PXStudioWindow::applyStroke);
    connect(m_view, &PXStudioView::brushHovered, this, &PXStudioWindow::previewBrush);
    connect(m_view, &PXStudioView::brushLeft, this, &PXStudioWindow::endPreview);
    connect(m_view, &PXStudioView::scissorsClicked, this, &PXStudioWindow::addScissorsSeed);
    connect(m_view, &PXStudioView::scissorsMoved, this, &PXStudioWindow::followScissors);
    connect(m_view, &PXStudioView::scissorsClosed, this, &PXStudioWindow::closeScissorsOutline);
    connect(m_view, &PXStudioView::fileDropped, this, &PXStudioWindow::openPhoto);

    m_clickTimer.setInterval(10);
    connect(&m_clickTimer, &QTimer::timeout, this, &PXStudioWindow::finishClick);
    m_restoreTimer.setInterval(10);
    connect(&m_restoreTimer, &QTimer::timeout, this, &PXStudioWindow::restoreRealMask);
    m_finalStrokeTimer.setInterval(5);
    connect(&m_finalStrokeTimer, &QTimer::timeout, this, &PXStudioWindow::sendFinalStroke);
    // Undo and redo restore a mask and emit it: a real mask, not a preview.
    connect(PXUndoController::instanceForFotoEditor()->undoStack(), &QUndoStack::indexChanged, this,
        &PXStudioWindow::beginRequest);

    setStatus(tr("Open a photo: File > Open, or drop one here. Help > Keys and mouse (F1) shows the tools."));
    resize(1000, 720);
}

PXStudioWindow::~PXStudioWindow()
{
    // The stack's commands point at the controller that is about to go.
    clearUndoStack();
    m_scissors->clear();
    m_segmentation->cancel();
}

// One flat list of every action, menu and tool bar, kept together so that a
// reader sees each action beside the places it appears in.
void PXStudioWindow::createActions()
{
    QUndoStack* stack = PXUndoController::instanceForFotoEditor()->undoStack();

    auto makeAction = [this](const QString& text, const char* name, const QKeySequence& shortcut = {}) {
        auto* action = new QAction(text, this);
        action->setObjectName(QString::fromLatin1(name));
        if (!shortcut.isEmpty())
            action->setShortcut(shortcut);
        return action;
    };

    QAction* open = makeAction(tr("&Open..."), "open", QKeySequence::Open);
    connect(open, &QAction::triggered, this, &PXStudioWindow::openPhotoDialog);
    QAction* exportAction = makeAction(tr("&Export cut-out..."), "export", QKeySequence(tr("Ctrl+E")));
    connect(exportAction, &QAction::triggered, this, &PXStudioWindow::exportDialog);
    QAction* saveSelectionAction = makeAction(tr("&Save selection..."), "saveSelection", QKeySequence(tr("Ctrl+Shift+S")));
    connect(saveSelectionAction, &QAction::triggered, this, &PXStudioWindow::saveSelectionDialog);
    QAction* loadSelectionAction = makeAction(tr("&Load selection..."), "loadSelection", QKeySequence(tr("Ctrl+Shift+O")));
    connect(loadSelectionAction, &QAction::triggered, this, &PXStudioWindow::loadSelectionDialog);
    QAction* quit = makeAction(tr("&Quit"), "quit", QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QWidget::close);

    QAction* undo = stack->createUndoAction(this);
    undo->setObjectName(QStringLiteral("undo"));
    undo->setShortcut(QKeySequence::Undo);
    QAction* redo = stack->createRedoAction(this);
    redo->setObjectName(QStringLiteral("redo"));
    redo->setShortcut(QKeySequence::Redo);
    // Every command of the controller reads "UndoSegmentation"; the actions
    // keep short names and show the command in their tool tips.
    auto keepShortNames = [undo, redo, stack] {
        undo->setText(tr("&Undo"));
        redo->setText(tr("&Redo"));
        undo->setToolTip(stack->undoText());
        redo->setToolTip(stack->redoText());
    };
    connect(stack, &QUndoStack::undoTextChanged, this, keepShortNames);
    connect(stack, &QUndoStack::redoTextChanged, this, keepShortNames);
    keepShortNames();
    connect(undo, &QAction::triggered, this, [this] { startAction(tr("Undo")); });
    connect(redo, &QAction::triggered, this, [this] { startAction(tr("Redo")); });
    QAction* grow = makeAction(tr("&Grow"), "grow", QKeySequence(tr("Ctrl+]")));
    grow->setToolTip(tr("Grow the selection by the amount's pixels"));
    connect(grow, &QAction::triggered, this, &PXStudioWindow::growSelection);
    QAction* shrink = makeAction(tr("S&hrink"), "shrink", QKeySequence(tr("Ctrl+[")));
    shrink->setToolTip(tr("Shrink the selection by the amount's pixels"));
    connect(shrink, &QAction::triggered, this, &PXStudioWindow::shrinkSelection);
    QAction* feather = makeAction(tr("&Feather"), "feather", QKeySequence(tr("Ctrl+Alt+F")));
    feather->setToolTip(tr("Soften the selection's edge over the amount's pixels"));
    connect(feather, &QAction::triggered, this, &PXStudioWindow::featherSelection);
    QAction* guide = makeAction(tr("&Keys and mouse"), "guide", QKeySequence(Qt::Key_F1));
    connect(guide, &QAction::triggered, this, &PXStudioWindow::showGuide);
    QAction* invert = makeAction(tr("&Invert"), "invert", QKeySequence(tr("Ctrl+I")));
    connect(invert, &QAction::triggered, this, &PXStudioWindow::invertMask);
    m_maskColourAction = makeAction(tr("&Colour..."), "maskColour");
    m_maskColourAction->setToolTip(tr("The colour of what is not cut out"));
    m_maskColourAction->setIcon(swatch(m_maskColour));
    connect(m_maskColourAction, &QAction::triggered, this, &PXStudioWindow::chooseMaskColour);
    QAction* cancelAction = makeAction(tr("&Cancel"), "cancel", QKeySequence(Qt::Key_Escape));
    connect(cancelAction, &QAction::triggered, this, &PXStudioWindow::cancel);

    QAction* zoomIn = makeAction(tr("Zoom &in"), "zoomIn", QKeySequence::ZoomIn);
    connect(zoomIn, &QAction::triggered, m_view, &PXStudioView::zoomIn);
    QAction* zoomOut = makeAction(tr("Zoom &out"), "zoomOut", QKeySequence::ZoomOut);
    connect(zoomOut, &QAction::triggered, m_view, &PXStudioView::zoomOut);
    QAction* fit = makeAction(tr("&Fit to window"), "fit", QKeySequence(tr("Ctrl+0")));
    connect(fit, &QAction::triggered, m_view, &PXStudioView::fitToWindow);
    QAction* actualSize = makeAction(tr("&Actual size"), "actualSize", QKeySequence(tr("Ctrl+1")));
    connect(actualSize, &QAction::triggered, m_view, [this] { m_view->setZoom(1); });
    m_contoursAction = makeAction(tr("Superpixel &contours"), "contours", QKeySequence(tr("Ctrl+K")));
    m_contoursAction->setIconText(tr("Contours"));
    m_contoursAction->setCheckable(true);
    connect(m_contoursAction, &QAction::toggled, this, &PXStudioWindow::setContoursVisible);
    QAction* refine = makeAction(tr("&Refine edges"), "refine", QKeySequence(tr("Ctrl+R")));
    refine->setIconText(tr("Refine"));
    refine->setToolTip(tr("The next lasso's cut follows the object's edges; off, it takes whole regions"));
    refine->setCheckable(true);
    refine->setChecked(m_segmentation->refinedCut());
    connect(refine, &QAction::toggled, this, [this](bool checked) {
        m_segmentation->setRefinedCut(checked);
        studioSettings().setValue(QStringLiteral("cut/refined"), checked);
    });

    m_softEdgeAction = makeAction(tr("&Soft edge"), "softEdge", QKeySequence(tr("Ctrl+Shift+E")));
    m_softEdgeAction->setToolTip(tr("Show and export the selection with the library's soft matte: hair, fur "
                                    "and blurred rims keep their soft edge, without the old background's colour"));
    m_softEdgeAction->setCheckable(true);
    m_softEdgeAction->setChecked(studioSettings().value(QStringLiteral("cut/softEdge"), false).toBool());
    connect(m_softEdgeAction, &QAction::toggled, this, [this](bool checked) {
        studioSettings().setValue(QStringLiteral("cut/softEdge"), checked);
        if (!m_view->mask().isNull() && !isBusy())
            m_view->setMask(shownMask(m_segmentation->maskForeground()));
    });

    m_tools = new QActionGroup(this);
    struct ToolEntry {
        QString text;
        const char* name;
        QKeySequence key;
        PXStudioView::Tool tool;
        QString tip;
    };
    const QList<ToolEntry> tools {
        { tr("&Lasso"), "tool.lasso", QKeySequence(tr("L")), PXStudioView::Lasso,
            tr("Draw round the object; releasing the button starts the cut") },
        { tr("&Click"), "tool.click", QKeySequence(tr("C")), PXStudioView::Click,
            tr("Click a superpixel to move it between object and background") },
        { tr("&Paint"), "tool.paint", QKeySequence(tr("P")), PXStudioView::Paint,
            tr("Paint whole superpixels into the object or the background") },
        { tr("&Scribble"), "tool.scribble", QKeySequence(tr("S")), PXStudioView::Scribble,
            tr("Paint single pixels into the object or the background") },
        { tr("Sc&issors"), "tool.scissors", QKeySequence(tr("W")), PXStudioView::Scissors,
            tr("Click seeds along an edge; double-click closes the outline and cuts") },
    };
    for (const ToolEntry& entry : tools) {
        QAction* action = makeAction(entry.text, entry.name, entry.key);
        action->setCheckable(true);
        action->setToolTip(entry.tip);
        action->setStatusTip(entry.tip);
        action->setData(int(entry.tool));
        action->setChecked(entry.tool == m_view->tool());
        m_tools->addAction(action);
    }
    connect(m_tools, &QActionGroup::triggered, this, [this](QAction* action) {
        if (m_view->tool() == PXStudioView::Scissors)
            dropScissorsOutline();
        m_view->setTool(PXStudioView::Tool(action->data().toInt()));
    });

    auto* targets = new QActionGroup(this);
    m_objectTarget = makeAction(tr("&Object"), "target.object");
    m_objectTarget->setToolTip(tr("Paint and scribble add to the object"));
    QAction* backgroundTarget = makeAction(tr("&Background"), "target.background");
    backgroundTarget->setToolTip(tr("Paint and scribble add to the background"));
    for (QAction* action : { m_objectTarget, backgroundTarget }) {
        action->setCheckable(true);
        targets->addAction(action);
    }
    m_objectTarget->setChecked(true);

    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(open);
    file->addAction(exportAction);
    file->addAction(saveSelectionAction);
    file->addAction(loadSelectionAction);
    file->addSeparator();
    file->addAction(quit);
    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(undo);
    edit->addAction(redo);
    edit->addSeparator();
    edit->addAction(invert);
    edit->addAction(m_maskColourAction);
    edit->addSeparator();
    edit->addAction(cancelAction);
    QMenu* select = menuBar()->addMenu(tr("&Select"));
    select->addAction(grow);
    select->addAction(shrink);
    select->addAction(feather);
    QMenu* viewMenu = menuBar()->addMenu(tr("&View"));
    viewMenu->addAction(zoomIn);
    viewMenu->addAction(zoomOut);
    viewMenu->addAction(fit);
    viewMenu->addAction(actualSize);
    viewMenu->addSeparator();
    viewMenu->addAction(m_contoursAction);
    viewMenu->addAction(m_softEdgeAction);
    QMenu* toolsMenu = menuBar()->addMenu(tr("&Tools"));
    toolsMenu->addActions(m_tools->actions());
    toolsMenu->addSeparator();
    toolsMenu->addActions(targets->actions());
    toolsMenu->addSeparator();
    toolsMenu->addAction(refine);
    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(guide);

    QToolBar* bar = addToolBar(tr("Tools"));
    bar->setObjectName(QStringLiteral("tools"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addActions(m_tools->actions());
    bar->addSeparator();
    bar->addActions(targets->actions());
    bar->addWidget(m_brushRadius);
    bar->addSeparator();
    bar->addAction(undo);
    bar->addAction(redo);
    bar->addAction(invert);
    bar->addAction(m_contoursAction);
    bar->addAction(refine);
    addToolBarBreak();
    QToolBar* selectionBar = addToolBar(tr("Selection"));
    selectionBar->setObjectName(QStringLiteral("selection"));
    selectionBar->setMovable(false);
    selectionBar->addAction(m_maskColourAction);
    selectionBar->addWidget(m_tintOpacity);
    selectionBar->addSeparator();
    selectionBar->addAction(grow);
    selectionBar->addAction(shrink);
    selectionBar->addAction(feather);
    selectionBar->addWidget(m_amount);
    // Esc and F1 must reach the window wherever the focus is.
    addAction(cancelAction);
    addAction(guide);
}

bool PXStudioWindow::openPhoto(const QString& path)
{
    QString error;
    const int maximalLength = PXSingleton<PXImageCutterSettings>::instance()->maximalImageLength();
    PXHostPhoto photo = PXHostPhoto::load(path, maximalLength, &error);
    if (photo.isNull()) {
        setStatus(tr("Cannot open %1").arg(error));
        return false;
    }
    dropScissorsOutline();
    m_scissors->clear();
    m_scissorsReady = false;
    clearUndoStack();
    m_clickTimer.stop();
    m_beforeClick.reset();
    m_selection.dropLasso();
    setCutRunning(false);
    m_regions = 0;
    m_lastAction.clear();

    m_photo = photo;
    m_segmentation->setup(m_photo.working(), m_photo.fileInfo());
    m_view->setPhoto(m_photo.working());
    m_contoursStale = true;
    setWindowTitle(tr("%1 - pxstudio").arg(m_photo.fileInfo().fileName()));
    const QSize size = m_photo.photo().size();
    setStatus(m_photo.isScaled()
            ? tr("%1: %2x%3, working on %4x%5. Draw a lasso round the object.")
                  .arg(m_photo.fileInfo().fileName())
                  .arg(size.width())
                  .arg(size.height())
                  .arg(m_photo.working().width())
                  .arg(m_photo.working().height())
            : tr("%1: %2x%3. Draw a lasso round the object.")
                  .arg(m_photo.fileInfo().fileName())
                  .arg(size.width())
                  .arg(size.height()));
    return true;
}

bool PXStudioWindow::saveSelection(const QString& path)
{
    const QImage selection = m_selection.selection();
    if (m_photo.isNull() || selection.isNull() || isBusy()) {
        setStatus(tr("Nothing to save yet: cut something out first."));
        return false;
    }
    if (!m_photo.toPhotoSize(selection).convertToFormat(QImage::Format_Grayscale8).save(path, "PNG")) {
        setStatus(tr("Cannot write %1").arg(path));
        return false;
    }
    setStatus(tr("Selection saved to %1").arg(path));
    return true;
}

bool PXStudioWindow::loadSelection(const QString& path)
{
    if (m_photo.isNull() || isBusy())
        return false;
    const QImage saved(path);
    if (saved.isNull()) {
        setStatus(tr("Cannot read the selection %1").arg(path));
        return false;
    }
    const QImage selection = PXSelectionMask::fromSaved(saved).scaled(m_photo.working().size(),
        Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    startAction(tr("Load selection"));
    beginRequest();
    m_selection.replace(selection, tr("Load selection"));
    m_view->setMask(shownMask(m_segmentation->maskForeground()));
    describeSelection();
    return true;
}

void PXStudioWindow::cut(const QPainterPath& lasso)
{
    startCut(lasso, Qt::NoModifier);
}

bool PXStudioWindow::exportCutOut(const QString& path)
{
    const QImage mask = m_segmentation->maskForeground();
    if (m_photo.isNull() || mask.isNull() || isBusy()) {
        setStatus(tr("Nothing to export yet: cut something out first."));
        return false;
    }
    // The matte is made on the full-size photo, so its edge is the photo's.
    const QImage cutout = m_softEdgeAction->isChecked() ? m_segmentation->matteCutout(m_photo.photo())
                                                        : PXHostImages::cutOut(m_photo.photo(), m_photo.toPhotoSize(mask));
    if (cutout.isNull() || !cutout.save(path)) {
        setStatus(tr("Cannot write %1").arg(path));
        return false;
    }
    setStatus(tr("Cut-out written to %1").arg(path));
    return true;
}

QImage PXStudioWindow::shownMask(const QImage& mask) const
{
    if (!m_softEdgeAction->isChecked() || mask.isNull())
        return mask;
    // Tens of milliseconds at the working size: made here, on the GUI thread.
    const QImage cutout = m_segmentation->matteCutout();
    if (cutout.isNull())
        return mask;
    QImage soft(cutout.size(), QImage::Format_ARGB32);
    for (int y = 0; y < cutout.height(); ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(cutout.constScanLine(y));
        QRgb* out = reinterpret_cast<QRgb*>(soft.scanLine(y));
        for (int x = 0; x < cutout.width(); ++x)
            out[x] = qRgba(0, 0, 0, 255 - qAlpha(in[x]));
    }
    return soft;
}

void PXStudioWindow::setMaskColour(const QColor& colour)
{
    if (!colour.isValid())
        return;
    m_maskColour = colour;
    m_maskColourAction->setIcon(swatch(colour));
    m_view->setTint(colour, m_view->tintOpacity());
    studioSettings().setValue(QStringLiteral("tint/colour"), QColor(colour.rgb()).name());
    beginRequest();
    m_segmentation->setMaskColor(colour);
}

void PXStudioWindow::setTintOpacity(int percent)
{
    m_view->setTint(m_maskColour, percent / 100.0);
    studioSettings().setValue(QStringLiteral("tint/opacity"), percent);
}

void PXStudioWindow::setBrushRadius(int radius)
{
    m_brushRadius->setValue(radius);
}

void PXStudioWindow::setBrushTargetIsObject(bool object)
{
    const auto actions = m_objectTarget->actionGroup()->actions();
    for (QAction* action : actions)
        action->setChecked((action == m_objectTarget) == object);
}

bool PXStudioWindow::isBusy() const
{
    return m_cutRunning || m_segmentation->isRunning() || m_clickTimer.isActive()
        || m_finalStrokeTimer.isActive() || m_restoreTimer.isActive();
}

QString PXStudioWindow::statusText() const
{
    return m_statusLabel->text();
}

void PXStudioWindow::setStatus(const QString& text)
{
    m_statusLabel->setText(text);
}

void PXStudioWindow::cancel()
{
    if (!m_outline.isEmpty()) {
        dropScissorsOutline();
        setStatus(tr("Outline dropped."));
        return;
    }
    if (isBusy()) {
        m_clickTimer.stop();
        m_beforeClick.reset();
        m_finalStrokeTimer.stop();
        m_segmentation->cancel();
        m_selection.dropLasso();
        setCutRunning(false);
        m_view->clearToolFeedback();
        setStatus(tr("Cancelled."));
    }
}

void PXStudioWindow::openPhotoDialog()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Open photo"),
        m_photo.isNull() ? QString() : m_photo.fileInfo().absolutePath(), photoFilter());
    if (!path.isEmpty())
        openPhoto(path);
}

void PXStudioWindow::exportDialog()
{
    if (m_photo.isNull())
        return;
    const QFileInfo& info = m_photo.fileInfo();
    const QString suggestion = info.absoluteDir().filePath(info.completeBaseName() + QStringLiteral("-cutout.png"));
    const QString path = QFileDialog::getSaveFileName(this, tr("Export cut-out"), suggestion,
        tr("PNG image (*.png)"));
    if (!path.isEmpty())
        exportCutOut(path);
}

void PXStudioWindow::saveSelectionDialog()
{
    if (m_photo.isNull())
        return;
    const QFileInfo& info = m_photo.fileInfo();
    const QString path = QFileDialog::getSaveFileName(this, tr("Save selection"),
        info.absoluteDir().filePath(info.completeBaseName() + QStringLiteral("-selection.png")),
        tr("PNG image (*.png)"));
    if (!path.isEmpty())
        saveSelection(path);
}

void PXStudioWindow::loadSelectionDialog()
{
    if (m_photo.isNull())
        return;
    const QString path = QFileDialog::getOpenFileName(this, tr("Load selection"),
        m_photo.fileInfo().absolutePath(), photoFilter());
    if (!path.isEmpty())
        loadSelection(path);
}

bool PXStudioWindow::canEditSelection()
{
    if (isBusy())
        return false;
    if (m_selection.selection().isNull()) {
        setStatus(tr("Draw a lasso first."));
        return false;
    }
    return true;
}

void PXStudioWindow::editSelection(const QString& name, const QImage& edited)
{
    beginRequest();
    m_selection.replace(edited, name);
    m_view->setMask(shownMask(m_segmentation->maskForeground()));
    describeSelection();
}

void PXStudioWindow::growSelection()
{
    if (!canEditSelection())
        return;
    startAction(tr("Grow by %1 px").arg(m_amount->value()));
    editSelection(m_lastAction, PXSelectionMask::grown(m_selection.selection(), m_amount->value()));
}

void PXStudioWindow::shrinkSelection()
{
    if (!canEditSelection())
        return;
    startAction(tr("Shrink by %1 px").arg(m_amount->value()));
    editSelection(m_lastAction, PXSelectionMask::shrunk(m_selection.selection(), m_amount->value()));
}

void PXStudioWindow::featherSelection()
{
    if (!canEditSelection())
        return;
    startAction(tr("Feather %1 px").arg(m_amount->value()));
    editSelection(m_lastAction, PXSelectionMask::feathered(m_selection.selection(), m_amount->value()));
}

void PXStudioWindow::showGuide()
{
    auto* box = findChild<QMessageBox*>(QStringLiteral("guideBox"));
    if (!box) {
        box = new QMessageBox(QMessageBox::Information, tr("Keys and mouse"), QString(), QMessageBox::Close, this);
        box->setObjectName(QStringLiteral("guideBox"));
        box->setModal(false);
        box->setTextFormat(Qt::RichText);
        box->setText(tr(
            "<table cellspacing=4>"
            "<tr><td><b>L</b> Lasso</td><td>drag round the object; the cut starts when you let go</td></tr>"
            "<tr><td><b>Shift</b>+lasso</td><td>adds the area to the selection</td></tr>"
            "<tr><td><b>Alt</b>+lasso</td><td>removes the area from the selection</td></tr>"
            "<tr><td><b>C</b> Click</td><td>moves the region under the cursor in or out</td></tr>"
            "<tr><td><b>P</b> Paint</td><td>moves whole regions under the brush; hover to preview</td></tr>"
            "<tr><td><b>S</b> Scribble</td><td>paints single pixels in or out</td></tr>"
            "<tr><td><b>W</b> Scissors</td><td>click seeds along an edge, double-click to close and cut</td></tr>"
            "<tr><td><b>Ctrl+]</b> / <b>Ctrl+[</b></td><td>grow / shrink the selection by the amount</td></tr>"
            "<tr><td><b>Ctrl+Alt+F</b></td><td>feather the selection's edge by the amount</td></tr>"
            "<tr><td><b>Ctrl+Z</b> / <b>Ctrl+Shift+Z</b></td><td>undo / redo any step, a new lasso too</td></tr>"
            "<tr><td><b>Ctrl+I</b></td><td>invert the selection</td></tr>"
            "<tr><td><b>Ctrl+R</b></td><td>Refine edges: on (the default), the next lasso's cut follows "
            "the object's edges; off, it takes whole regions</td></tr>"
            "<tr><td><b>Ctrl+wheel</b>, <b>Ctrl++</b>, <b>Ctrl+-</b></td><td>zoom; <b>Ctrl+0</b> fits the photo</td></tr>"
            "<tr><td>middle button, wheel</td><td>pan</td></tr>"
            "<tr><td><b>Esc</b></td><td>stops a cut or drops the scissors' outline</td></tr>"
            "<tr><td><b>Ctrl+E</b>, <b>Ctrl+Shift+S</b></td><td>export the cut-out, save the selection</td></tr>"
            "</table>"));
    }
    box->show();
}

void PXStudioWindow::chooseMaskColour()
{
    const QColor colour = QColorDialog::getColor(m_maskColour, this, tr("Mask colour"));
    setMaskColour(colour);
}

void PXStudioWindow::invertMask()
{
    // While the controller works, an inversion would flip only its flag.
    if (isBusy() || !m_segmentation->isValid())
        return;
    beginRequest();
    m_segmentation->invertMask();
}

void PXStudioWindow::setContoursVisible(bool visible)
{
    if (m_contoursAction->isChecked() != visible)
        m_contoursAction->setChecked(visible);
    if (visible)
        refreshContours();
    else
        m_view->setContours(QImage());
}

void PXStudioWindow::refreshContours()
{
    if (!m_contoursAction->isChecked())
        return;
    if (!m_segmentation->isValid()) {
        m_view->setContours(QImage());
        return;
    }
    if (m_contoursStale || !m_view->hasContours()) {
        m_view->setContours(m_segmentation->drawContour());
        m_contoursStale = false;
    }
}

void PXStudioWindow::setCutRunning(bool running)
{
    m_cutRunning = running;
    m_progress->setVisible(running);
    if (running) {
        m_progress->setRange(0, 0);
        m_progress->setValue(0);
    }
}

void PXStudioWindow::showMask(const QImage& mask)
{
    if (m_expectPreview && !m_hovering) {
        m_restoreTimer.start();
        return;
    }
    if (mask.isNull()) {
        // reset() announces a new cut or a cancellation with a null mask;
        // undoing the first lasso brings back no selection.
        m_view->setMask(QImage());
        if (!m_cutRunning)
            setStatus(tr("No selection: draw a lasso round the object."));
        return;
    }
    if (m_cutRunning) {
        setCutRunning(false);
        m_view->clearToolFeedback();
        m_selection.finishLasso();
        m_regions = PXSegmentationQueries::regionCount(*m_segmentation, m_photo.working().size());
        m_contoursStale = true;
        refreshContours();
        m_view->setMask(shownMask(m_segmentation->maskForeground()));
    } else {
        m_view->setMask(m_hovering ? mask : shownMask(mask));
    }
    // A preview is not the selection; the status keeps describing the real one.
    if (!m_hovering)
        describeSelection();
}

void PXStudioWindow::startAction(const QString& name)
{
    m_lastAction = name;
    m_actionTimer.start();
    m_strokeIgnored = false;
}

void PXStudioWindow::describeSelection()
{
    const QImage mask = m_segmentation->maskForeground();
    if (mask.isNull())
        return;
    QString text = tr("Selection: %1% of the photo, %2 regions.")
                       .arg(100 * PXSelectionMask::selectedShare(PXSelectionMask::fromMask(mask)), 0, 'f', 1)
                       .arg(m_regions);
    if (!m_lastAction.isEmpty())
        text += tr(" %1: %2 s.").arg(m_lastAction).arg(m_actionTimer.elapsed() / 1000.0, 0, 'f', 2);
    if (m_strokeIgnored)
        text += tr(" Paint ignored where the brush touched a region reaching outside the lasso: "
                   "in the plain cut it would put all outside the lasso into the object.");
    setStatus(text);
}

void PXStudioWindow::showProgress(int current, int total)
{
    if (!m_cutRunning || total <= 0)
        return;
    m_progress->setRange(0, total);
    m_progress->setValue(std::clamp(current, 0, total));
}

void PXStudioWindow::showScissorsProgress(double value)
{
    if (m_cutRunning)
        return;
    // Fractions while the costs are computed; stopping reports a raw count.
    m_progress->setVisible(value < 1);
    if (value >= 1)
        return;
    m_progress->setRange(0, 100);
    m_progress->setValue(int(value * 100));
}

void PXStudioWindow::startCut(const QPainterPath& lasso, Qt::KeyboardModifiers modifiers)
{
    if (m_photo.isNull())
        return;
    PXStudioSelection::LassoMode mode = PXStudioSelection::Replace;
    if (modifiers & Qt::ShiftModifier)
        mode = PXStudioSelection::Add;
    else if (modifiers & Qt::AltModifier)
        mode = PXStudioSelection::Subtract;
    startAction(mode == PXStudioSelection::Add ? tr("Add lasso")
            : mode == PXStudioSelection::Subtract ? tr("Subtract lasso")
                                                  : tr("Lasso"));
    m_selection.beginLasso(mode);
    m_cutIsRefined = m_segmentation->refinedCut();
    m_clickTimer.stop();
    m_beforeClick.reset();
    m_finalStrokeTimer.stop();
    beginRequest();
    setCutRunning(true);
    setStatus(tr("Cutting... (Esc cancels)"));
    m_segmentation->startThreadWithInitialPath(lasso);
}

bool PXStudioWindow::canRefine()
{
    if (!m_segmentation->isValid() || m_segmentation->maskForeground().isNull()) {
        setStatus(tr("Draw a lasso first."));
        return false;
    }
    return !m_cutRunning && !m_clickTimer.isActive() && !m_finalStrokeTimer.isActive();
}

void PXStudioWindow::toggleSuperpixel(const QPointF& position)
{
    // The clicker changes the mask on a pool thread without a lock of its own.
    if (!canRefine() || m_segmentation->isRunning())
        return;
    // Outside the lasso the library would toggle all that the lasso left out.
    if (!PXSegmentationQueries::insideLasso(*m_segmentation, position)) {
        setStatus(tr("Click inside the last lasso: outside it there are no regions to move."));
        return;
    }
    startAction(tr("Click"));
    beginRequest();
    m_beforeClick.reset(m_segmentation->createMemento(false));
    m_segmentation->startThreadWithClicker(position);
    m_clickTimer.start();
}

void PXStudioWindow::finishClick()
{
    if (QThreadPool::globalInstance()->activeThreadCount() > 0)
        return;
    m_clickTimer.stop();
    if (!m_beforeClick)
        return;
    // The library makes no undo command for a click; the studio does, from
    // the states before and after it.
    PXMementoSegmentation* after = m_segmentation->createMemento(false);
    m_segmentation->undoController()->push(
        new PXUndoCommandSegmentation(m_beforeClick.release(), after, m_segmentation.get()));
    m_view->setMask(shownMask(m_segmentation->maskForeground()));
    describeSelection();
}

void PXStudioWindow::applyStroke(const QPainterPath& stroke, bool isFinal)
{
    if (!canRefine())
        return;
    const bool object = m_objectTarget->isChecked();
    const bool scribble = m_view->tool() == PXStudioView::Scribble;
    // A gesture keeps saying that a piece of it was ignored.
    const bool ignoredBefore = m_inStroke && m_strokeIgnored;
    startAction(scribble ? tr("Scribble") : tr("Paint"));
    beginRequest();
    m_inStroke = !isFinal;
    const bool ignored = !scribble && wouldSelectOutside(stroke, object);
    m_strokeIgnored = ignoredBefore || ignored;
    if (ignored) {
        describeSelection();
        // The pieces sent before still make one undo step.
        if (isFinal) {
            m_finalStroke = QPainterPath();
            m_finalStrokeTimer.start();
        }
        return;
    }
    if (isFinal && m_segmentation->isRunning()) {
        m_finalStroke = stroke;
        m_finalStrokeIsScribble = scribble;
        m_finalStrokeIsObject = object;
        m_finalStrokeTimer.start();
        return;
    }
    // Every piece but the last is temporary: the controller keeps the state
    // before the first one and pushes one undo command at the last.
    if (scribble)
        m_segmentation->startThreadWithScribble(stroke, object, !isFinal);
    else
        m_segmentation->startThreadWithPaintSelection(stroke, object, !isFinal);
}

void PXStudioWindow::sendFinalStroke()
{
    if (m_segmentation->isRunning())
        return;
    m_finalStrokeTimer.stop();
    if (m_finalStroke.isEmpty())
        m_segmentation->pushUndoCommand();
    else if (m_finalStrokeIsScribble)
        m_segmentation->startThreadWithScribble(m_finalStroke, m_finalStrokeIsObject, false);
    else
        m_segmentation->startThreadWithPaintSelection(m_finalStroke, m_finalStrokeIsObject, false);
    m_finalStroke = QPainterPath();
}

void PXStudioWindow::previewBrush(const QPointF& position)
{
    // A hover request replaces the controller's mode; sent while a stroke is
    // still being applied it would leave that stroke unpainted.
    if (!m_segmentation->isValid() || m_segmentation->maskForeground().isNull() || isBusy())
        return;
    // The controller's brush reaches half its radius argument.
    const QSet<int> clusters = m_segmentation->superpixels(position.toPoint(), 2 * m_view->brushRadius());
    if (clusters == m_hoverClusters && m_hovering)
        return;
    m_hoverClusters = clusters;
    // A stroke there would be ignored; its preview would show the whole outside selected.
    const QPainterPath brush = PXPointList::brushStroke({ position }, m_view->brushRadius());
    if (clusters.isEmpty() || wouldSelectOutside(brush, m_objectTarget->isChecked())) {
        endPreview();
        return;
    }
    m_hovering = true;
    m_expectPreview = true;
    m_segmentation->startThreadWithPaintSelectionHover(clusters, m_objectTarget->isChecked());
}

void PXStudioWindow::endPreview()
{
    if (!m_hovering)
        return;
    m_hovering = false;
    m_hoverClusters.clear();
    m_restoreTimer.start();
}

void PXStudioWindow::restoreRealMask()
{
    if (m_segmentation->isRunning())
        return;
    m_restoreTimer.stop();
    m_view->setMask(shownMask(m_segmentation->maskForeground()));
}

bool PXStudioWindow::wouldSelectOutside(const QPainterPath& stroke, bool object)
{
    // The refined cut keeps the object inside the lasso by itself.
    return object && !m_cutIsRefined && m_outsideRegions->touchedBy(*m_segmentation, stroke);
}

QPointF PXStudioWindow::clampedToPhoto(const QPointF& position) const
{
    const QSize size = m_photo.working().size();
    return QPointF(std::clamp(position.x(), 0.0, qreal(size.width() - 1)),
        std::clamp(position.y(), 0.0, qreal(size.height() - 1)));
}

QList<QPointF> PXStudioWindow::wireTo(const QPointF& position)
{
    QList<QPointF> wire;
    if (!m_scissors->containsWireToPoint(position))
        return wire;
    const QList<QPoint> trace = m_scissors->bestWire(position);
    // The scissors trace from the point back to the seed.
    for (auto it = trace.crbegin(); it != trace.crend(); ++it)
        wire.append(QPointF(*it));
    return wire;
}

void PXStudioWindow::addScissorsSeed(const QPointF& position)
{
    if (m_photo.isNull() || m_cutRunning)
        return;
    const QPointF point = clampedToPhoto(position);
    if (!m_scissorsReady) {
        m_scissors->setup(m_photo.working());
        m_scissorsReady = true;
    }
    if (m_outline.isEmpty()) {
        m_outline.append(point);
    } else {
        // Where the search has not reached yet, the outline takes a straight line.
        const QList<QPointF> wire = wireTo(point);
        if (wire.isEmpty())
            m_outline.append(point);
        else
            m_outline.append(wire.mid(1));
    }
    m_scissors->initializeSeed(point);
    m_view->setScissorsOutline(m_outline, {});
    setStatus(tr("Scissors: %1 points. Click to add a seed, double-click to close, Esc to drop.")
                  .arg(m_outline.size()));
}

void PXStudioWindow::followScissors(const QPointF& position)
{
    if (m_outline.isEmpty())
        return;
    const QList<QPointF> wire = wireTo(clampedToPhoto(position));
    if (!wire.isEmpty())
        m_view->setScissorsOutline(m_outline, wire);
}

void PXStudioWindow::closeScissorsOutline()
{
    if (m_outline.size() < 3) {
        setStatus(tr("An outline needs at least three points."));
        return;
    }
    const QPainterPath lasso = PXPointList::closedPolygon(m_outline);
    dropScissorsOutline();
    m_view->setScissorsOutline({}, {});
    startCut(lasso, Qt::NoModifier);
}

void PXStudioWindow::dropScissorsOutline()
{
    m_outline.clear();
    if (m_scissorsReady)
        m_scissors->stopRunning();
    m_view->clearToolFeedback();
}

void PXStudioWindow::beginRequest()
{
    m_restoreTimer.stop();
    m_hovering = false;
    m_expectPreview = false;
    m_hoverClusters.clear();
}

void PXStudioWindow::clearUndoStack()
{
    PXUndoController::instanceForFotoEditor()->undoStack()->clear();
}
