#pragma once

#include "widgets/layout/SerializableWidget.h"

#include <QWidget>

#include <functional>

class WindowHub;

class DatabaseManager;
class DeletableTreeView;
class LogbookView;
class ModelFolderTree;
class ModelLibrary;
class ModelTableModel;
class QTableView;
class TelemetryData;

// The models window: the list of models, and for the selected one its folders and stored logs (one
// tab) and its logbook (another). Logs are opened into the store, exported, renamed, commented, moved
// by dragging and deleted from here.
class WidgetModel : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    // What this window takes from the hub and the store and what it gives back: the one place its
    // wiring is written, checked by the compiler. Called by the window manager on registration.
    static void wire(WidgetModel *window, WindowHub *hub, TelemetryData *store);
    WidgetModel(DatabaseManager *database, ModelLibrary *library, TelemetryData *store,
                QWidget *parent = nullptr);

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;

    int selectedModel() const;
    // -1, or a model that is gone: nothing selected, and nothing is announced.
    void selectModel(int modelId);
    // Asked before a stored log replaces what the store holds (a running recording); false keeps it.
    using OpenGuard = std::function<bool(const QString &logName)>;
    void setOpenGuard(OpenGuard guard) { m_openGuard = std::move(guard); }
    ModelFolderTree *tree() const { return m_tree; }
    ModelTableModel *models() const { return m_models; }
    LogbookView *logbook() const { return m_logbook; }

public slots:
    void openFile();
    void exportFile();
    void editFile();
    void removeFileAction();
    void newFolderAction();
    void removeFolderAction();
    void newModel();
    void editModel();
    void removeModelAction();
    // "Load log files...": stores files or the open log under the selected model and folder.
    void loadLogFiles();
    void newFolder();
    void onCustomHeaderMenuRequest(const QPoint &pos);
    // Reads models, tree and logbook again (after an import, a recording or a log synchronisation).
    void reload();

signals:
    // The user chose another model: its layout and recordings become the active ones.
    void modelActivated(int modelId);
    void logOpened(int logId);
    void modelRenamed(int modelId);
    // The model is gone from the database; no model is selected any more.
    void modelDeleted(int modelId);

private:
    void modelSelectionChanged();
    void treeMenu(const QPoint &pos);
    void modelMenu(const QPoint &pos);
    void showError(const QString &text);
    QModelIndex currentItem() const;
    bool confirm(const QString &title, const QString &question);

    DatabaseManager *m_database;
    ModelLibrary *m_library;
    TelemetryData *m_store;
    ModelTableModel *m_models;
    ModelFolderTree *m_tree;
    QTableView *m_modelView;
    DeletableTreeView *m_treeView;
    LogbookView *m_logbook;
    int m_activeModel = -1;
    OpenGuard m_openGuard;
};
