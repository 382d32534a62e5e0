#include "PXUndoCommand.h"
#include "PXUndoController.h"

#include <QTest>
#include <QThread>
#include <QUndoStack>

namespace {
class CountingCommand : public PXUndoCommand
{
public:
    CountingCommand(bool executeOnPush, int* done, int* undone)
        : PXUndoCommand(QStringLiteral("Counting"), nullptr, executeOnPush)
        , m_done(done)
        , m_undone(undone)
    {
    }
    ~CountingCommand() override { ++destroyed; }
    void doCoreAction() override { ++*m_done; }
    void undoCore() override { ++*m_undone; }

    static int destroyed;

private:
    int* m_done;
    int* m_undone;
};
int CountingCommand::destroyed = 0;
} // namespace

class TestPXCoreServices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstRedoSkippedUnlessExecuteOnPush_data()
    {
        QTest::addColumn<bool>("executeOnPush");
        QTest::addColumn<int>("doneAfterPush");
        QTest::newRow("already on screen") << false << 0;
        QTest::newRow("executes on push") << true << 1;
    }
    void firstRedoSkippedUnlessExecuteOnPush()
    {
        QFETCH(bool, executeOnPush);
        QFETCH(int, doneAfterPush);
        int done = 0;
        int undone = 0;
        QUndoStack stack;
        stack.push(new CountingCommand(executeOnPush, &done, &undone));
        QCOMPARE(done, doneAfterPush);
        stack.undo();
        QCOMPARE(undone, 1);
        stack.redo();
        QCOMPARE(done, doneAfterPush + 1);
    }

    void pushFromWorkerThreadIsQueued()
    {
        PXUndoController* controller = PXUndoController::instanceForFotoEditor();
        QUndoStack* stack = controller->undoStack();
        stack->clear();

        int done = 0;
        int undone = 0;
        QThread* thread = QThread::create([&] { controller->push(new CountingCommand(false, &done, &undone)); });
        thread->start();
        QVERIFY(thread->wait(5000));
        delete thread;
        QCOMPARE(stack->count(), 0); // not yet: the push is queued to this thread
        QTRY_COMPARE(stack->count(), 1);
        QCOMPARE(done, 0);

        const int destroyedBefore = CountingCommand::destroyed;
        stack->clear();
        QCOMPARE(CountingCommand::destroyed, destroyedBefore + 1);
        controller->push(nullptr);
        QCOMPARE(stack->count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestPXCoreServices)
#include "tst_pxcoreservices.moc"
