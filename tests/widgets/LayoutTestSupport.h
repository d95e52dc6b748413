#pragma once

#include "telemetry/TelemetryData.h"
#include "tests/support/ScriptedPrompter.h"
#include "widgets/layout/LayoutJsonReader.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SerializableWidget.h"
#include "widgets/layout/WidgetContainer.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/layout/WindowHub.h"

#include <QAction>
#include <QCoreApplication>
#include <QDropEvent>
#include <QEvent>
#include <QList>
#include <QMenu>
#include <QMimeData>

#include <memory>

// What the window tests share: a manager with hub and store, message boxes and questions recorded and
// answered by a script instead of shown, and a few ways to look at the window tree.
struct LayoutFixture
{
    explicit LayoutFixture(DatabaseManager *database = nullptr)
        : hub(std::make_unique<WindowHub>()), store(std::make_unique<TelemetryData>()),
          manager(std::make_unique<WidgetManager>(hub.get(), store.get(), database))
    {
        manager->setPrompter(&prompter);
    }
    ~LayoutFixture()
    {
        manager.reset();
        flush();
    }

    WidgetContainer *root() const { return manager->mainContainer(); }

    bool load(const QByteArray &json)
    {
        QString error;
        const bool ok = manager->loadLayout(json, &error);
        lastError = error;
        flush();
        return ok;
    }

    // Runs the deferred deletions of removed containers and windows.
    static void flush() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    ScriptedPrompter prompter; // outlives the manager and its windows
    std::unique_ptr<WindowHub> hub;
    std::unique_ptr<TelemetryData> store;
    std::unique_ptr<WidgetManager> manager;
    QString lastError;
};

inline QList<WidgetContainer *> leavesOf(WidgetContainer *container)
{
    if (container->isLeaf())
        return {container};
    QList<WidgetContainer *> leaves;
    for (WidgetContainer *child : container->childContainers())
        leaves += leavesOf(child);
    return leaves;
}

// A window's own object as a layout keeps it.
inline QByteArray saved(SerializableWidget &window, quint8 flag)
{
    LayoutJsonWriter writer;
    writer.beginObject();
    window.save(writer, flag);
    writer.endObject();
    return writer.data();
}

inline LayoutJsonValue parsed(const QByteArray &json)
{
    LayoutJsonReader reader;
    LayoutJsonValue value;
    reader.parse(json, &value);
    return value;
}

// One leaf container holding one window object.
inline QByteArray leafJson(const QByteArray &window, int size = 100)
{
    return R"({"Type":"Container","Vertical":0,"Items":[)" + window + R"(],"Sizes":[)" +
           QByteArray::number(size) + "]}";
}

inline QByteArray layoutJson(const QByteArray &mainContainer, const QByteArray &floating = "[]")
{
    return R"({"Main-Container":)" + mainContainer + R"(,"Container":)" + floating + "}";
}

// A menu's entries by their text, separators as "-".
inline QStringList menuTexts(const QMenu *menu)
{
    QStringList texts;
    for (const QAction *a : menu->actions())
        texts << (a->isSeparator() ? QStringLiteral("-") : a->text());
    return texts;
}

// The first entry whose text starts with prefix.
inline QAction *menuEntry(const QMenu *menu, const QString &prefix)
{
    for (QAction *a : menu->actions()) {
        if (!a->isSeparator() && a->text().startsWith(prefix))
            return a;
    }
    return nullptr;
}

// Drags data onto the window's centre and drops it there when the window takes it; false when refused.
// Takes the data.
inline bool dropOn(QWidget *window, QMimeData *data)
{
    const std::unique_ptr<QMimeData> owned(data);
    const QPoint at = window->rect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(window, &enter);
    QDropEvent drop(at, Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    if (enter.isAccepted())
        QCoreApplication::sendEvent(window, &drop);
    return enter.isAccepted();
}
