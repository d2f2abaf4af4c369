// SPDX-License-Identifier: BSD-3-Clause
//
// A window with the installed packages and the operations, in Qt Quick. With an argument, it saves a
// picture of itself to that file once an operation has ended, and closes.

#include "models.h"

#include <QAbstractEventDispatcher>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickWindow>
#include <QThread>
#include <QTimer>

#include <glib.h>

namespace {

/// Where Qt runs without GLib (QT_NO_GLIB=1, or a Qt that was built without it), no event of the library
/// arrives and nothing says so. A timer that iterates the context delivers them.
void IterateGlib(QTimer& timer)
{
    const QByteArray dispatcher =
        QThread::currentThread()->eventDispatcher()->metaObject()->className();
    if (dispatcher.contains("Glib")) {
        return;
    }
    QObject::connect(&timer, &QTimer::timeout, [] {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
    });
    timer.start(50); // milliseconds: what a user takes for "at once"
}

/// Saves the window when an operation has ended and been drawn.
void SaveAtTheEnd(QQuickWindow& window, const OperationModel& operations, const QString& file)
{
    const auto check = [&window, &operations, file] {
        const int last = operations.rowCount() - 1;
        if (last < 0 || operations.data(operations.index(last), OperationModel::Progress) != 1.0) {
            return;
        }
        QTimer::singleShot(0, &window, [&window, file] {
            const bool saved = window.grabWindow().save(file);
            QCoreApplication::exit(saved ? 0 : 1);
        });
    };
    QObject::connect(&operations, &QAbstractListModel::dataChanged, &window, check);
    QObject::connect(&operations, &QAbstractListModel::rowsInserted, &window, check);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication application(argc, argv);
    const auto connection = Emporium::GetDaemonConnection();
    if (!connection) {
        return 3;
    }
    PackageModel packages(connection);
    OperationModel operations(connection);
    QTimer timer;
    IterateGlib(timer);

    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty("packageModel", &packages);
    engine.rootContext()->setContextProperty("operationModel", &operations);
    engine.load(QUrl("qrc:/window.qml"));
    auto* const window = engine.rootObjects().isEmpty()
                             ? nullptr
                             : qobject_cast<QQuickWindow*>(engine.rootObjects().first());
    if (window == nullptr) {
        return 1;
    }
    if (argc > 1) {
        SaveAtTheEnd(*window, operations, argv[1]);
    }
    return application.exec();
}
