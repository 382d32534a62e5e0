#pragma once

#include <QObject>

#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class QThread;

/**
 * The Qt side of the Python module: one thread with an event loop on which
 * every library object of the module is created, driven and deleted.
 *
 * The library's controller receives its worker's results through a queued
 * connection, so the thread it lives in must run an event loop; a Python
 * thread never does. instance() starts that thread on first use from any
 * Python thread: where the process has no QCoreApplication yet it creates a
 * QGuiApplication (offscreen unless QT_QPA_PLATFORM says otherwise) on the
 * thread and runs its loop there; otherwise a QThread of its own runs the loop.
 *
 * Callers release the GIL before run(): the host thread never takes it.
 */
class PXPythonHost
{
public:
    /** The host, started on first use. Thread-safe. */
    static PXPythonHost& instance();
    /** shutdown() of the host if instance() ever started it. */
    static void shutdownIfStarted();

    /**
     * Runs @p task on the host thread and returns when it is done; a C++
     * exception it throws is rethrown here. Runs @p task in place when called
     * on the host thread, and throws std::runtime_error after shutdown().
     */
    void run(const std::function<void()>& task);

    /**
     * Registers @p release, which frees a session's library objects on the
     * host thread at shutdown() unless the session removes it first.
     * Returns its key.
     */
    int addRelease(std::function<void()> release);
    void removeRelease(int key);

    /**
     * Releases the sessions still alive, stops the event loop and joins the
     * thread; called once at interpreter exit, before static destructors
     * could meet a running loop.
     */
    void shutdown();

private:
    PXPythonHost();
    // Without shutdown() (no interpreter exit ran) the loop is left to the process's end.
    ~PXPythonHost();

    QObject* m_context = nullptr;
    QThread* m_ownThread = nullptr;
    std::thread m_applicationThread;
    std::mutex m_mutex;
    std::vector<std::pair<int, std::function<void()>>> m_releases;
    int m_nextKey = 0;
    bool m_stopped = false;
};
