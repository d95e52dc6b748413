#include "widgets/layout/WidgetManager.h"
#include "telemetry/AtomicFile.h"

#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelData.h"
#include "telemetry/TelemetryData.h"
#include "widgets/layout/DialogLoadLayout.h"
#include "widgets/layout/DialogSaveLayout.h"
#include "widgets/layout/LayoutDocument.h"
#include "widgets/layout/LayoutJsonReader.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WidgetContainer.h"
#include "widgets/layout/WidgetPlaceholder.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

#include <QApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMainWindow>
#include <QSaveFile>
#include <QTimer>

// Resources of a static library are registered by hand; outside any namespace, as the macro requires.
static void initWidgetResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace {
bool setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

QString html(const QString &text)
{
    return text.toHtmlEscaped();
}

constexpr int kIdleRetryMs = 40;

// The layout without what follows the screen rather than the user: sizes, positions and the visible span.
QJsonValue withoutGeometry(const QJsonValue &value)
{
    static const QStringList kIgnored = {QStringLiteral("Sizes"),  QStringLiteral("Width"),
                                         QStringLiteral("Height"), QStringLiteral("X"),
                                         QStringLiteral("Y"),      QStringLiteral("TimeFrom")};
    if (value.isArray()) {
        QJsonArray out;
        for (const QJsonValue &v : value.toArray())
            out.append(withoutGeometry(v));
        return out;
    }
    if (!value.isObject())
        return value;
    QJsonObject out;
    const QJsonObject in = value.toObject();
    for (auto it = in.begin(); it != in.end(); ++it) {
        if (!kIgnored.contains(it.key()))
            out.insert(it.key(), withoutGeometry(it.value()));
    }
    return out;
}
} // namespace

WidgetManager::WidgetManager(WindowHub *hub, TelemetryData *store, DatabaseManager *database, QObject *parent)
    : QObject(parent), m_hub(hub), m_store(store), m_database(database)
{
    initWidgetResources();
    if (m_hub)
        connect(m_hub, &WindowHub::addSensorToActiveWidget, this, &WidgetManager::addSensorToActiveWidget);
    m_root = new WidgetContainer(this, nullptr);
}

WidgetManager::~WidgetManager()
{
    for (const QPointer<QMainWindow> &window : qAsConst(m_dataWindows))
        delete window.data();
    // Once the main window has adopted the root container it deletes it.
    if (m_root && !m_root->parent())
        delete m_root.data();
}

WindowHub *WidgetManager::hub() const
{
    return m_hub;
}

TelemetryData *WidgetManager::telemetry() const
{
    return m_store;
}

DatabaseManager *WidgetManager::database() const
{
    return m_database;
}

QWidget *WidgetManager::rootWidget() const
{
    return m_root;
}

WidgetContainer *WidgetManager::mainContainer() const
{
    return m_root;
}

void WidgetManager::registerType(const QString &typeKey, Factory factory, Wiring wiring)
{
    m_factories.insert(typeKey.toLower(), std::move(factory));
    m_wirings.insert(typeKey.toLower(), std::move(wiring));
}

bool WidgetManager::hasFactory(int typeCode) const
{
    return m_factories.contains(WindowTypes::key(typeCode).toLower());
}

QWidget *WidgetManager::createWindow(int typeCode)
{
    const auto factory = m_factories.constFind(WindowTypes::key(typeCode).toLower());
    if (factory != m_factories.constEnd() && *factory) {
        QWidget *window = (*factory)(this);
        if (window && dynamic_cast<SerializableWidget *>(window))
            return window;
        if (window) {
            qDebug() << "Window type" << WindowTypes::key(typeCode)
                     << "cannot be saved; shown as a placeholder";
            delete window;
        }
    }
    return new WidgetPlaceholder(typeCode);
}

void WidgetManager::registerWidget(QWidget *window, int typeCode)
{
    if (!window || m_types.contains(window))
        return;
    m_types.insert(window, typeCode);
    m_windows.append(window);
    if (auto *serializable = dynamic_cast<SerializableWidget *>(window))
        serializable->setPrompter(m_prompter);
    connect(window, &QObject::destroyed, this, [this, window] {
        m_types.remove(window);
        m_windows.removeAll(window);
    });
    const Wiring wiring = m_wirings.value(WindowTypes::key(typeCode).toLower());
    if (wiring && !qobject_cast<WidgetPlaceholder *>(window))
        wiring(window, m_hub, m_store);
    setActiveWidget(window);
}

void WidgetManager::unregisterWidget(QWidget *window)
{
    if (!m_types.contains(window))
        return;
    m_types.remove(window);
    m_windows.removeAll(window);
    disconnect(window, &QObject::destroyed, this, nullptr);
    // Whatever the type's wiring made, in both directions.
    if (m_hub) {
        QObject::disconnect(m_hub, nullptr, window, nullptr);
        QObject::disconnect(window, nullptr, m_hub, nullptr);
    }
    if (m_store)
        QObject::disconnect(m_store, nullptr, window, nullptr);
    if (m_active == window)
        setActiveWidget(nullptr);
}

void WidgetManager::unregisterWidgetsIn(QWidget *root)
{
    if (!root)
        return;
    const QList<QWidget *> windows = m_windows;
    for (QWidget *window : windows) {
        if (window == root || root->isAncestorOf(window))
            unregisterWidget(window);
    }
}

QList<QWidget *> WidgetManager::widgets() const
{
    return m_windows;
}

int WidgetManager::windowType(QWidget *window) const
{
    return m_types.value(window, -1);
}

void WidgetManager::setActiveWidget(QWidget *window)
{
    if (window && !m_types.contains(window))
        return;
    if (m_active == window)
        return;
    m_active = window;
    emit activeWidgetChanged(window);
}

void WidgetManager::windowFocused(QWidget *window)
{
    setActiveWidget(window);
    if (m_hub)
        emit m_hub->focusUpdated();
}

void WidgetManager::addSensorToActiveWidget(const TelemetryVar *variable)
{
    if (auto *window = dynamic_cast<SerializableWidget *>(m_active.data()))
        window->addVariable(variable);
}

void WidgetManager::setPlaybackTime(qint64 ms)
{
    if (m_hub)
        emit m_hub->mouseOverTimestampRequest(long(ms), true);
}

QMainWindow *WidgetManager::createDataWindow(WidgetContainer *root)
{
    QWidget *owner = m_root ? m_root->window() : nullptr;
    auto *window = new QMainWindow(owner, Qt::Window);
    window->setObjectName(QStringLiteral("DataWindow"));
    window->setWindowTitle(tr("Vexo Studio: Data Window"));
    window->setAttribute(Qt::WA_DeleteOnClose);
    root->setParentContainer(nullptr);
    window->setCentralWidget(root);
    m_dataWindows.append(window);
    return window;
}

QList<QMainWindow *> WidgetManager::dataWindows() const
{
    QList<QMainWindow *> windows;
    for (const QPointer<QMainWindow> &window : m_dataWindows) {
        if (window)
            windows.append(window);
    }
    return windows;
}

void WidgetManager::closeDataWindows()
{
    for (QMainWindow *window : dataWindows()) {
        unregisterWidgetsIn(window);
        window->hide();
        window->deleteLater();
    }
    m_dataWindows.clear();
}

void WidgetManager::saveLayout(LayoutJsonWriter &writer, quint8 flag)
{
    writer.beginObject();
    writer.key(QStringLiteral("Main-Container"));
    writer.beginObject();
    if (m_root)
        m_root->save(writer, flag);
    writer.endObject();
    writer.key(QStringLiteral("Container"));
    writer.beginArray();
    // Only what the user can see is part of the arrangement.
    for (QMainWindow *window : dataWindows()) {
        auto *container = qobject_cast<WidgetContainer *>(window->centralWidget());
        if (window->isHidden() || !container)
            continue;
        const QRect geometry = window->geometry();
        writer.beginObject();
        writer.writeInt(QStringLiteral("Width"), geometry.width());
        writer.writeInt(QStringLiteral("Height"), geometry.height());
        writer.writeInt(QStringLiteral("X"), geometry.x());
        writer.writeInt(QStringLiteral("Y"), geometry.y());
        writer.key(QStringLiteral("Container-Data"));
        writer.beginObject();
        container->save(writer, flag);
        writer.endObject();
        writer.endObject();
    }
    writer.endArray();
    writer.endObject();
}

QByteArray WidgetManager::saveLayout(quint8 flag)
{
    LayoutJsonWriter writer;
    saveLayout(writer, flag);
    return writer.data();
}

bool WidgetManager::loadLayout(const QByteArray &json, QString *error)
{
    if (!m_root)
        return setError(error, tr("There is no window container to load the layout into."));
    LayoutJsonValue document;
    if (!LayoutDocument::parse(json, &document, error))
        return false;

    // The document is whole and sound: from here on nothing is refused.
    closeDataWindows();
    const int status = m_root->load(document.value(QStringLiteral("Main-Container")));
    if (status != 0)
        return setError(error, tr("The main container could not be loaded (status %1).").arg(status));
    const LayoutJsonValue &floating = document.value(QStringLiteral("Container"));
    for (int i = 0; i < floating.size(); ++i) {
        const LayoutJsonValue &entry = floating.at(i);
        auto *container = new WidgetContainer(this, nullptr);
        container->load(entry.value(QStringLiteral("Container-Data")));
        QMainWindow *window = createDataWindow(container);
        QRect geometry = window->geometry();
        const auto apply = [&entry](const char *key, int fallback) {
            return entry.value(QLatin1String(key)).isNumber()
                       ? int(entry.value(QLatin1String(key)).toDouble())
                       : fallback;
        };
        geometry = QRect(apply("X", geometry.x()), apply("Y", geometry.y()), apply("Width", geometry.width()),
                         apply("Height", geometry.height()));
        window->setGeometry(geometry);
        window->show();
    }
    m_loadedArrangement = arrangement();
    emit layoutLoaded();
    return true;
}

QByteArray WidgetManager::arrangement()
{
    const QJsonDocument doc = QJsonDocument::fromJson(saveLayout(SerializableWidget::kForDatabase));
    return QJsonDocument(withoutGeometry(doc.object()).toObject()).toJson(QJsonDocument::Compact);
}

bool WidgetManager::layoutChangedSinceLoad()
{
    return arrangement() != m_loadedArrangement;
}

bool WidgetManager::isInteracting()
{
    return QApplication::activePopupWidget() || QApplication::activeModalWidget();
}

void WidgetManager::runWhenIdle(std::function<void()> job)
{
    // Checked when the job is due, not when it is queued: a menu may have opened in between.
    QTimer::singleShot(0, this, [this, job = std::move(job)]() mutable {
        if (!isInteracting()) {
            job();
            return;
        }
        QTimer::singleShot(kIdleRetryMs, this,
                           [this, job = std::move(job)]() mutable { runWhenIdle(std::move(job)); });
    });
}

bool WidgetManager::writeLayoutFile(const QString &path, QString *error)
{
    const QString name = QDir::toNativeSeparators(path);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return setError(error, tr("%1: %2").arg(name, file.errorString()));
    const QByteArray data = saveLayout(SerializableWidget::kForFile);
    if (file.write(data) != data.size() || !AtomicFile::commit(file))
        return setError(error, tr("%1: %2").arg(name, file.errorString()));
    return true;
}

bool WidgetManager::readLayoutFile(const QString &path, QString *error)
{
    const QString name = QDir::toNativeSeparators(path);
    if (QFileInfo(path).isDir())
        return setError(error, tr("%1 is a folder, not a layout file.").arg(name));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return setError(error, tr("%1: %2").arg(name, file.errorString()));
    if (file.size() > LayoutJsonReader::kDefaultMaxBytes)
        return setError(error,
                        tr("%1 has %2 bytes, more than a layout may have.").arg(name).arg(file.size()));
    const QByteArray data = file.read(LayoutJsonReader::kDefaultMaxBytes + 1);
    if (file.error() != QFileDevice::NoError)
        return setError(error, tr("%1: %2").arg(name, file.errorString()));
    QString reason;
    if (!loadLayout(data, &reason))
        return setError(error, tr("%1: %2").arg(name, reason));
    return true;
}

bool WidgetManager::loadLayoutForModel(int modelId, QString *error)
{
    if (!m_database)
        return setError(error, tr("No database is open."));
    ModelData model;
    if (!m_database->model(modelId, &model))
        return setError(error, m_database->lastError());
    // A model stored before it had a layout starts with the default one.
    if (model.layout.isEmpty())
        return loadLayout(DefaultLayout::document(), error);
    return loadLayout(model.layout, error);
}

bool WidgetManager::saveLayoutForModel(int modelId, QString *error)
{
    if (!m_database)
        return setError(error, tr("No database is open."));
    ModelData model;
    if (!m_database->model(modelId, &model))
        return setError(error, m_database->lastError());
    model.layout = saveLayout(SerializableWidget::kForDatabase);
    if (!m_database->updateModel(model))
        return setError(error, m_database->lastError());
    return true;
}

QWidget *WidgetManager::dialogParent(QWidget *parent) const
{
    if (parent)
        return parent;
    return m_root ? m_root->window() : nullptr;
}

void WidgetManager::setPrompter(Prompter *prompter)
{
    m_prompter = prompter ? prompter : Prompter::standard();
    for (QWidget *window : qAsConst(m_windows)) {
        if (auto *serializable = dynamic_cast<SerializableWidget *>(window))
            serializable->setPrompter(m_prompter);
    }
    QList<WidgetContainer *> containers;
    if (m_root)
        containers << m_root << m_root->findChildren<WidgetContainer *>();
    for (QMainWindow *window : dataWindows())
        containers << window->findChildren<WidgetContainer *>();
    for (WidgetContainer *container : qAsConst(containers))
        container->setPrompter(m_prompter);
}

bool WidgetManager::importDefaultLayout(QWidget *parent)
{
    QString error;
    if (loadLayout(DefaultLayout::document(), &error))
        return true;
    qDebug().noquote() << "Default layout:" << error;
    m_prompter->error(dialogParent(parent), tr("Layout error"),
                      tr("<b>Unable to import default layout file</b>"));
    return false;
}

bool WidgetManager::exportLayoutToFile(QWidget *parent, const QString &startFolder)
{
    QString path = m_prompter->saveFile(dialogParent(parent), tr("Save layout as"), startFolder,
                                        tr("JSON data files (*.jsn);;All files(*.*)"));
    if (path.isEmpty())
        return false;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".jsn");
    m_lastFolder = QFileInfo(path).absolutePath();
    return exportLayoutFile(path, parent);
}

bool WidgetManager::exportLayoutFile(const QString &path, QWidget *parent)
{
    QString error;
    if (writeLayoutFile(path, &error))
        return true;
    m_prompter->error(dialogParent(parent), tr("Error"),
                      tr("<b>Unable to save layout file:</b><ul><li>%1</li></ul>").arg(html(error)));
    return false;
}

bool WidgetManager::importLayoutFromFile(QWidget *parent, const QString &startFolder)
{
    const QString path = m_prompter->openFile(dialogParent(parent), tr("Import layout"), startFolder,
                                              tr("JSON data files (*.jsn);;All files(*.*)"));
    if (path.isEmpty())
        return false;
    m_lastFolder = QFileInfo(path).absolutePath();
    return importLayoutFile(path, parent);
}

bool WidgetManager::importLayoutFile(const QString &path, QWidget *parent)
{
    QString error;
    if (readLayoutFile(path, &error))
        return true;
    m_prompter->error(dialogParent(parent), tr("Layout error"),
                      tr("<b>Unable to import layout file:</b><ul><li>%1</li></ul>").arg(html(error)));
    return false;
}

bool WidgetManager::loadStoredLayout(const QByteArray &json, QWidget *parent)
{
    QString error;
    if (loadLayout(json, &error))
        return true;
    m_prompter->error(dialogParent(parent), tr("Layout error"),
                      tr("<b>Unable to load layout:</b><ul><li>%1</li></ul>").arg(html(error)));
    return false;
}

bool WidgetManager::activateModel(int modelId, QWidget *parent)
{
    QString error;
    if (loadLayoutForModel(modelId, &error))
        return true;
    m_prompter->warning(
        dialogParent(parent), tr("Layout error"),
        tr("<b>Unable to load layout for model:</b><ul><li>%1</li></ul>Loading default layout now...")
            .arg(html(error)));
    importDefaultLayout(parent);
    return false;
}

bool WidgetManager::saveSessionForModel(int modelId, QWidget *parent)
{
    if (modelId < 0)
        return true;
    QString error;
    if (saveLayoutForModel(modelId, &error))
        return true;
    m_prompter->error(
        dialogParent(parent), tr("Error"),
        tr("<b>Unable to save session for the current model:</b><ul><li>%1</li></ul>").arg(html(error)));
    return false;
}

void WidgetManager::saveLayoutToDatabase(QWidget *parent)
{
    DialogSaveLayout dialog(this, m_prompter, dialogParent(parent));
    dialog.exec();
}

void WidgetManager::loadLayoutFromDatabase(QWidget *parent)
{
    DialogLoadLayout dialog(this, m_prompter, dialogParent(parent));
    dialog.exec();
}
