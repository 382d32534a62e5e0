#include "PXPythonHost.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <stdexcept>

namespace {
std::atomic<PXPythonHost*> myStartedHost { nullptr };
} // namespace

PXPythonHost& PXPythonHost::instance()
{
    static PXPythonHost myHost;
    myStartedHost = &myHost;
    return myHost;
}

void PXPythonHost::shutdownIfStarted()
{
    if (PXPythonHost* host = myStartedHost.load())
        host->shutdown();
}

PXPythonHost::~PXPythonHost()
{
    if (m_applicationThread.joinable())
        m_applicationThread.detach();
}

PXPythonHost::PXPythonHost()
{
    if (QCoreApplication::instance()) {
        m_ownThread = new QThread;
        m_ownThread->setObjectName(QStringLiteral("pximagecutter"));
        m_ownThread->start();
        m_context = new QObject;
        m_context->moveToThread(m_ownThread);
        return;
    }
    std::promise<QObject*> ready;
    m_applicationThread = std::thread([&ready] {
        // No window is ever shown; a display, if any, is not needed.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "pximagecutter";
        static char* argv[] = { name, nullptr };
        QGuiApplication application(argc, argv);
        QObject context;
        ready.set_value(&context);
        application.exec();
    });
    m_context = ready.get_future().get();
}

void PXPythonHost::run(const std::function<void()>& task)
{
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        if (m_stopped)
            throw std::runtime_error("pximagecutter has shut down (the interpreter is exiting)");
    }
    if (QThread::currentThread() == m_context->thread()) {
        task();
        return;
    }
    std::exception_ptr failure;
    QMetaObject::invokeMethod(
        m_context,
        [&] {
            try {
                task();
            } catch (...) {
                failure = std::current_exception();
            }
        },
        Qt::BlockingQueuedConnection);
    if (failure)
        std::rethrow_exception(failure);
}

int PXPythonHost::addRelease(std::function<void()> release)
{
    std::lock_guard<std::mutex> locker(m_mutex);
    m_releases.emplace_back(++m_nextKey, std::move(release));
    return m_nextKey;
}

void PXPythonHost::removeRelease(int key)
{
    std::lock_guard<std::mutex> locker(m_mutex);
    m_releases.erase(std::remove_if(m_releases.begin(), m_releases.end(),
                         [key](const auto& entry) { return entry.first == key; }),
        m_releases.end());
}

void PXPythonHost::shutdown()
{
    std::vector<std::pair<int, std::function<void()>>> releases;
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        if (m_stopped)
            return;
        releases.swap(m_releases);
    }
    run([&] {
        for (auto& entry : releases)
            entry.second();
    });
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        m_stopped = true;
    }
    if (m_ownThread) {
        QMetaObject::invokeMethod(m_context, [context = m_context] { delete context; }, Qt::BlockingQueuedConnection);
        m_ownThread->quit();
        m_ownThread->wait();
        delete m_ownThread;
        m_ownThread = nullptr;
    } else {
        QMetaObject::invokeMethod(m_context, [] { QCoreApplication::quit(); }, Qt::QueuedConnection);
        m_applicationThread.join();
    }
    m_context = nullptr;
}
