#pragma once

#include "widgets/layout/SerializableWidget.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>

class DatabaseManager;
class LayoutJsonWriter;
class QMainWindow;
class TelemetryData;
class TelemetryVar;
class WidgetContainer;
class WindowHub;

// The registry behind the window tree: which window types exist and how they are made, the live data
// windows and the active one, the property clipboard, the floating windows, and the layout document of
// the whole arrangement (to and from text, files and the database). Interface thread only.
class WidgetManager : public QObject
{
    Q_OBJECT
public:
    // Makes a window of one type; it must also be a SerializableWidget. Null falls back to a placeholder.
    using Factory = std::function<QWidget *(WidgetManager *manager)>;
    // Connects a new window of one type to the hub and the store (either may be null).
    using Wiring = std::function<void(QWidget *window, WindowHub *hub, TelemetryData *store)>;

    // hub, store and database may be null (then nothing is connected, or stored).
    WidgetManager(WindowHub *hub, TelemetryData *store, DatabaseManager *database, QObject *parent = nullptr);
    ~WidgetManager() override;

    WindowHub *hub() const;
    TelemetryData *telemetry() const;
    DatabaseManager *database() const;
    // The main container, made by the manager; the main window makes it its central widget.
    QWidget *rootWidget() const;
    WidgetContainer *mainContainer() const;

    // Window types by their layout key, compared without regard to case. Types without a factory are
    // shown as placeholders that keep their settings.
    void registerType(const QString &typeKey, Factory factory, Wiring wiring = {});
    // The usual form: make returns a W, and W's own wire function connects it, so the compiler checks
    // every signal and slot of the type's wiring.
    template <class W, class Make>
    void registerWindow(const QString &typeKey, Make make, void (*wire)(W *, WindowHub *, TelemetryData *))
    {
        registerType(
            typeKey, [make](WidgetManager *m) -> QWidget * { return make(m); },
            [wire](QWidget *window, WindowHub *hub, TelemetryData *store) {
                if (auto *w = qobject_cast<W *>(window))
                    wire(w, hub, store);
            });
    }
    bool hasFactory(int typeCode) const;
    // A new, unregistered window of this type: the registered factory's or a placeholder. Never null.
    QWidget *createWindow(int typeCode);

    // Live windows. Registering connects the window by its type and makes it the active one.
    void registerWidget(QWidget *window, int typeCode);
    void unregisterWidget(QWidget *window);
    // Unregisters root (when it is a window) and every window inside it.
    void unregisterWidgetsIn(QWidget *root);
    QList<QWidget *> widgets() const;
    int windowType(QWidget *window) const;
    void setActiveWidget(QWidget *window);
    QWidget *activeWidget() const { return m_active; }
    // A container reports that the user focused its window.
    void windowFocused(QWidget *window);

    // One window's saved object, for "Paste window properties".
    void setClipboard(const QByteArray &bytes) { m_clipboard = bytes; }
    bool hasClipboard() const { return !m_clipboard.isEmpty(); }
    QByteArray clipboard() const { return m_clipboard; }

    // A floating "DataWindow" around an undocked or loaded container, owned by the main window.
    QMainWindow *createDataWindow(WidgetContainer *root);
    QList<QMainWindow *> dataWindows() const;

    // The layout document: the main container, then the visible floating windows.
    void saveLayout(LayoutJsonWriter &writer, quint8 flag);
    QByteArray saveLayout(quint8 flag = SerializableWidget::kForDatabase);
    // Replaces the whole arrangement, floating windows included. A document that is not a valid layout
    // changes nothing; error gets the reason.
    bool loadLayout(const QByteArray &json, QString *error);
    // Files: written atomically, without the bindings to variables; read with the size bound.
    bool writeLayoutFile(const QString &path, QString *error);
    bool readLayoutFile(const QString &path, QString *error);
    // The model's layout in the database. A model without one gets the default layout.
    bool loadLayoutForModel(int modelId, QString *error);
    bool saveLayoutForModel(int modelId, QString *error);

    // The same operations as the user starts them, reporting failures in message boxes.
    bool importDefaultLayout(QWidget *parent);
    // File dialog "Save layout as", then exportLayoutFile(); false also when cancelled.
    bool exportLayoutToFile(QWidget *parent, const QString &startFolder);
    bool exportLayoutFile(const QString &path, QWidget *parent);
    // File dialog "Import layout", then importLayoutFile().
    bool importLayoutFromFile(QWidget *parent, const QString &startFolder);
    bool importLayoutFile(const QString &path, QWidget *parent);
    // A named layout from the database.
    bool loadStoredLayout(const QByteArray &json, QWidget *parent);
    // Loads the model's layout; when that fails, says so and loads the default layout.
    bool activateModel(int modelId, QWidget *parent);
    bool saveSessionForModel(int modelId, QWidget *parent);
    // The dialogs that store the layout under a name and load a named one.
    void saveLayoutToDatabase(QWidget *parent);
    void loadLayoutFromDatabase(QWidget *parent);
    // The folder of the last layout file chosen in a dialog.
    QString lastFolder() const { return m_lastFolder; }

    // Runs job from the event loop once no menu or modal dialog is open. A layout swap deletes windows,
    // and a window whose menu or dialog is still running on the stack must not go away under it.
    void runWhenIdle(std::function<void()> job);
    static bool isInteracting();
    // Whether the user rearranged the windows since the last layout was loaded. Splitter sizes and
    // window geometry do not count: they follow the main window's size.
    bool layoutChangedSinceLoad();

    // How the windows, their containers and the layout dialogs ask and tell the user; null: real dialogs.
    // Handed to every window and container now and to each one made later; it must outlive them.
    void setPrompter(Prompter *prompter);
    Prompter *prompter() const { return m_prompter; }

public slots:
    // A double click in the sensor list: the active window gets the variable.
    void addSensorToActiveWidget(const TelemetryVar *variable);
    // The playback position moves the shared cursor of every window.
    void setPlaybackTime(qint64 ms);

signals:
    void activeWidgetChanged(QWidget *window);
    void layoutLoaded();

private:
    void closeDataWindows();
    QByteArray arrangement();
    QWidget *dialogParent(QWidget *parent) const;

    QPointer<WindowHub> m_hub;
    QPointer<TelemetryData> m_store;
    QPointer<DatabaseManager> m_database;
    QPointer<WidgetContainer> m_root;
    QHash<QString, Factory> m_factories; // by lower-case key
    QHash<QString, Wiring> m_wirings;    // by lower-case key
    QHash<QWidget *, int> m_types;       // registered windows and their type codes
    QList<QWidget *> m_windows;          // registration order
    QPointer<QWidget> m_active;
    QList<QPointer<QMainWindow>> m_dataWindows;
    QByteArray m_clipboard;
    QString m_lastFolder;
    QByteArray m_loadedArrangement;
    Prompter *m_prompter = Prompter::standard();
};
