#pragma once

#include "widgets/layout/Prompter.h"

#include <QDialog>
#include <QStringList>

class ModelFolderTree;
class ModelLibrary;
class ModelTableModel;
class QCheckBox;
class QDialogButtonBox;
class QLabel;
class QListView;
class QPushButton;
class QTreeView;
class QTreeWidget;
class TelemetryDataPackage;

// Keeps log files, and optionally the log that is open, under a model: the user picks the model and a
// folder of its tree (a log picked means its folder, nothing picked the model's top level). Each log is
// stored on its own, so a damaged file costs only itself; a summary tells what was stored and what not.
class DialogLoadLog : public QDialog
{
    Q_OBJECT
public:
    // activeModelId: preselected (-1: none). files: already chosen (a drop, the command line). openLog:
    // the log that is open, offered when it holds telemetry (may be null); it must outlive the dialog.
    DialogLoadLog(ModelLibrary *library, int activeModelId, const QStringList &files = {},
                  const TelemetryDataPackage *openLog = nullptr, QWidget *parent = nullptr);
    ~DialogLoadLog() override;

    // How the dialog asks and tells the user; whoever opens it hands over its own.
    void setPrompter(Prompter *prompter) { m_prompter = prompter; }
    Prompter *prompter() const { return m_prompter ? m_prompter : Prompter::standard(); }

    // Adds files to the list, each once.
    void addFiles(const QStringList &paths);
    QStringList files() const;
    int selectedModel() const;
    // -1: the model's top level.
    int selectedFolder() const;
    void selectModel(int modelId);
    void selectFolder(int folderId);
    // Logs stored since the dialog opened.
    int storedCount() const { return m_stored; }

public slots:
    // Stores the chosen logs; closes when at least one was stored.
    void accept() override;
    // "Add files...": asks for files with the file dialog.
    void addFilesPressed();
    void removeFilesPressed();

signals:
    void logsStored(int modelId);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void modelChanged();
    void updateState();
    QString targetText() const;

    ModelLibrary *m_library;
    const TelemetryDataPackage *m_openLog = nullptr;
    ModelTableModel *m_models;
    ModelFolderTree *m_tree;
    QListView *m_modelView;
    QTreeView *m_folderView;
    QTreeWidget *m_fileList;
    QPushButton *m_remove;
    QCheckBox *m_openLogBox = nullptr;
    QLabel *m_target;
    QLabel *m_hint;
    QDialogButtonBox *m_buttons;
    // Until the user decides, the open log is offered checked exactly when there are no files.
    bool m_openLogChosen = false;
    int m_stored = 0;
    Prompter *m_prompter = nullptr;
};
